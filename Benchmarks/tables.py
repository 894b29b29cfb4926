"""Markdown tables of results: those for a user first, then those of each stage."""

import statistics

from goals import RECORD_KEYS, fill_over_traffic, over_parts, size_name, whole_ratio
from results import JOB_SYSTEMS

FRAME_NS = 1e9 / 60
SCENE_SIZES = [100, 1000, 10000, 100000, 1000000, 4000000]

# How scenes are called in tables, by what their names end in. They come in the order of their registration.
SCENE_TITLES = {
	"": "pages of 1,000",
	"stride_16": "at a stride of 16",
	"disabled_1": "1 % disabled",
	"disabled_30": "30 % disabled",
	"disabled_50": "50 % disabled",
	"disabled_99": "99 % disabled",
	"list": "through an index list",
	"pages_1_to_300": "pages of 1 to 300",
	"pages_1_to_300_disabled_30": "pages of 1 to 300, 30 % disabled",
	"pages_1_to_300_disabled_30_frame": "500 such draw calls of 100 to 2,000",
	"pages_of_1": "pages of 1",
	"pages_of_1_stride_16": "pages of 1 at a stride of 16",
	"camera_inside": "camera inside the particles",
	"emitter_50_m_away": "3 m wide, 50 m away",
	"plume": "a plume, in order of emission",
	"ages": "ages in runs of 64",
	"per_page": "one for each page",
	"all_equal": "all equal",
	"nearly_sorted": "nearly sorted",
}
# Whom a loop is called by -> what the library takes the output for.
MEMORY_TITLES = {"user": "write-combined", "user_ordinary_memory": "ordinary"}
SWEPT_TITLES = {
	"nothing": "nothing, draw call after draw call",
	"data": "the first- and second-level cache",
	"code": "the first-level cache of code, and the branch predictors",
	"all_caches": "all caches, of code and data",
}


def scene_title(what):
	"""As in "by position, 30 % disabled"."""
	by, _, kind = what.partition("_")
	by = {"positions": "by position", "values": "by value"}.get(by, by)
	return f"{by}, {SCENE_TITLES.get(kind, kind.replace('_', ' '))}"


def number(value):
	if value >= 100:
		return f"{value:.0f}"
	return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def duration(ns):
	"""As in "5.2 µs"."""
	for unit, length in (("ms", 1e6), ("µs", 1e3)):
		if ns >= length:
			return f"{number(ns / length)} {unit}"
	return f"{number(ns)} ns"


def table(head, rows):
	"""The lines of a Markdown table, and an empty one."""
	return [
		"| " + " | ".join(head) + " |", "|" + "---|" * len(head), *("| " + " | ".join(row) + " |" for row in rows), "",
	]


def times(ratio):
	"""How many times as long a peer takes, in bold if it is faster than the library."""
	return f"×{number(ratio)}" if ratio >= 1 else f"**×{number(ratio)}**"


def sides(case):
	"""Nanoseconds of a call of the library and of the other side, where they took turns."""
	return case.counter("plain_ns"), case.counter("plain_ns") * case.counter("ratio")


def draw_call_table(of_processors):
	"""By count, for each processor what the library takes and what the loop does. of_processors: name -> results."""
	head = ["particles"]
	for processor in of_processors:
		head += [f"{processor}: Vexmoor", "std::sort and loops", ""]
	rows = []
	for size in SCENE_SIZES:
		row = [size_name(size)]
		for results in of_processors.values():
			case = results.get("scenes", "positions", "user", size)
			row += [*map(duration, sides(case)), times(case.counter("ratio"))] if case else ["", "", ""]
		if any(row[1:]):
			rows.append(row)
	return table(head, rows)


def scene_points(results, what, who="user"):
	"""(count, case) of a scene. A frame's draw calls have some 1,000 particles each."""
	for size in results.values(3, stage="scenes", what=what, who=who):
		yield 1000 if what.endswith("_frame") else size, results.get("scenes", what, who, size)


