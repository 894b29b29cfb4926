#!/usr/bin/python3
"""The goals of the library, and whether they are kept on the processors that were measured.

Prints one table, in which missed goals come last. The exit code is 1 if a goal is missed.
"""

import collections
import sys

import results as measured

SIZES = [1000, 10000, 100000, 1000000, 4000000]
RECORD_KEYS = ["uniform", "ball", "curve"]
SHAPES = ["ball", "curve"]
PARTS_SIZES = [1000, 10000, 100000, 1000000]

# How many times as long the peer takes, by size; None where there is no goal.
SORT_GOALS = [
	("std_sort", "std::sort", [5, 8, 9.5, 9.5, 6]),
	("ogre_radix", "OGRE's RadixSort", [1.3, 2, 3.8, 3.8, 3]),
	("spreadsort", "spreadsort", [2.9, 3.9, 4.6, 4.6, None]),
	("vqsort_avx2", "vqsort held to AVX2", [1.8, 2.3, 2.3, 2.1, None]),
	("vqsort_best", "vqsort at its best", [1.0, 1.1, 1.25, 1.2, None]),
]
WHOLE_GOALS = [
	("user", "the loop", [6, 8, 9, 7, 5]),
	("ogre_way", "the OGRE way", [2, 2.4, 3.5, 2.8, 2.4]),
	("vqsort_best", "vqsort at its best and the same loops", [1.6, 1.6, 1.6, 1.3, None]),
]
FILL_GOALS = [None, None, 1.2, 1.2, 1.2]
EXPAND_GOALS = {"u32": 1.05, "u16": 1.1}
SMALL_GOALS = {8: 2, 16: 2, 32: 3, 64: 3, 109: 2.5, 110: 2.5}  # 110: where the other sort takes over, as far ahead
TRIANGLES_GOALS = {100000: 1.2, 1000000: 1.2}
TUBES_GOALS = {1000: 3, 10000: 3, 100000: 2}
JOBS_SHAPE_GOALS = {
	1000: 0.98, 10000: 0.98, 20000: 0.98, 50000: 0.98, 100000: 1.6, 300000: 1.6, 1000000: 1.85, 4000000: 1.85}
JOBS_GOALS = {
	"ball": JOBS_SHAPE_GOALS,
	"curve": JOBS_SHAPE_GOALS,
	"far_ball": {10000: 0.98, 100000: 1.6, 1000000: 1.85},
	"triangles": {10000: 0.98, 100000: 0.98, 1000000: 1.8},
}
JOBS_PEERS_GOAL, JOBS_PEERS_SIZE = 4, 1000000
ONE_JOB_GOALS = {3000: 0.85, 10000: 0.85, 30000: 0.85, 100000: 0.85, 300000: 0.85, 1000000: 1, 4000000: 0.85}
ONE_JOB_SHAPES = ["ball", "curve", "camera_inside"]
SMALL_PAGES_GOALS = {
	"positions_stride_12": 2.5, "values_stride_4": 2.5, "positions_stride_16": 3, "values_stride_16": 3}
SMALL_PAGES_COUNT = 10000
SCENE_GOAL = 1
COLD_SIZE, COLD_GOAL = 100, 1.5
EVEN_GOAL = 1.25  # a record's time at one count over its time at the next count
TWO_CORES_GOAL = 1.9
HANDLER_GOAL = 1.01
PARTS_GOAL = 1.05
THOUSAND_GOAL_MICROSECONDS = 4

AT_LEAST, AT_MOST = "at least", "at most"


class Goal(collections.namedtuple("Goal", "title what size bound goal value")):
	"""One goal on one processor: its bound is AT_LEAST or AT_MOST, and its value what was measured."""

	@property
	def kept(self):
		return self.value >= self.goal if self.bound == AT_LEAST else self.value <= self.goal


def size_name(size):
	if size >= 1000000 and size % 1000000 == 0:
		return f"{size // 1000000}M"
	if size >= 1000 and size % 1000 == 0:
		return f"{size // 1000}k"
	return str(size)


def fill_over_traffic(results, size):
	"""The fill over whichever of the loops with its traffic it is slower beside, or None."""
	ratios = [results.turns("fill", "pairs", who, size) for who in ("same_traffic_16", "same_traffic_32")]
	return max((ratio for ratio in ratios if ratio), default=None)


