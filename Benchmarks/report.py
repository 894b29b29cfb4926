#!/usr/bin/python3
"""Writes Docs/performance.md from what was measured: first what a user wants to know, then a page for each processor.

Every number on the pages, and in the README's paragraph of figures, comes from the files of Benchmarks/results.
"""

import os
import sys
import textwrap

import plots
import results as measured
import tables
from goals import SHAPES, SIZES, size_name, whole_ahead

FIGURES_BEGIN = "<!-- figures: Benchmarks/report.py writes them -->"
FIGURES_END = "<!-- end of figures -->"
README_COUNTS = (1000, 10000, 100000, 1000000)

BEGINNING = """\
# Performance

How long a draw call takes on one core, from positions or values in memory to the finished index buffer, set-up calls
included; and how long it takes as it is written without the library: distances beside particle numbers, `std::sort`, a
loop that writes quads. Both sort the same particles in the same run, taking turns, and both results are checked. Numbers are
medians of processor time.
"""
DRAW_CALLS = """\
## Your draw call

Packed positions in pages of 1,000, none disabled, seen from outside: what Vexmoor takes, what the loop takes, and how many
times as long that is.
"""
SCENES = """\
## Other draw calls

Nanoseconds a particle, disabled ones included, and how many times as long the loop takes; bold where the loop is faster.
The rows that name 500 draw calls are a whole frame of them, with pages and disabled particles as in the row above.
"""
COLD = """\
## Small draw calls, cold

Between two passes of a renderer, code and data of a sort leave the caches. These draw calls rotate among 20 sorters, with
the caches swept before each; the time of a call, and how many times as long the loop takes.
"""
COLD_REASON = """\
What a cold sort waits for is its code. A sort of 100 positions executes 98 cache lines of the library, in fewer instructions
than the loop, which executes 24 lines (counted in a trace of memory accesses, 256-bit registers). A line that comes from
memory takes some 30 ns, and a processor that does not remember the branches fetches none ahead. Small draw calls that can be
one, with a page each, wait for it once.
"""
JOBS = """\
## One large draw call on two cores

With a host's [jobs](integration.md#one-draw-call-on-many-cores), here those of oneTBB on two threads, timed by the wall clock
in turns with the sort on one core. Fewer than 32,768 particles run no jobs. What two cores gain at all where memory is the
limit is in the rows of a loop that moves the bytes of a sort. Packaged parallel sorts have the same loops before and after
them, on both threads as well. More than two cores were not measured.
"""
LOSSES = """\
## Where it loses

How many times as long as the library others take, below 1. `counting_16bit` gives an approximate order.
"""
VQSORT = """\
vqsort is its package's own code (libhwy), which has nothing for AVX-512 beyond the first set of instructions, also where the
processor and the package's headers know a newer one; a later version may be ahead of these numbers. Names of sorts in whole
sorts stand for the loop's two other parts around that sort.
"""
DETAILS = """\
## Details

Every stage beside its peers, with losses; how each processor was measured. [Benchmarks](../Benchmarks/README.md) says what
is compared and how to measure another processor; [what was tried and lost](../Benchmarks/tried.md) is there as well.
"""
SORT = """\
## Sort stage

Records in, records in key order out. Nanoseconds a record: the median, half the range between the quartiles, and how many
times as long as this library; bold where the peer is faster. counting_16bit gives an approximate order. Small sorts rotate
different inputs. vexmoor_4_lanes is this library where registers have four lanes.
"""
PARTS = """\
## Parts of the radix sort

Nanoseconds a record: counters cleared and summed, the counting sweep, three scatters that know every destination beforehand;
these, storing the next position of a digit with every record, as scatters do that know nothing beforehand; and the nine
stores of a record alone, in the first cache.
"""
FILL = """\
## Fill

Nanoseconds a particle, and in brackets the ratio to the faster of two loops that read 12 and write 8 bytes a particle and do
nothing else (same_traffic_16, same_traffic_32: by width), then to a copy that reads and writes as many bytes together.
Layouts other than positions at a stride of 12 move other amounts of memory; their ratios only place them on the same scale.
Items of compaction are all particles of a page, disabled ones too. Packed positions are filled 16 at a time where the
processor can; 8_lanes and 4_lanes are held to less.
"""
EXPAND = """\
## Expansion

Nanoseconds a record, and in brackets the ratio to a loop that streams as many bytes and reads 8 a record (same_traffic), then
to one that only streams (stream_fill). vexmoor_at_8 writes to an address of 8 modulo 16, and so on. Widths 5 and 24 have no
path of their own, and neither has the 16-bit width 12.
"""
WHOLE = """\
## Whole sorts beside peers

Nanoseconds a particle as above. user is what is written without a library. Names of sorts stand for the same two loops around
that sort. 16-bit indices reach 15,360 quads: more are drawn in several calls, each sorted by itself.
"""
SMALL_PAGES = """\
## Small pages

A whole sort over one of the same particles in pages of 1,000, in turns. Strides of 16 warn once per page.
"""
THREADS = """\
## Many draw calls

A frame of 500 sorters of 50 to 5,000 particles each, evenly spread on a logarithmic scale; two threads are two of oneTBB, and
go by the wall clock.
"""
DIAGNOSTICS = """\
## Diagnostics

Time with over time without, in turns. The handler notes the time-stamp counter and the scope in a ring. A checked sort is
compared with its bare sort: quads in pages of 1,024, by position; with an enabled byte for each particle, with an index list,
or by triangles.
"""