def scene_ratios(results, what):
	"""Count -> how many times as long the loop takes."""
	return {size: case.counter("ratio") for size, case in scene_points(results, what)}


def scene_table(results):
	"""Nanoseconds a particle, and how many times as long the loop takes."""
	rows = []
	for what in results.values(1, stage="scenes"):
		for who in results.values(2, stage="scenes", what=what):
			cases = dict(scene_points(results, what, who))
			cells = []
			for size in SCENE_SIZES:
				case = cases.get(size)
				cells.append(
					f"{number(case.counter('plain_ns') / case.items)}, {times(case.counter('ratio'))}" if case else "")
			rows.append([scene_title(what) + (", ordinary memory" if who == "user_ordinary_memory" else "")] + cells)
	return table(["ns a particle", *map(size_name, SCENE_SIZES)], rows) if rows else []


def cold_table(results):
	"""The time of a small draw call, and how many times as long the loop takes."""
	rows = []
	sizes = results.values(3, stage="cold")
	for what in results.values(1, stage="cold"):
		by, _, swept = what.partition("_swept_")
		for who in results.values(2, stage="cold", what=what):
			cases = [results.get("cold", what, who, size) for size in sizes]
			rows.append([
				{"positions": "by position", "values": "by value"}.get(by, by), SWEPT_TITLES.get(swept, swept),
				MEMORY_TITLES.get(who, who),
			] + [f"{duration(case.counter('plain_ns'))}, {times(case.counter('ratio'))}" if case else ""
				for case in cases])
	return table(["", "emptied before each", "output taken for", *map(size_name, sizes)], rows) if rows else []


def jobs_table(results):
	"""One draw call on one core, and how far two cores are ahead; beside them a loop that moves as many bytes."""
	rows = []
	for what in results.values(1, stage="jobs"):
		for size in sorted(results.values(3, stage="jobs", what=what)):
			ahead = results.two_cores(what, size)
			cases = [results.get("jobs", what, who, size) for who in ahead]
			if cases:
				title = "as many bytes moved" if what == "traffic" else what
				cells = [times(ahead[who]) if who in ahead else "" for who in JOB_SYSTEMS]
				rows.append([title, size_name(size), duration(cases[0].counter("plain_ns")), *cells])
	heads = [f"times as long as on two, {system}" for system in JOB_SYSTEMS.values()]
	return table(["", "particles", "one core", *heads], rows) if rows else []


def one_job_table(results):
	"""How many times as long as one job the sort without jobs takes, both on one core."""
	sizes = results.values(3, stage="one_job")
	rows = []
	for what in results.values(1, stage="one_job"):
		ratios = [results.turns("one_job", what, "without_jobs", size) for size in sizes]
		rows.append([what.replace("_", " "), *(times(1 / ratio) if ratio else "" for ratio in ratios)])
	return table(["", *map(size_name, sizes)], rows) if rows else []


def jobs_peer_table(results):
	"""Packaged parallel sorts with the same loops around them, on the same two cores."""
	rows = []
	for what in results.values(1, stage="jobs"):
		for who in results.values(2, stage="jobs", what=what):
			if who not in JOB_SYSTEMS:
				for size in results.values(3, stage="jobs", what=what, who=who):
					rows.append([who, what, size_name(size), times(results.turns("jobs", what, who, size))])
	return table(["", "", "particles", "takes as long as the library"], rows) if rows else []


def jobs_model_table(results):
	"""How many times as long one core takes as several: a model, made of jobs that were timed one after the other."""
	sizes = sorted(results.values(3, stage="job_times", what="ball"))
	measured = {size: results.get("jobs", "ball", "tbb", size) for size in sizes}
	if not sizes or not all(measured.values()):
		return []
	least = sizes[0]
	of_two = results.get("job_times", "ball", "2_jobs", least)
	join_ns = measured[least].counter("plain_ns") * max(measured[least].counter("ratio") - of_two.counter("ratio"), 0)
	who = results.values(2, stage="job_times", what="ball")
	rows = []
	for size, one_core in measured.items():
		one_core_ns = one_core.counter("plain_ns")
		cases = [results.get("job_times", "ball", each, size) for each in who]
		row = [times(1 / (case.counter("ratio") + join_ns / one_core_ns)) if case else "" for case in cases]
		moved = results.get("jobs", "traffic", "tbb", size)
		bound = times(one_core_ns / (moved.counter("plain_ns") * moved.counter("ratio"))) if moved else ""
		rows.append(["ball", size_name(size), *row, bound])
	return table(["", "particles", *(each.replace("_", " ") for each in who), "bound by memory"], rows)