def whole_ahead(results, shape, pages, peer, size):
	"""How many times as long as the library a peer takes for whole sorts: timed in turns where they were, or None."""
	return whole_ratio(results, f"billboards_u32_{shape}", peer, f"vexmoor_pages_of_{pages}", size)


def whole_ratio(results, what, peer, own, size):
	"""How many times as long as a kind of the library a peer takes for a whole sort: in turns where they took turns."""
	shape = what.removeprefix("billboards_u32_")
	return results.turns("whole_pairs", f"{shape}_{own}", peer, size) or results.ratio("whole", what, peer, own, size)


def sum_of_parts(results, keys, scatter, size):
	"""Nanoseconds that the parts of a radix sort of size records take, or None."""
	cases = [results.get("sort_parts", keys, part, size) for part in ("clear_and_sum", "count", scatter)]
	return sum(case.per_item() for case in cases) * size if all(cases) else None


def over_parts(results, keys, scatter, size):
	"""The sort over the sum of its parts, or None."""
	sort = results.get("sort", keys, "vexmoor", size)
	parts = sum_of_parts(results, keys, scatter, size)
	return sort.ns / parts if sort and parts else None


def stage_goals(results):
	for size, goal in zip(SIZES, FILL_GOALS):
		yield "fill, over the same traffic", "positions", size, AT_MOST, goal, fill_over_traffic(results, size)
	for index, goal in EXPAND_GOALS.items():
		for size in SIZES:
			ratio = results.ratio("expand", f"{index}_width_6", "vexmoor_at_0", "same_traffic", size)
			yield "expansion, over the same traffic", f"{index}, 6 wide", size, AT_MOST, goal, ratio
	for who, title, goals in SORT_GOALS:
		for keys in RECORD_KEYS:
			for size, goal in zip(SIZES, goals):
				ratio = results.ratio("sort", keys, who, "vexmoor", size)
				yield f"sort, ahead of {title}", keys, size, AT_LEAST, goal, ratio
	for keys in RECORD_KEYS:
		for size, goal in SMALL_GOALS.items():
			ratio = results.ratio("sort", keys, "std_sort", "vexmoor", size)
			yield "sort, ahead of std::sort", keys, size, AT_LEAST, goal, ratio
		for size in PARTS_SIZES:
			yield "sort, over its parts", keys, size, AT_MOST, PARTS_GOAL, over_parts(results, keys, "scatter", size)
	for size in (110, 256):
		for keys in RECORD_KEYS:
			ratio = results.ratio("sort", keys, "vqsort_best", "vexmoor", size)
			yield "sort, ahead of vqsort at its best", keys, size, AT_LEAST, 1, ratio
	for lanes in ("4_lanes", "8_lanes", "16_lanes"):
		even = results.get("sort_counts", "neighbours", lanes, 256)
		worst = even.counter("worst_ratio") if even else None
		yield "sort, most between neighbouring counts", lanes.replace("_", " "), 256, AT_MOST, EVEN_GOAL, worst


def whole_goals(results):
	for who, title, goals in WHOLE_GOALS:
		for shape in SHAPES:
			for pages in ("1k", "64k"):
				for size, goal in zip(SIZES, goals):
					ratio = whole_ahead(results, shape, pages, who, size)
					yield f"whole sort, ahead of {title}", f"{shape}, pages of {pages}", size, AT_LEAST, goal, ratio
	for shape in SHAPES:
		case = results.get("whole", f"billboards_u32_{shape}", "vexmoor_pages_of_1k", 1000)
		yield ("whole sort, microseconds", shape, 1000, AT_MOST, THOUSAND_GOAL_MICROSECONDS,
			case.ns / 1000 if case else None)
	for size, goal in TRIANGLES_GOALS.items():
		ratio = results.ratio("whole", "triangles_u32_ball", "vexmoor", "same_traffic", size)
		yield "triangles, over the same traffic", "ball", size, AT_MOST, goal, ratio
	for size, goal in TUBES_GOALS.items():
		ratio = results.ratio("whole", "tubes_u32_ball", "user", "vexmoor", size)
		yield "tubes, ahead of the loop", "ball", size, AT_LEAST, goal, ratio
	for what in results.values(1, stage="scenes"):
		for size in results.values(3, stage="scenes", what=what):
			ratio = results.turns("scenes", what, "user", size)
			yield "scene, ahead of the loop", what, size, AT_LEAST, SCENE_GOAL, ratio
	for what, goal in SMALL_PAGES_GOALS.items():
		ratio = results.turns("small_pages", what, "pages_of_1", SMALL_PAGES_COUNT)
		yield "pages of one particle, over pages of 1,000", what, SMALL_PAGES_COUNT, AT_MOST, goal, ratio
	# The loop writes ordinary memory, so the library is told that the output is.
	for what in results.values(1, stage="cold"):
		ratio = results.turns("cold", what, "user_ordinary_memory", COLD_SIZE)
		yield "small draw call, ahead of the loop", what, COLD_SIZE, AT_LEAST, COLD_GOAL, ratio