class Page:
	"""A Markdown page, with its plots in a folder beside it."""

	def __init__(self, path, plot_folder, plot_prefix=""):
		self.path = path
		self.plot_folder = plot_folder
		self.plot_prefix = plot_prefix
		self.lines = []
		os.makedirs(plot_folder, exist_ok=True)

	def add(self, text_or_lines):
		self.lines += [text_or_lines] if isinstance(text_or_lines, str) else text_or_lines

	def plot(self, name, title, draw):
		"""draw is given the path of the file to write."""
		path = os.path.join(self.plot_folder, f"{self.plot_prefix}{name}.svg")
		draw(path)
		self.add(f"![{title}]({os.path.relpath(path, os.path.dirname(self.path))})\n")

	def write(self):
		with open(self.path, "w", encoding="utf-8") as file:
			file.write("\n".join(self.lines).rstrip("\n") + "\n")


def overview(page, of_processors, links):
	"""What a user wants to know. links: name -> the processor's page."""
	page.add(BEGINNING)
	lines = {}
	for processor, results in of_processors.items():
		points = [(size, *tables.sides(case), case.items) for size, case in tables.scene_points(results, "positions")]
		if points:
			lines[processor] = ([(size, library / items) for size, library, _, items in points],
				[(size, loop / items) for size, _, loop, items in points])
	if lines:
		page.plot("whole_sorts", "Whole sorts by count, beside the loop", lambda path: plots.whole_sorts(path, lines))
		page.add(DRAW_CALLS)
		page.add(tables.draw_call_table(of_processors))
	if any(tables.scene_table(results) for results in of_processors.values()):
		page.add(SCENES)
	for processor, results in of_processors.items():
		scene_lines = tables.scene_table(results)
		if scene_lines:
			page.add([f"### {processor}\n", *scene_lines])
			points = {tables.scene_title(what): tables.scene_ratios(results, what)
				for what in results.values(1, stage="scenes")}
			page.plot(f"scenes_{measured.file_name(results.machine)}", f"The loop over the library, on {processor}",
				lambda path, points=points, processor=processor: plots.scenes(path, f"Whole sorts on {processor}", points))
	if any(tables.cold_table(results) for results in of_processors.values()):
		page.add(COLD)
		for processor, results in of_processors.items():
			page.add([f"### {processor}, small draw calls\n", *tables.cold_table(results)])
		page.add(COLD_REASON)
	if any(tables.jobs_table(results) for results in of_processors.values()):
		page.add(JOBS)
		for processor, results in of_processors.items():
			page.add([f"### {processor}, two cores\n", *tables.jobs_table(results), *tables.jobs_peer_table(results)])
	page.add(LOSSES)
	for processor, results in of_processors.items():
		page.add([f"### {processor}, losses\n", *(tables.losses(results) or ["Nowhere in what was measured."]), ""])
	page.add(VQSORT)
	page.add(DETAILS)
	page.add([f"- [{processor}]({link})" for processor, link in links.items()])


def peers(page, results, stage, what, own, title, unit):
	lines, series = tables.peer_table(results, stage, what, own, unit)
	page.add([f"### {title}\n", *lines])
	if series:
		page.plot(f"{stage}_{what}", title, lambda path: plots.ratios(path, title, series,
			f"how many times as long as {own}: above 1 it is slower"))


