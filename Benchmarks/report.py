#!/usr/bin/python3
"""Turns the benchmarks' JSON into a page of ratios.

Reads what vexmoor_benchmarks wrote, and writes a Markdown page with every table and, beside it, SVG plots. All numbers
on the page come from that one file, except versions and the machine, which are asked of the machine it runs on; so run
it where the measurements were made.
"""

import argparse
import collections
import json
import os
import statistics
import subprocess
import sys

import matplotlib
import matplotlib.ticker

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "vexmoor"  # the same data gives the same bytes
matplotlib.rcParams["svg.fonttype"] = "none"
import matplotlib.pyplot as plt

PACKAGES = [
	"libbenchmark-dev", "libboost-dev", "libhwy-dev", "libogre-1.12-dev", "libtbb-dev", "libstdc++-12-dev", "g++", "clang",
]
GOAL_SIZES = [1000, 10000, 100000, 1000000, 4000000]
RECORD_KEYS = ["uniform", "ball", "curve"]
SHAPES = ["ball", "curve"]
FRAME_NS = 1e9 / 60

# Goals: how many times as long the peer takes, by size; None where there is no goal.
SORT_GOALS = [
	("std_sort", "std::sort", [5, 8, 9.5, 9.5, 6]),
	("ogre_radix", "OGRE's RadixSort", [1.3, 2, 3.8, 3.8, 3]),
	("spreadsort", "spreadsort", [2.9, 3.9, 4.6, 4.6, None]),
	("vqsort_avx2", "vqsort held to AVX2", [1.8, 2.3, 2.3, 2.1, None]),
	("vqsort_best", "vqsort at its best", [1.0, 1.1, 1.25, 1.2, None]),
]
WHOLE_GOALS = [
	("user", "what a user writes", [6, 8, 9, 7, 5]),
	("ogre_way", "the OGRE way", [2, 2.4, 3.5, 2.8, 2.4]),
	("vqsort_best", "vqsort at its best with the same loops", [1.6, 1.6, 1.6, 1.3, None]),
]
FILL_GOALS = [None, None, 1.2, 1.2, 1.2]
EXPAND_GOALS = [("u32", [1.05] * 5), ("u16", [1.1] * 5)]
TRIANGLES_GOALS = [None, None, 1.2, 1.2, None]
TUBES_GOALS = [3, 3, 2, None, None]
SMALL_GOALS = {8: 2, 16: 2, 32: 3, 64: 3, 109: 2.5}
EVEN_GOAL = 1.25  # a record's time at one count over its time at the next count
CLIFF_GOAL = SMALL_GOALS[109]  # the other sort takes over at 110, and is to be as far ahead
TWO_CORES_GOAL = 1.9
HANDLER_GOAL = 1.01
PARTS_GOAL = 1.05
THOUSAND_GOAL_NS = 4000


class Case:
	"""All repetitions of one case: nanoseconds per call and per item."""

	def __init__(self):
		self.times = []
		self.items = 1
		self.counters = collections.defaultdict(list)

	def add(self, run):
		self.times.append(run["real_time"] / run["calls"])
		self.items = run["items"]
		for counter in ("ratio", "plain_ns", "allocations", "worst_ratio", "worst_count", "uneven_steps"):
			if counter in run:
				self.counters[counter].append(run[counter])

	def median(self):
		return statistics.median(self.times)

	def per_item(self):
		return self.median() / self.items

	def spread(self):
		"""Half the range between the quartiles, as a share of the median."""
		if len(self.times) < 4:
			return (max(self.times) - min(self.times)) / 2 / self.median()
		low, _, high = statistics.quantiles(self.times, n=4)
		return (high - low) / 2 / self.median()