def frame_goals(results):
	frame = results.get("draw_calls", "frame", "vexmoor_one_thread", 500)
	yield ("draw calls, allocations in a frame", "one thread", 500, AT_MOST, 0,
		frame.counters["allocations"][2] if frame else None)
	threads = results.turns("draw_calls", "pairs", "vexmoor_two_threads", 500)
	ahead = 1 / threads if threads else None
	yield "draw calls, ahead of one thread", "two threads", 500, AT_LEAST, TWO_CORES_GOAL, ahead
	for what, jobs_goals in JOBS_GOALS.items():
		for size, goal in jobs_goals.items():
			# A host chooses its job system; the library's part of the cost is in either.
			ahead = results.two_cores(what, size)
			best = max(ahead, key=ahead.get, default=None)
			of = f"{what}, {measured.JOB_SYSTEMS.get(best)}"
			yield "one draw call on two cores, ahead of one", of, size, AT_LEAST, goal, ahead.get(best)
	for shape in ONE_JOB_SHAPES:
		for size, goal in ONE_JOB_GOALS.items():
			ratio = results.turns("one_job", shape, "without_jobs", size)
			yield "one job, over the sort without jobs", shape.replace("_", " "), size, AT_MOST, goal, ratio
	for shape in SHAPES:
		for who in results.values(2, stage="jobs", what=shape):
			if who not in measured.JOB_SYSTEMS:
				ratio = results.turns("jobs", shape, who, JOBS_PEERS_SIZE)
				title = f"one draw call on two cores, ahead of {who}"
				yield title, shape, JOBS_PEERS_SIZE, AT_LEAST, JOBS_PEERS_GOAL, ratio
	handler = results.turns("diagnostics", "profiler_handler", "pairs", 10000)
	yield "profiler handler, over without", "assertions off", 10000, AT_MOST, HANDLER_GOAL, handler


def goals(results):
	"""All goals whose values were measured."""
	found = []
	for part in (stage_goals, whole_goals, frame_goals):
		for title, what, size, bound, goal, value in part(results):
			if goal is not None and value is not None:
				found.append(Goal(title, what, size, bound, goal, value))
	return found


def goal_lines(of_processors):
	"""The table as text, of pairs of a processor's name and its goals: kept ones first."""
	rows = [
		(goal.title, goal.what, size_name(goal.size), f"{goal.value:.3g}", f"{goal.bound} {goal.goal:g}",
			f"{'kept' if goal.kept else 'MISSED'} on {processor}")
		for kept in (True, False)
		for processor, of_processor in of_processors
		for goal in of_processor if goal.kept == kept
	]
	head = ("goal", "of", "count", "measured", "held to", "")
	widths = [max(len(row[column]) for row in [head, *rows]) for column in range(len(head))]
	return ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in [head, *rows]]


def main():
	arguments = measured.ArgumentParser(description=__doc__.splitlines()[0])
	arguments.add_argument("results", nargs="+", help="files of Benchmarks/results")
	options = arguments.parse_args()
	of_processors = [(measured.processor_name(results.machine), goals(results))
		for results in measured.load_all(options.results)]
	print("\n".join(goal_lines(of_processors)))
	print()
	for processor, of_processor in of_processors:
		print(f"{sum(goal.kept for goal in of_processor)} of {len(of_processor)} goals are kept on {processor}")
	sys.exit(0 if all(goal.kept for _, of_processor in of_processors for goal in of_processor) else 1)


if __name__ == "__main__":
	main()