def details(page, processor, results):
	"""Every stage on one processor."""
	page.add(f"# Performance on {processor}\n")
	page.add("All competitors of a case run in one process, in shuffled order. Numbers are medians of processor time.\n")
	spread = tables.middle_spread(results)
	if spread is not None:
		page.add(f"Half the range between the quartiles is {100 * spread:.1f} % of the median in the middle case.\n")
	page.add(tables.machine_table(results.machine))
	if results.values(1, stage="whole"):
		page.add(WHOLE)
		for what in results.values(1, stage="whole"):
			whos = results.values(2, stage="whole", what=what)
			own = "vexmoor_pages_of_1k" if "vexmoor_pages_of_1k" in whos else "vexmoor"
			if own in whos:
				peers(page, results, "whole", what, own, f"Whole sort, {what}", "ns a particle")
		page.add(tables.frame_share_table(results))
	if results.values(1, stage="draw_calls"):
		page.add(THREADS)
		page.add(tables.thread_table(results))
		lead = tables.two_threads_lead(results)
		if lead:
			page.add("Timed in turns of 32 frames, in the same memory and with no other case between, two threads are "
				f"{lead[1]:.2f} times as fast as one, from {lead[0]:.2f} to {lead[2]:.2f} in the repetitions.\n")
	if results.values(1, stage="small_pages"):
		page.add(SMALL_PAGES)
		page.add(tables.pair_table(results, "small_pages", ["", "pages", "ratio", "range", "in pages of 1,000"],
			lambda what, who: f"{what}, {who}".replace("_", " ")))
	if results.values(1, stage="sort"):
		page.add(SORT)
		for keys in results.values(1, stage="sort"):
			peers(page, results, "sort", keys, "vexmoor", f"Sort of {keys} keys", "ns a record")
	if results.values(1, stage="sort_parts"):
		page.add(PARTS)
		page.add(tables.parts_tables(results))
	if results.values(1, stage="fill"):
		lines, series = tables.fill_table(results)
		page.add(FILL)
		page.add(lines)
		if series:
			page.plot("fill", "Fill", lambda path: plots.ratios(path, "Fill", series,
				"over a loop with the traffic of packed positions"))
	if results.values(1, stage="expand"):
		of_widths, series = tables.expand_tables(results)
		page.add(EXPAND)
		for what, lines in of_widths.items():
			page.add([f"### {what}\n", *lines])
		if series:
			page.plot("expand", "Expansion, aligned", lambda path: plots.ratios(path, "Expansion, aligned", series,
				"over a loop with the same traffic"))
	if results.values(1, stage="diagnostics"):
		page.add(DIAGNOSTICS)
		page.add(tables.pair_table(results, "diagnostics", ["", "particles", "ratio", "range", "without"],
			lambda what, who: what.replace("_", " ")))


def figures(processor, results):
	"""The README's paragraph, or None where what it says was not measured."""
	cases = [results.get("scenes", "positions", "user", size) for size in README_COUNTS]
	vqsort = [whole_ahead(results, shape, "1k", "vqsort_best", size) for shape in SHAPES for size in SIZES[:-1]]
	if not all(cases) or not all(vqsort):
		return None
	loops = [case.counter("ratio") for case in cases]
	durations = [f"{tables.duration(case.counter('plain_ns'))} for {count}"
		for case, count in zip(cases, ("1,000 particles", "10,000", "100,000", "a million"))]
	paragraph = (
		f"**Fast** means: from positions to the index buffer in {', '.join(durations[:-1])} and {durations[-1]}, on one core of an "
		f"{processor}. Distances, `std::sort` and a loop take {min(loops):.0f} to {max(loops):.0f} times as long, the same loops "
		f"around the fastest packaged vector sort {min(vqsort):.1f} to {max(vqsort):.1f} times. [Your count, other draw calls, and "
		"where it loses](Docs/performance.md).")
	return "\n".join(textwrap.wrap(paragraph, 120, break_long_words=False, break_on_hyphens=False))


def write_figures(path, paragraph):
	with open(path, encoding="utf-8") as file:
		text = file.read()
	before, begin, rest = text.partition(FIGURES_BEGIN)
	_, end, after = rest.partition(FIGURES_END)
	if not begin or not end:
		sys.exit(f"report.py: {path} has no place for figures, between {FIGURES_BEGIN} and {FIGURES_END}")
	with open(path, "w", encoding="utf-8") as file:
		file.write(f"{before}{begin}\n{paragraph}\n{end}{after}")


def main():
	arguments = measured.ArgumentParser(description=__doc__.splitlines()[0])
	arguments.add_argument("results", nargs="+", help="files of Benchmarks/results")
	arguments.add_argument("--page", required=True, help="the page to write; the processors' pages go into a folder of its name")
	arguments.add_argument("--readme", help="the README whose paragraph of figures is written again")
	options = arguments.parse_args()

	folder = os.path.splitext(options.page)[0]
	of_processors, links = {}, {}
	for results in measured.load_all(options.results):
		processor = measured.processor_name(results.machine)
		name = measured.file_name(results.machine)
		of_processors[processor] = results
		page = Page(os.path.join(folder, f"{name}.md"), folder, f"{name}_")
		links[processor] = os.path.relpath(page.path, os.path.dirname(options.page))
		details(page, processor, results)
		page.write()
	page = Page(options.page, folder)
	overview(page, of_processors, links)
	page.write()
	if options.readme:
		processor, newest = max(of_processors.items(), key=lambda item: item[1].machine["date"])
		paragraph = figures(processor, newest)
		if paragraph:
			write_figures(options.readme, paragraph)


if __name__ == "__main__":
	main()