class Results:
	def __init__(self, data):
		self.context = data["context"]
		self.cases = collections.defaultdict(Case)
		self.errors = []
		# Results come in the order of the shuffled runs, tables in the order of registration.
		for run in sorted(data["benchmarks"], key=lambda run: run["family_index"]):
			if run["run_type"] != "iteration":
				continue
			parts = run["run_name"].split("/")
			if run.get("error_occurred"):
				error = (run["run_name"], run["error_message"])
				if error not in self.errors:
					self.errors.append(error)
				continue
			self.cases[(parts[0], parts[1], parts[2], int(parts[3]))].add(run)
		self.repetitions = max(len(case.times) for case in self.cases.values())

	def get(self, stage, what, who, size):
		return self.cases.get((stage, what, who, size))

	def values(self, index, **fixed):
		"""The different values of one part of the names, in order of registration, where other parts are given."""
		places = {"stage": 0, "what": 1, "who": 2}
		found = []
		for key in self.cases:
			if all(key[places[part]] == value for part, value in fixed.items()) and key[index] not in found:
				found.append(key[index])
		return found

	def ratio(self, peer, own):
		"""How many times as long the peer takes, or None."""
		return peer.median() / own.median() if peer and own else None

	def fill_baseline(self, size):
		"""The faster of the loops that move the fill's traffic."""
		cases = [self.get("fill", "baseline", who, size) for who in ("same_traffic_16", "same_traffic_32")]
		return min((case for case in cases if case), key=Case.median, default=None)

	def fill_over_traffic(self, size):
		"""The fill over whichever of these loops it is slower beside, timed in turns with it, or None."""
		cases = [self.get("fill", "pairs", who, size) for who in ("same_traffic_16", "same_traffic_32")]
		return max((statistics.median(case.counters["ratio"]) for case in cases if case), default=None)


	def whole_ahead(self, shape, pages, peer, size):
		"""How many times as long as the library a peer takes for whole sorts, where there are pairs timed in turns, or None."""
		own = f"vexmoor_pages_of_{pages}"
		pairs = self.get("whole_pairs", f"{shape}_{own}", peer, size)
		if pairs:
			return statistics.median(pairs.counters["ratio"])
		what = f"billboards_u32_{shape}"
		return self.ratio(self.get("whole", what, peer, size), self.get("whole", what, own, size))


def size_name(size):
	if size >= 1000000 and size % 1000000 == 0:
		return f"{size // 1000000}M"
	if size >= 1000 and size % 1000 == 0:
		return f"{size // 1000}k"
	return str(size)


def number(value):
	if value >= 100:
		return f"{value:.0f}"
	return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def table(lines, head, rows):
	lines.append("| " + " | ".join(head) + " |")
	lines.append("|" + "---|" * len(head))
	for row in rows:
		lines.append("| " + " | ".join(row) + " |")
	lines.append("")


def ahead(value, goal):
	"""A cell of a goal that asks for at least so much."""
	if value is None:
		return ""
	if goal is None:
		return number(value)
	return f"{number(value)} of {goal:g}, {'reached' if value >= goal else '**not reached**'}"


def within(value, goal):
	"""A cell of a goal that asks for at most so much."""
	if value is None:
		return ""
	if goal is None:
		return number(value)
	return f"{value:.3f} of {goal:g}, {'reached' if value <= goal else '**not reached**'}"


def run_command(command):
	try:
		return subprocess.run(command, capture_output=True, text=True, check=False).stdout
	except OSError:
		return ""


def read_file(path):
	try:
		with open(path, encoding="utf-8") as file:
			return file.read().strip()
	except OSError:
		return ""