MOST_NAMED = 4  # counts at which somebody else is ahead; more are summed up


def slower_at(ratios_by_size):
	"""As in "at 100 (×0.30), 1k (×0.34)": the counts at which a ratio is below 1; empty without any."""
	slower = [(size, ratio) for size, ratio in ratios_by_size if ratio is not None and ratio < 1]
	if not slower:
		return ""
	if len(slower) > MOST_NAMED:
		sizes, ratios = zip(*slower)
		return (f"at {len(slower)} counts from {size_name(min(sizes))} to {size_name(max(sizes))} "
			f"(×{number(min(ratios))} at the least)")
	return "at " + ", ".join(f"{size_name(size)} (×{number(ratio)})" for size, ratio in slower)


def ratio_to(results, own, stage, what, who, size):
	"""How many times as long as a kind of the library a peer takes: in turns where they took turns."""
	if stage == "whole":
		return whole_ratio(results, what, who, own, size)
	return results.ratio(stage, what, who, own, size)


def losses(results):
	"""List items that say where others are ahead: the loop in draw calls, then peers."""
	lines = []
	def told(who):
		return ", although the output is known to be ordinary memory" if who == "user_ordinary_memory" else ""

	for what in results.values(1, stage="scenes"):
		for who in results.values(2, stage="scenes", what=what):
			slower = slower_at((size, case.counter("ratio")) for size, case in scene_points(results, what, who))
			if slower:
				lines.append(f"- The loop, {scene_title(what)}{told(who)}: {slower}.")
	for what in results.values(1, stage="cold"):
		by, _, swept = what.partition("_swept_")
		for who in results.values(2, stage="cold", what=what):
			slower = slower_at((size, results.turns("cold", what, who, size))
				for size in results.values(3, stage="cold", what=what, who=who))
			if slower:
				emptied = SWEPT_TITLES.get(swept, swept)
				lines.append(f"- The loop, by {by[:-1]}, with empty caches ({emptied}){told(who)}: {slower}.")
	for stage, title, owns in (("whole", "Whole sorts", ("vexmoor_pages_of_1k", "vexmoor")),
			("sort", "Sorts of records alone", ("vexmoor",))):
		for what in results.values(1, stage=stage):
			whos = results.values(2, stage=stage, what=what)
			own = next((who for who in owns if who in whos), None)
			counts = results.values(3, stage=stage, what=what)
			slower = {who: slower_at((size, ratio_to(results, own, stage, what, who, size)) for size in counts)
				for who in whos if own and not who.startswith("vexmoor")}
			named = [f"{who} {counts}" for who, counts in slower.items() if counts]
			if named:
				lines.append(f"- {title}, {what.replace('_', ' ')}: {'; '.join(named)}.")
	return lines


def peer_table(results, stage, what, own, unit):
	"""Times and ratios of all competitors of one case; and for a plot, competitor -> (count, ratio)."""
	whos = results.values(2, stage=stage, what=what)
	counts = sorted(results.values(3, stage=stage, what=what))
	rows, series = [], {}
	for who in whos:
		cells = []
		for size in counts:
			case = results.get(stage, what, who, size)
			ratio = results.ratio(stage, what, who, own, size)
			cells.append(f"{number(case.per_item())} ±{100 * case.spread:.0f} %" if case else "")
			if case and ratio is not None and not who.startswith("vexmoor"):
				cells[-1] += f", {times(ratio)}"
				series.setdefault(who, []).append((size, ratio))
		rows.append([who] + cells)
	return table([unit, *map(size_name, counts)], rows), series


