#!/usr/bin/python3
"""Writes Docs/performance.md from what was measured: what a user wants to know, and a page for each processor.

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

This page says how long a draw call takes on one core: from positions or values in memory to the finished index buffer,
set-up functions included. Beside each time stands *the loop*, which is what a renderer does without this library: it
computes distances, sorts particle numbers with `std::sort`, and writes quads. Both sort the same particles in the same
run, in turns, and both results are checked. Numbers are medians of processor time.
"""
DRAW_CALLS = """\
## Your draw call

The particles are drawn as quads. Their positions are packed, in pages of 1,000 of which none has disabled particles,
and the camera is outside. The last column of each processor says how many times as long the loop takes.
"""
SCENES = """\
## Other draw calls

Each cell has nanoseconds per particle, disabled ones included, and how many times as long the loop takes. Where the
loop is faster, the number is bold. A row of 500 draw calls is a whole frame of them, with pages and disabled particles
as in the row above it. Every output here is ordinary memory, which the library is told in the rows of ordinary memory
only.
"""
COLD = """\
## Small draw calls, cold

While a renderer does other work, a sort's code and data leave the caches. Here 20 sorters take turns, and the named
caches are emptied before each draw call. Each cell has the time of a draw call, and how many times as long the loop
takes. Every output here is ordinary memory. The library takes it for write-combined memory, unless it is told that it
is ordinary.
"""
COLD_REASON = """\
With all caches empty, a small sort mostly waits for its own code. A sort of 100 positions executes fewer instructions
than the loop, but they lie in 87 cache lines, and those of the loop in 24 (counted step by step in a debugger's trace,
with 256-bit registers). A line from memory takes some 25 ns. A processor that has forgotten the branches fetches lines
ahead only where code runs on, so what a small sort runs lies side by side and has few jumps. If several small draw
calls can be one, with a page each, they wait only once.
"""
JOBS = """\
## One large draw call on two cores

The sort with a host's [jobs](integration.md#one-draw-call-on-many-cores) took turns with the sort on one core. Its two
threads are those of oneTBB, or of [a thread pool](../Samples/minimal/thread_pool.h) whose threads look for work for 0.1
ms before they sleep. Right before each turn, both threads work for 0.1 ms, as they do in a frame with other jobs. All
turns are timed by the wall clock. Fewer than 32,768 particles run no jobs: from 3,000 on, the sort with jobs is ahead
there because it takes fewer passes, on one core. Where memory is the limit, a second core helps less. The rows of bytes
moved show how much: they are a loop that moves as many bytes as a sort. The second table has packaged parallel sorts on
oneTBB's two threads, with the library's loops before and after them. More than two cores were not measured.
"""
ONE_JOB = """\
**On one core**, a sort with one job promises the indices alone, so it may take other passes than the sort without jobs.
Each cell says how many times as long the sort without jobs takes, by processor time. Where one job is slower, the
number is bold.
"""
JOBS_MODEL = """\
**A model** says how many times as long one core would take as several. No machine with more than two was measured. The
jobs of a sort run one after the other on one core, and each is timed. The modelled time is that of the longest job of
each run of jobs, since the other jobs would run beside it, plus the time between runs, when one thread works alone. To
start and join the jobs takes time as well. For that, the model adds what two threads of oneTBB above took longer than
their jobs, at the lowest count of the table. With more threads this takes longer, in a way that the model does not
know. A sort asks for a job per 16,384 particles, so 100,000 particles make six at most. The last column is a bound: one
core's time over that of moving as many bytes on two cores. If more cores get no more from memory than two did, no
number of cores is further ahead.
"""
LOSSES = """\
## Where it loses

Each line names what is faster than the library, and the counts at which it is. In brackets stands how many times as
long it takes, which is below 1. `counting_16bit` gives an approximate order.
"""
VQSORT = """\
In whole sorts, the name of a sort stands for the loop with that sort in place of `std::sort`; `same_traffic` only moves
as many bytes as a sort and is told the order. vqsort is its package's own code (libhwy). The package uses only the
first AVX-512 instructions, even where the processor has newer ones, so a later version may be faster than here.
"""
WEB = """\
## In JavaScript

The [package for JavaScript](../Web/package/README.md) in node, from positions in its memory to point numbers in drawing
order. The points are a generated cloud that is shaped like a captured scene, and the camera circles it. All sorts take
turns in one run, and every result is checked. Each cell has the median of processor time, on two threads of the time
that passes, and how many times as long as the package with SIMD on one thread the sort takes. Where the sort is faster
than the package on one thread, the number is bold.

- A counting sort by depth along the view axis, in 65,536 steps, is what most viewers do: its order is approximate, and
  the package's is exact. It is measured in JavaScript, and in C compiled to WebAssembly with SIMD.
- Two sorts are JavaScript's own. Keys that are packed with point numbers into 64 bits are sorted by
  `BigUint64Array.prototype.sort`. Point numbers are sorted by `Uint32Array.prototype.sort` with a function that
  compares distances.
- The native sort is this library with 128-bit registers, in a program of its own.
- On two threads, the package's sort is shared by the calling thread and a worker: `load({ threads: 2 })`.

`./Tools/web.sh --bench --write Web/bench/results/NAME.json` measures, and `./Tools/bench.sh --pages` writes this page.
"""
WEB_LIMIT = """\
The counting sort in C shows what an exact order costs. It moves numbers of 4 bytes once, by 16 bits of a depth. An
exact sort goes by 32 bits: from 200,000 points on, the package moves records of 8 bytes once and words of 4 bytes
twice. If they do not fit the caches, these passes take the additional time.

No exact sort on one thread that was tried is twice as fast as the counting sort in JavaScript from a million points on,
and the counting sort in C is not either. [What was tried](../Benchmarks/tried.md#webassembly)
"""
DETAILS = """\
## Details

A page for each processor has every stage beside its peers, and how the processor was measured.
[Benchmarks](../Benchmarks/README.md) says what is compared, how to measure another processor, and where the goals are
that a run is checked against. It also has [what was tried and lost](../Benchmarks/tried.md).
"""
SORT = """\
## Sort stage

The input is records, and the output is the same records in key order. Each cell has nanoseconds per record: the median,
half the range between the quartiles, and how many times as long as this library the peer takes. Where the peer is
faster, the number is bold. counting_16bit gives an approximate order. vexmoor_4_lanes is this library limited to four
lanes. Small sorts get different inputs in turns.
"""
PARTS = """\
## Parts of the radix sort

Nanoseconds per record of the work that every radix sort has to do: clearing and summing the counters, the counting
sweep, and three scatters that know every destination beforehand. A second kind of scatter also stores the next position
of a digit with every record, as a sort has to. The row of stores has only the nine stores that each record takes, into
the first-level cache.
"""
FILL = """\
## Fill

Nanoseconds per particle. The brackets have two ratios. The first is to the faster of two loops that read 12 and write 8
bytes per particle and do nothing else (same_traffic_16 and same_traffic_32, named by their width in bytes). The second
is to a copy that reads and writes as many bytes together. Layouts other than positions at a stride of 12 move other
amounts of memory, so their ratios only place them on the same scale. The items of compaction are all particles of a
page, disabled ones too. If the processor has 512-bit registers, 16 packed positions are filled at a time; 8_lanes and
4_lanes are limited to fewer.
"""
EXPAND = """\
## Expansion

Nanoseconds per record. The brackets have two ratios: to a loop that streams as many bytes and reads 8 per record
(same_traffic), and to one that only streams (stream_fill). vexmoor_at_8 writes to an address of 8 modulo 16, and so on.
Widths 5 and 24 have no loop of their own. 16-bit indices of width 12 have one, which does not stream.
"""
WHOLE = """\
## Whole sorts beside peers

Each cell has nanoseconds per particle: the median, half the range between the quartiles, and how many times as long as
this library the peer takes. user is what a renderer does without a library: distances, `std::sort` and a loop. The name
of a sort stands for the same loops around that sort. ogre_way sorts a list of pointers by a radix sort of floats,
sort_of_structures sorts whole particles, and comparator_computes_depth computes two distances in each comparison.
16-bit indices reach 15,360 quads; more are drawn in several calls, each sorted by itself.
"""
SMALL_PAGES = """\
## Small pages

How many times as long a whole sort of particles in small pages takes as a whole sort of the same particles in pages of
1,000, measured in turns. A stride of 16 warns once per page.
"""
THREADS = """\
## Many draw calls

A frame of 500 sorters of 50 to 5,000 particles each, whose counts are spread evenly on a logarithmic scale. The two
threads are oneTBB's, and are timed by the wall clock.
"""
DIAGNOSTICS = """\
## Diagnostics

The time with a diagnostic over the time without it, in turns. The profiler handler writes the time-stamp counter and
the scope to a ring. A checked sort is compared with its bare sort: quads by position in pages of 1,024; the same with
an enabled byte for each particle; with an index list; and triangles.
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


def overview(page, of_processors, links, of_web):
	"""What a user wants to know. links: name -> the processor's page. of_web: what Web/bench has measured."""
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
	page.add(LOSSES)
	for processor, results in of_processors.items():
		page.add([f"### {processor}, losses\n", *(tables.losses(results) or ["Nowhere in what was measured."]), ""])
	page.add(VQSORT)
	if any(tables.scene_table(results) for results in of_processors.values()):
		page.add(SCENES)
	for processor, results in of_processors.items():
		scene_lines = tables.scene_table(results)
		if scene_lines:
			page.add([f"### {processor}\n", *scene_lines])
			points = {tables.scene_title(what): tables.scene_ratios(results, what)
				for what in results.values(1, stage="scenes")}
			page.plot(f"scenes_{measured.file_name(results.machine)}", f"The loop over the library, on {processor}",
				lambda path, points=points, processor=processor:
					plots.scenes(path, f"Whole sorts on {processor}", points))
	if any(tables.cold_table(results) for results in of_processors.values()):
		page.add(COLD)
		for processor, results in of_processors.items():
			page.add([f"### {processor}, small draw calls\n", *tables.cold_table(results)])
		page.add(COLD_REASON)
	if any(tables.jobs_table(results) for results in of_processors.values()):
		page.add(JOBS)
		for processor, results in of_processors.items():
			page.add([f"### {processor}, two cores\n", *tables.jobs_table(results), *tables.jobs_peer_table(results)])
		if any(tables.one_job_table(results) for results in of_processors.values()):
			page.add(ONE_JOB)
		for processor, results in of_processors.items():
			page.add([*tables.one_job_table(results)])
		if any(tables.jobs_model_table(results) for results in of_processors.values()):
			page.add(JOBS_MODEL)
		for processor, results in of_processors.items():
			page.add([*tables.jobs_model_table(results)])
	if of_web:
		page.add(WEB)
		for web in of_web:
			page.add([f"### {measured.processor_name(web['machine'])}, in node\n", *tables.web_table(web)])
		page.add(WEB_LIMIT)
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
	page.add("All competitors of a case run in one process, in shuffled order. "
		"Numbers are medians of processor time.\n")
	spread = tables.middle_spread(results)
	if spread is not None:
		page.add(f"In the middle case, half the range between the quartiles is {100 * spread:.1f} % of the median.\n")
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
		f"**Fast** means: from positions to the index buffer in {', '.join(durations[:-1])} and {durations[-1]}, "
		f"on one core of an {processor}. Distances, `std::sort` and a loop take "
		f"{min(loops):.0f} to {max(loops):.0f} times as long. With the fastest packaged vector sort in place of "
		f"`std::sort` they take {min(vqsort):.1f} to {max(vqsort):.1f} times as long. [Your count, "
		"other draw calls, and where it loses](Docs/performance.md).")
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
	arguments.add_argument("--page", required=True,
		help="the page to write; the pages of processors go into a folder of the same name")
	arguments.add_argument("--readme", help="a README, whose paragraph of figures is replaced")
	arguments.add_argument("--web", nargs="*", default=[], help="files of Web/bench/results")
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
	overview(page, of_processors, links, measured.load_all(options.web, measured.read_json))
	page.write()
	if options.readme:
		processor, newest = max(of_processors.items(), key=lambda item: item[1].machine["date"])
		paragraph = figures(processor, newest)
		if paragraph:
			write_figures(options.readme, paragraph)


if __name__ == "__main__":
	main()