def machine(results, lines):
	cpu = dict(
		(part.strip() for part in line.split(":", 1)) for line in run_command(["lscpu"]).splitlines() if ":" in line
	)
	flags = cpu.get("Flags", "").split()
	wide = [name for flag, name in (("avx2", "AVX2"), ("avx512f", "AVX-512")) if flag in flags]
	memory = next((line.split()[1] for line in read_file("/proc/meminfo").splitlines() if "MemTotal" in line), "0")
	context = results.context
	name = f"{cpu.get('Vendor ID', '')} {cpu.get('Model name', '')}".strip()
	family = f"family {cpu.get('CPU family', '?')}, model {cpu.get('Model', '?')}"
	virtual = f", virtual ({cpu['Hypervisor vendor']})" if "Hypervisor vendor" in cpu else ""
	lines.append("## Machine and versions\n")
	rows = [
		["Processor", f"{name} ({family}), {context['num_cpus']} cores{virtual}, with {' and '.join(wide) or 'SSE only'}"],
		["Caches", ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KiB" for c in context["caches"])],
		["Memory", f"{int(memory) / 1048576:.0f} GiB, transparent huge pages: "
			f"{read_file('/sys/kernel/mm/transparent_hugepage/enabled')}"],
		["Kernel", os.uname().release],
		["Compiler", f"{context['compiler']}, flags {context['flags'].strip()}"],
		["vqsort", f"held to AVX2 it uses {context['vqsort_avx2_target']}, "
			f"at its best {context['vqsort_best_target']}"],
		["Load at the start", ", ".join(f"{load:.2f}" for load in context["load_avg"])],
		["Run", f"{context['date']}, {results.repetitions} repetitions of {len(results.cases)} cases, shuffled"],
	]
	versions = run_command(["dpkg-query", "-W", "-f", "${Package} ${Version}\\n", *PACKAGES])
	rows.append(["Packages", ", ".join(sorted(line for line in versions.splitlines() if " " in line))])
	table(lines, ["", ""], rows)


def goal_tables(results, lines):
	lines.append("## Goals\n")
	lines.append(
		"Ratios of medians of this run: the number measured, the goal, and whether it is reached. Where several inputs "
		"are measured, each has its row. Whole sorts of 1k and 10k, the fill, two cores and the profiler's handler are medians "
		"of ratios: there both sides took turns within one case, for machines drift by as much as some of them differ.\n"
	)
	head = ["", "input"] + [size_name(size) for size in GOAL_SIZES]
	rows = []
	limits = []  # rows of the goals that are not reached

	def limit_row(title, what, stage, peer, keys, values, goals):
		"""What the peer's time is over both floors, where a goal is not reached."""
		cells = []
		for value, goal, size in zip(values, goals, GOAL_SIZES):
			floors = floor_times(results, stage, keys, size)
			if value is None or goal is None or value >= goal or floors is None:
				cells.append("")
			else:
				time = results.get(*peer, size).median()
				cells.append(f"{number(value)} of {goal:g}; " + ", ".join(number(time / floor) for floor in floors))
		if any(cells):
			limits.append([title, what] + cells)

	def row(title, what, cell, values, goals):
		cells = [cell(value, goal) if goal is not None else "" for value, goal in zip(values, goals)]
		rows.append([title, what] + cells)

	fill = [results.fill_over_traffic(size) for size in GOAL_SIZES]
	row("fill: time over the same traffic", "positions, stride 12", within, fill, FILL_GOALS)
	for index, goals in EXPAND_GOALS:
		what = f"{index}_width_6"
		values = [
			results.ratio(
				results.get("expand", what, "vexmoor_at_0", size), results.get("expand", what, "same_traffic", size)
			)
			for size in GOAL_SIZES
		]
		row("expansion, 6-wide: time over the same traffic", index, within, values, goals)
	for who, title, goals in SORT_GOALS:
		for keys in RECORD_KEYS:
			values = [
				results.ratio(results.get("sort", keys, who, size), results.get("sort", keys, "vexmoor", size))
				for size in GOAL_SIZES
			]
			row(f"sort: ahead of {title} by", keys, ahead, values, goals)
			limit_row(f"sort: ahead of {title} by", keys, "sort", ("sort", keys, who), keys, values, goals)
	for who, title, goals in WHOLE_GOALS:
		for shape in SHAPES:
			for pages in ("1k", "64k"):
				what = f"billboards_u32_{shape}"
				values = [results.whole_ahead(shape, pages, who, size) for size in GOAL_SIZES]
				where = f"{shape}, pages of {pages}"
				row(f"whole sort: ahead of {title} by", where, ahead, values, goals)
				limit_row(f"whole sort: ahead of {title} by", where, "whole", ("whole", what, who), shape, values, goals)
	for what, who, title, cell, goals in (
		("triangles_u32_ball", "same_traffic", "sort of triangles: time over the same traffic", within, TRIANGLES_GOALS),
		("tubes_u32_ball", "user", "sort of tubes: ahead of what a user writes by", ahead, TUBES_GOALS),
	):
		peers = [results.get("whole", what, who, size) for size in GOAL_SIZES]
		own = [results.get("whole", what, "vexmoor", size) for size in GOAL_SIZES]
		pairs = zip(own, peers) if cell is within else zip(peers, own)
		row(title, "ball", cell, [results.ratio(slower, faster) for slower, faster in pairs], goals)
	table(lines, head, rows)

	rows = []
	for keys in RECORD_KEYS:
		rows.append([f"up to 109 records: ahead of std::sort by, {keys}"] + [
			ahead(
				results.ratio(results.get("sort", keys, "std_sort", size), results.get("sort", keys, "vexmoor", size)),
				goal,
			)
			for size, goal in SMALL_GOALS.items()
		])
	table(lines, ["records"] + [str(size) for size in SMALL_GOALS], rows)

	rows = []
	for keys in RECORD_KEYS:
		few, many = (results.get("sort", keys, "vexmoor", size) for size in (109, 110))
		if few and many:
			lead = results.ratio(results.get("sort", keys, "std_sort", 110), many)
			rows.append([f"no cliff at 109/110: still ahead of std::sort at 110 by, {keys}", ahead(lead, CLIFF_GOAL)])
			rows.append([f"time of a record at 110 over 109, {keys}", number(many.per_item() / few.per_item())])
	for lanes in ("4_lanes", "8_lanes", "16_lanes"):
		even = results.get("sort_counts", "neighbours", lanes, 256)
		if even:
			ratio, count, steps = (statistics.median(even.counters[name])
				for name in ("worst_ratio", "worst_count", "uneven_steps"))
			rows.append([f"even growth from 2 to 256 records, {lanes.replace('_', ' ')}: most between neighbouring counts",
				f"{within(ratio, EVEN_GOAL)} (at {count:.0f}; {steps:.0f} beyond the goal)"])
	one = results.get("draw_calls", "frame", "vexmoor_one_thread", 500)
	if one:
		allocations = max(one.counters["allocations"])
		rows.append(["many draw calls: allocations in a frame",
			f"{allocations:.0f} of 0, {'reached' if allocations == 0 else '**not reached**'}"])
	turns = results.get("draw_calls", "pairs", "vexmoor_two_threads", 500)
	if turns:
		rows.append(["many draw calls: two cores ahead of one by",
			ahead(1 / statistics.median(turns.counters["ratio"]), TWO_CORES_GOAL)])
	handler = results.get("diagnostics", "profiler_handler", "pairs", 10000)
	if handler:
		rows.append(["assertions off, 10k: with a profiler handler over without",
			within(statistics.median(handler.counters["ratio"]), HANDLER_GOAL)])
	table(lines, ["", ""], rows)

	if limits:
		lines.append("### Where a goal is not reached\n")
		lines.append(
			"The number measured, the goal; then how far behind the peer would be if the sort did nothing but its nine stores a "
			"record and clear and sum its counters, and if it did nothing but read and write what it has to where it has to, "
			"knowing every destination beforehand (scatter_and_positions). Both are below, under parts of the radix sort. Whole "
			"sorts add the loops that move the same traffic as the fill and the expansion. Where one of the two is below the "
			"goal, this machine forbids it to a radix sort of these sweeps.\n"
		)
		table(lines, head, limits)

	lines.append("### Beyond the goals\n")
	sizes = [110, 256, 1000, 10000, 100000, 1000000]
	rows = []
	for keys in RECORD_KEYS:
		for title, scatter in (
			("sort over the sum of its fastest known parts", "scatter"),
			("the same, with parts that store their positions as well", "scatter_and_positions"),
		):
			ratios = [over_parts(results, keys, scatter, size) for size in sizes]
			rows.append([f"{title}, {keys}"]
				+ [within(ratio, PARTS_GOAL if size >= 1000 else None) for ratio, size in zip(ratios, sizes)])
	for keys in RECORD_KEYS:
		rows.append([f"sort: ahead of vqsort at its best by, {keys}"] + [
			ahead(
				results.ratio(
					results.get("sort", keys, "vqsort_best", size), results.get("sort", keys, "vexmoor", size)
				),
				1,
			)
			for size in sizes
		])
	table(lines, [""] + [size_name(size) for size in sizes], rows)
	rows = []
	for shape in SHAPES:
		case = results.get("whole", f"billboards_u32_{shape}", "vexmoor_pages_of_1k", 1000)
		if case:
			reached = "reached" if case.median() < THOUSAND_GOAL_NS else "**not reached**"
			rows.append([f"whole sort of 1,000 particles, {shape}",
				f"{case.median() / 1000:.2f} of {THOUSAND_GOAL_NS / 1000:g} microseconds, {reached}"])
	table(lines, ["", ""], rows)


def sum_of_parts(results, keys, parts, size):
	"""Nanoseconds of so many records, or None."""
	cases = [results.get("sort_parts", keys, part, size) for part in parts]
	return sum(case.per_item() for case in cases) * size if all(cases) else None


def over_parts(results, keys, scatter, size):
	"""The sort over the sum of its parts, or None."""
	sort = results.get("sort", keys, "vexmoor", size)
	parts = sum_of_parts(results, keys, ("clear_and_sum", "count", scatter), size)
	return sort.median() / parts if sort and parts else None


def floor_times(results, stage, keys, size):
	"""What a sort cannot do without: its stores alone, and all that it reads and writes. Nanoseconds, or None."""
	times = [sum_of_parts(results, keys, parts, size)
		for parts in (("clear_and_sum", "stores"), ("clear_and_sum", "count", "scatter_and_positions"))]
	if stage == "whole":
		loops = [results.fill_baseline(size), results.get("expand", "u32_width_6", "same_traffic", size)]
		if not all(loops):
			return None
		times = [time and time + sum(loop.median() for loop in loops) for time in times]
	return times if all(times) else None


def plot(path, title, series, y_label, reference):
	"""series: label -> list of (size, ratio)."""
	figure, axes = plt.subplots(figsize=(9, 4.5))
	axes.axhline(1, color="0.4", linewidth=1.2, linestyle="--")
	for order, (label, points) in enumerate(series.items()):
		if points:
			axes.plot(
				[size for size, _ in points], [ratio for _, ratio in points], marker="o", markersize=3, label=label,
				linestyle="-" if order < 10 else ":",  # there are ten colours
			)
	sizes = sorted({size for points in series.values() for size, _ in points})
	ratios = [ratio for points in series.values() for _, ratio in points]
	axes.set_xscale("log")
	axes.set_yscale("log")
	axes.set_ylim(max(0.1, min(ratios) / 1.3), min(50, max(ratios) * 1.3))  # beyond it the table has the number
	axes.xaxis.set_major_locator(matplotlib.ticker.FixedLocator(sizes))
	axes.xaxis.set_minor_locator(matplotlib.ticker.NullLocator())
	# Neighbours such as 109 and 110 share a label.
	labels = {size: size_name(size) for size in sizes}
	for few, many in zip(sizes, sizes[1:]):
		if many < few * 1.1:
			labels[few], labels[many] = "", f"{size_name(few)}/{size_name(many)}"
	axes.xaxis.set_major_formatter(matplotlib.ticker.FuncFormatter(lambda value, _: labels[round(value)]))
	axes.tick_params(axis="x", labelsize=7, rotation=45)
	axes.yaxis.set_major_locator(matplotlib.ticker.LogLocator(subs=(1, 2, 5)))
	axes.yaxis.set_minor_locator(matplotlib.ticker.NullLocator())
	axes.yaxis.set_major_formatter(matplotlib.ticker.FuncFormatter(lambda value, _: f"{value:g}"))
	axes.set_xlabel("count")
	axes.set_ylabel(y_label)
	axes.set_title(f"{title}\n{reference}", fontsize=10)
	axes.grid(True, alpha=0.25)
	axes.legend(fontsize=7, loc="center left", bbox_to_anchor=(1.0, 0.5))
	figure.tight_layout()
	figure.savefig(path, metadata={"Date": None})
	plt.close(figure)


class Page:
	"""The Markdown page and its plots."""

	def __init__(self, path):
		self.path = path
		self.lines = []
		self.plots = os.path.splitext(path)[0]
		os.makedirs(self.plots, exist_ok=True)

	def plot(self, name, title, series, y_label, reference):
		if not any(series.values()):
			return
		plot(os.path.join(self.plots, f"{name}.svg"), title, series, y_label, reference)
		self.lines.append(f"![{title}]({os.path.basename(self.plots)}/{name}.svg)\n")

	def write(self):
		with open(self.path, "w", encoding="utf-8") as file:
			file.write("\n".join(self.lines).rstrip("\n") + "\n")


def peers(results, page, stage, what, own, title, unit, name):
	"""A table of times and ratios of all competitors of one case, and its plot."""
	whos = results.values(2, stage=stage, what=what)
	sizes = sorted(set(results.values(3, stage=stage, what=what)))
	if own not in whos:
		return
	rows = []
	series = {}
	for who in whos:
		cells = []
		points = []
		for size in sizes:
			case = results.get(stage, what, who, size)
			ratio = results.ratio(case, results.get(stage, what, own, size))
			if case is None:
				cells.append("")
				continue
			text = f"{number(case.per_item())} ±{100 * case.spread():.0f} %"
			if ratio is not None and not who.startswith("vexmoor"):
				text += f", ×{number(ratio)}" if ratio >= 1 else f", **×{number(ratio)}**"
				points.append((size, ratio))
			cells.append(text)
		rows.append([who] + cells)
		if not who.startswith("vexmoor"):
			series[who] = points
	page.lines.append(f"### {title}\n")
	table(page.lines, [unit] + [size_name(size) for size in sizes], rows)
	page.plot(name, title, series, "times as long", f"how many times as long as {own}: above 1 it is slower")


def sort_section(results, page):
	page.lines.append("## Sort stage\n")
	page.lines.append(
		"Records in, records in key order out. Nanoseconds per record: the median, half the range between the quartiles, and "
		"how many times as long as this library; bold where the peer is faster. counting_16bit gives an approximate order. "
		"Small sorts rotate different inputs. vexmoor_4_lanes is this library where registers have four lanes.\n"
	)
	for keys in results.values(1, stage="sort"):
		peers(results, page, "sort", keys, "vexmoor", f"Sort of {keys} keys", "ns per record", f"sort_{keys}")


def fill_section(results, page):
	sizes = sorted(set(results.values(3, stage="fill")))
	if not sizes:
		return
	page.lines.append("## Fill\n")
	page.lines.append(
		"Nanoseconds per particle, and in brackets the ratio to the faster of two loops that read 12 and write 8 bytes per "
		"particle and do nothing else (same_traffic_16, same_traffic_32: by width), then to a copy that reads and writes as "
		"many bytes together. Layouts other than positions at a stride of 12 move other amounts of memory; their ratios only "
		"place them on the same scale. Items of compaction are all particles of a page, disabled ones too. Packed positions are "
		"filled 16 at a time where the processor can; 8_lanes and 4_lanes are held to less. The last row is the median over "
		"pairs of the fill and the loop, which took turns in the same memory.\n"
	)
	rows = []
	series = {}
	for what in results.values(1, stage="fill"):
		if what == "pairs":
			continue
		for who in results.values(2, stage="fill", what=what):
			cells = []
			label = who if what == "baseline" else what + who.removeprefix("vexmoor")
			for size in sizes:
				case = results.get("fill", what, who, size)
				if case is None:
					cells.append("")
					continue
				text = f"{number(case.per_item())} ±{100 * case.spread():.0f} %"
				traffic = results.ratio(case, results.fill_baseline(size))
				copy = results.ratio(case, results.get("fill", "baseline", "copy", size))
				if what != "baseline" and traffic is not None and copy is not None:
					text += f" ({traffic:.2f}, {copy:.2f})"
					series.setdefault(label, []).append((size, traffic))
				cells.append(text)
			rows.append([label] + cells)
	rows.append(["positions_12_aligned over the faster loop, in turns"]
		+ [number(ratio) if ratio else "" for ratio in (results.fill_over_traffic(size) for size in sizes)])
	table(page.lines, ["ns per particle"] + [size_name(size) for size in sizes], rows)
	page.plot("fill", "Fill", series, "times as long", "over a loop with the traffic of packed positions")


def expand_section(results, page):
	if not results.values(1, stage="expand"):
		return
	page.lines.append("## Expansion\n")
	page.lines.append(
		"Nanoseconds per record, and in brackets the ratio to a loop that streams as many bytes and reads 8 per record "
		"(same_traffic), then to one that only streams (stream_fill). vexmoor_at_8 writes to an address of 8 modulo 16, and "
		"so on. Widths 5 and 24 have no path of their own, and neither has the 16-bit width 12.\n"
	)
	series = {}
	for what in results.values(1, stage="expand"):
		sizes = sorted(set(results.values(3, stage="expand", what=what)))
		rows = []
		for who in results.values(2, stage="expand", what=what):
			cells = []
			for size in sizes:
				case = results.get("expand", what, who, size)
				if case is None:
					cells.append("")
					continue
				text = f"{number(case.per_item())} ±{100 * case.spread():.0f} %"
				traffic = results.ratio(case, results.get("expand", what, "same_traffic", size))
				stream = results.ratio(case, results.get("expand", what, "stream_fill", size))
				if who.startswith("vexmoor") and traffic is not None and stream is not None:
					text += f" ({traffic:.2f}, {stream:.2f})"
					if who == "vexmoor_at_0":
						series.setdefault(what, []).append((size, traffic))
				cells.append(text)
			rows.append([who] + cells)
		page.lines.append(f"### {what}\n")
		table(page.lines, ["ns per record"] + [size_name(size) for size in sizes], rows)
	page.plot("expand", "Expansion, aligned", series, "times as long", "over a loop with the same traffic")


def whole_section(results, page):
	if not results.values(1, stage="whole"):
		return
	page.lines.append("## Whole sorts\n")
	page.lines.append(
		"From positions to the index buffer. Nanoseconds per particle as above, ratios to this library; bold where the peer "
		"is faster. user is what is written without a library: distances beside numbers, std::sort, a loop. Names of sorts "
		"stand for the same two loops around that sort. 16-bit indices reach 15,360 quads: more are drawn in several calls, "
		"each sorted by itself. counting_16bit gives an approximate order. The goals of 1k and 10k are judged by cases of "
		"their own, in turns with the peer.\n"
	)
	for what in results.values(1, stage="whole"):
		whos = results.values(2, stage="whole", what=what)
		own = "vexmoor_pages_of_1k" if "vexmoor_pages_of_1k" in whos else "vexmoor"
		peers(results, page, "whole", what, own, f"Whole sort, {what}", "ns per particle", f"whole_{what}")
	rows = []
	sizes = sorted(set(results.values(3, stage="whole")))
	for what in results.values(1, stage="whole"):
		for who in results.values(2, stage="whole", what=what):
			if not who.startswith("vexmoor") and who != "user":
				continue
			cases = [results.get("whole", what, who, size) for size in sizes]
			rows.append([f"{what}, {who}"] + [f"{number(100 * case.median() / FRAME_NS)} %" if case else "" for case in cases])
	page.lines.append("### Share of a frame at 60 Hz\n")
	table(page.lines, [""] + [size_name(size) for size in sizes], rows)


def draw_call_section(results, page):
	whos = results.values(2, stage="draw_calls", what="frame")
	if not whos:
		return
	page.lines.append("## Many draw calls\n")
	page.lines.append(
		"A frame of 500 sorters of 50 to 5,000 particles each, evenly spread on a logarithmic scale; two threads are two of "
		"oneTBB.\n"
	)
	one = results.get("draw_calls", "frame", "vexmoor_one_thread", 500)
	rows = []
	for who in whos:
		case = results.get("draw_calls", "frame", who, 500)
		ratio = results.ratio(case, one)
		rows.append([who, f"{case.median() / 1e6:.3f} ms ±{100 * case.spread():.1f} %", f"{case.items:.0f}",
			f"{number(100 * case.median() / FRAME_NS)} %", f"×{ratio:.2f}" if ratio else ""])
	table(page.lines, ["", "per frame", "particles", "of 60 Hz", "as long as on one thread"], rows)
	turns = results.get("draw_calls", "pairs", "vexmoor_two_threads", 500)
	if turns:
		leads = [1 / ratio for ratio in turns.counters["ratio"]]
		page.lines.append(
			f"Timed in turns, in the same memory and with no other case between, two threads are {statistics.median(leads):.2f} "
			f"times as fast as one: the median over pairs of 32 frames each, from {min(leads):.2f} to {max(leads):.2f} in the "
			"repetitions.\n"
		)


def pair_cells(case, ratio_digits, time_digits):
	"""Of a case whose sides took turns: the ratio, its range over the repetitions, and microseconds of the plain side."""
	ratios = case.counters["ratio"]
	return [f"{statistics.median(ratios):.{ratio_digits}f}",
		f"{min(ratios):.{ratio_digits}f} to {max(ratios):.{ratio_digits}f}",
		f"{statistics.median(case.counters['plain_ns']) / 1000:.{time_digits}f}"]


def small_pages_section(results, page):
	whats = results.values(1, stage="small_pages")
	if not whats:
		return
	page.lines.append("## Small pages\n")
	page.lines.append(
		"Time of a whole sort over that of the same particles in pages of 1,000: the median over pairs that ran in turns, and "
		"the least and the most of the repetitions. Strides of 16 warn once per page.\n"
	)
	rows = []
	for what in whats:
		for who in results.values(2, stage="small_pages", what=what):
			for size in sorted(set(key[3] for key in results.cases if key[:3] == ("small_pages", what, who))):
				case = results.get("small_pages", what, who, size)
				rows.append([what, who, size_name(size)] + pair_cells(case, 2, 1))
	table(page.lines, ["", "", "pages", "ratio", "range", "microseconds in pages of 1,000"], rows)


def diagnostics_section(results, page):
	whats = results.values(1, stage="diagnostics")
	if not whats:
		return
	page.lines.append("## Diagnostics\n")
	page.lines.append(
		"Time with over time without: the median over pairs that ran in turns, and the least and the most of the "
		"repetitions. The handler notes the time-stamp counter and the scope in a ring. A checked sort is compared with its bare "
		"sort: quads in pages of 1,024, by position; with an enabled byte for each particle, with an index list, or by triangles.\n"
	)
	rows = []
	for what in whats:
		for size in sorted(set(results.values(3, stage="diagnostics", what=what))):
			case = results.get("diagnostics", what, "pairs", size)
			rows.append([what, size_name(size)] + pair_cells(case, 4, 2))
	table(page.lines, ["", "particles", "ratio", "range", "microseconds without"], rows)


def parts_section(results, page):
	sizes = sorted(set(results.values(3, stage="sort_parts")))
	if not sizes:
		return
	page.lines.append("## Parts of the radix sort\n")
	page.lines.append(
		"Nanoseconds per record: counters cleared and summed, the counting sweep, three scatters that know every destination "
		"beforehand; these, storing the next position of a digit with every record, as scatters do that know nothing "
		"beforehand; and the nine stores of a record alone, in the first cache.\n"
	)
	for keys in RECORD_KEYS:
		rows = []
		for part in results.values(2, stage="sort_parts", what=keys):
			cases = [results.get("sort_parts", keys, part, size) for size in sizes]
			rows.append([part] + [number(case.per_item()) if case else "" for case in cases])
		for scatter in ("scatter", "scatter_and_positions"):
			ratios = [over_parts(results, keys, scatter, size) for size in sizes]
			rows.append([f"sort over clear_and_sum, count and {scatter}"]
				+ [number(ratio) if ratio is not None else "" for ratio in ratios])
		table(page.lines, [f"ns per record, {keys}"] + [size_name(size) for size in sizes], rows)


def main():
	arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
	arguments.add_argument("json", help="what vexmoor_benchmarks wrote")
	arguments.add_argument("page", help="the Markdown page to write; plots go into a folder of its name")
	arguments.add_argument("--tried", help="a Markdown file that is added at the end: what was tried and lost")
	arguments.add_argument("--quick", action="store_true", help="say that the numbers are from a short run")
	options = arguments.parse_args()

	with open(options.json, encoding="utf-8") as file:
		results = Results(json.load(file))
	page = Page(options.page)
	page.lines.append("# Performance\n")
	page.lines.append(
		"Written by `./Tools/bench.sh`, which measures this library and its peers in one process, in shuffled order. Times "
		"are medians, ratios are ratios of medians; every result was checked before its time was taken. "
		"`Benchmarks/README.md` says what is compared and how.\n"
	)
	if options.quick:
		page.lines.append("**A short run, to see that everything works: these numbers say nothing.**\n")
	if results.errors:
		page.lines.append("**Cases without a time, because their check failed:**\n")
		page.lines.extend(f"- `{name}`: {message}" for name, message in results.errors)
		page.lines.append("")
	machine(results, page.lines)
	goal_tables(results, page.lines)
	sort_section(results, page)
	parts_section(results, page)
	fill_section(results, page)
	expand_section(results, page)
	whole_section(results, page)
	small_pages_section(results, page)
	draw_call_section(results, page)
	diagnostics_section(results, page)
	if options.tried and os.path.exists(options.tried):
		page.lines.append(read_file(options.tried))
	page.write()
	if results.errors:
		sys.exit(f"report.py: {len(results.errors)} cases failed their check; {options.page} names them")


if __name__ == "__main__":
	main()