def fill_baseline(results, size):
	"""The faster of the loops that move the fill's traffic, or None."""
	whos = [who for who in ("same_traffic_16", "same_traffic_32") if results.get("fill", "baseline", who, size)]
	return min(whos, key=lambda who: results.get("fill", "baseline", who, size).ns, default=None)


def fill_table(results):
	"""The table, and for a plot, layout -> (count, ratio to the loop with its traffic)."""
	counts = sorted(results.values(3, stage="fill"))
	rows, series = [], {}
	for what in results.values(1, stage="fill"):
		if what == "pairs":
			continue
		for who in results.values(2, stage="fill", what=what):
			label = who if what == "baseline" else what + who.removeprefix("vexmoor")
			cells = []
			for size in counts:
				case = results.get("fill", what, who, size)
				peers = (fill_baseline(results, size), "copy")
				loop, copy = (results.get("fill", "baseline", peer, size) for peer in peers)
				cells.append(f"{number(case.per_item())} ±{100 * case.spread:.0f} %" if case else "")
				if case and loop and copy and what != "baseline":
					cells[-1] += f" ({case.ns / loop.ns:.2f}, {case.ns / copy.ns:.2f})"
					series.setdefault(label, []).append((size, case.ns / loop.ns))
			rows.append([label] + cells)
	in_turns = [fill_over_traffic(results, size) for size in counts]
	rows.append(["positions_12_aligned over the slower loop, in turns"]
		+ [number(ratio) if ratio else "" for ratio in in_turns])
	return table(["ns a particle", *map(size_name, counts)], rows), series


def expand_tables(results):
	"""Width -> table, and for a plot, width -> (count, ratio to the loop with its traffic) where outputs are
	aligned."""
	tables, series = {}, {}
	for what in results.values(1, stage="expand"):
		counts = sorted(results.values(3, stage="expand", what=what))
		rows = []
		for who in results.values(2, stage="expand", what=what):
			cells = []
			for size in counts:
				case = results.get("expand", what, who, size)
				cells.append(f"{number(case.per_item())} ±{100 * case.spread:.0f} %" if case else "")
				loop, stream = (results.get("expand", what, peer, size) for peer in ("same_traffic", "stream_fill"))
				if case and loop and stream and who.startswith("vexmoor"):
					cells[-1] += f" ({case.ns / loop.ns:.2f}, {case.ns / stream.ns:.2f})"
					if who == "vexmoor_at_0":
						series.setdefault(what, []).append((size, case.ns / loop.ns))
			rows.append([who] + cells)
		tables[what] = table(["ns a record", *map(size_name, counts)], rows)
	return tables, series


def parts_tables(results):
	counts = sorted(results.values(3, stage="sort_parts"))
	lines = []
	for keys in RECORD_KEYS:
		rows = []
		for part in results.values(2, stage="sort_parts", what=keys):
			cases = [results.get("sort_parts", keys, part, size) for size in counts]
			rows.append([part] + [number(case.per_item()) if case else "" for case in cases])
		for scatter in ("scatter", "scatter_and_positions"):
			over = [over_parts(results, keys, scatter, size) for size in counts]
			cells = [number(ratio) if ratio else "" for ratio in over]
			rows.append([f"sort over clear_and_sum, count and {scatter}"] + cells)
		lines += table([f"ns a record, {keys}", *map(size_name, counts)], rows)
	return lines


def frame_share_table(results):
	counts = sorted(results.values(3, stage="whole"))
	rows = []
	for what in results.values(1, stage="whole"):
		for who in results.values(2, stage="whole", what=what):
			if who.startswith("vexmoor") or who == "user":
				cases = [results.get("whole", what, who, size) for size in counts]
				shares = [f"{number(100 * case.ns / FRAME_NS)} %" if case else "" for case in cases]
				rows.append([f"{what}, {who}"] + shares)
	return table(["of a frame at 60 Hz", *map(size_name, counts)], rows)


def thread_table(results):
	rows = []
	for who in results.values(2, stage="draw_calls", what="frame"):
		case = results.get("draw_calls", "frame", who, 500)
		rows.append([who, f"{duration(case.ns)} ±{100 * case.spread:.1f} %", str(case.items)])
	return table(["", "a frame", "particles"], rows)


def pair_table(results, stage, heads, title):
	"""Of cases whose sides took turns: the ratio, its range over the repetitions, and the plain side's time."""
	rows = []
	for what in results.values(1, stage=stage):
		for who in results.values(2, stage=stage, what=what):
			for size in sorted(results.values(3, stage=stage, what=what, who=who)):
				case = results.get(stage, what, who, size)
				least, median, most = case.counters["ratio"]
				rows.append([title(what, who), size_name(size), f"{median:.3f}", f"{least:.3f} to {most:.3f}",
					duration(case.counter("plain_ns"))])
	return table(heads, rows)


def machine_table(machine):
	virtual = f", virtual ({machine['virtual']})" if machine["virtual"] else ""
	return table(["", ""], [
		["Processor", f"{machine['model_name']} ({machine['vendor']}, family {machine['family']}, model "
			f"{machine['model']}), {machine['cores']} cores{virtual}, with {machine['registers']}"],
		["Caches", machine["caches"]],
		["Memory, kernel", f"{machine['memory']}, {machine['kernel']}"],
		["Compiler", machine["compiler"]],
		["vqsort uses", machine["vqsort"]],
		["Packages", machine["packages"]],
		["Run", f"{machine['date']}, medians of {machine['repetitions']} repetitions, beside other work to a load of "
			f"{machine['load']} at the most"],
	])


WEB_SORTS = {
	"simd": "the package, with SIMD",
	"two_threads": "the package, on two threads",
	"no_simd": "the package, without SIMD",
	"native": "the library, native",
	"counting_js": "counting sort in JavaScript",
	"counting_c": "counting sort in C",
	"packed": "packed keys",
	"comparator": "comparing function",
}


def web_table(web):
	"""What Web/bench/bench.mjs has measured on a processor."""
	machine, cases = web["machine"], web["cases"]
	rows = []
	is_measured = all("two_threads" in case for case in cases.values()) # not on a single core
	for name, title in WEB_SORTS.items():
		if name == "two_threads" and not is_measured:
			continue
		cells = [duration(case[name]["ns"]) + ("" if name == "simd" else f", {times(case[name]['ratio'])}")
			for case in cases.values()]
		rows.append([title, *cells])
	turns = ", ".join(str(case["turns"]) for case in cases.values())
	return [*table(["", *(size_name(int(size)) for size in cases)], rows),
		f"node {machine['node']} (V8 {machine['v8']}), {machine['compilers']}, {machine['cores']} cores, "
		f"{machine['memory']} of memory, {machine['date']}, beside other work. "
		f"Medians of {turns} turns; of 3 for the last two rows.\n",
		*(web_two_threads(cases) if is_measured else [])]


def web_two_threads(cases):
	"""How many times as long as the package on two threads the others take on one."""
	rows = [[WEB_SORTS[name], *(times(case[name]["ratio_to_two_threads"]) for case in cases.values())]
		for name in ("simd", "native", "counting_js", "counting_c")]
	return [
		"Two threads are two cores against one. Their row has the time that passes, where the others have processor "
		"time. Fewer than 32,768 points stay on one thread. Beside two threads, the others take, each on one:\n",
		*table(["", *(size_name(int(size)) for size in cases)], rows),
	]


def two_threads_lead(results):
	"""How many times as fast two threads are as one: the least, the median and the most, or None."""
	case = results.get("draw_calls", "pairs", "vexmoor_two_threads", 500)
	return sorted(1 / ratio for ratio in case.counters["ratio"]) if case else None


def middle_spread(results):
	"""Half the range between the quartiles as a share of the median: of the middle case, or None."""
	spreads = [case.spread for case in results.cases.values() if case.spread is not None]
	return statistics.median(spreads) if spreads else None
