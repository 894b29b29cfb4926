"""SVG plots: the times of whole sorts, the scenes in which the loop is faster, and the ratios of peers by count."""

import matplotlib
import matplotlib.ticker

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "vexmoor"  # the same data gives the same bytes
matplotlib.rcParams["svg.fonttype"] = "none"
import matplotlib.pyplot as plt

from goals import size_name

COLOURS = 10  # of matplotlib's usual cycle


def save(figure, path):
	figure.tight_layout()
	figure.savefig(path, metadata={"Date": None})
	plt.close(figure)


def tick_labels(sizes):
	"""The labels of counts; neighbours such as 109 and 110 share one."""
	labels = {size: size_name(size) for size in sizes}
	for few, many in zip(sizes, sizes[1:]):
		if many < few * 1.1:
			labels[few], labels[many] = "", f"{size_name(few)}/{size_name(many)}"
	return labels


def logarithmic(axis, values=None):
	"""Plain numbers on an axis: at the given values, or at 1, 2 and 5 of every decade."""
	axis.set_major_locator(
		matplotlib.ticker.FixedLocator(values) if values else matplotlib.ticker.LogLocator(subs=(1, 2, 5)))
	axis.set_minor_locator(matplotlib.ticker.NullLocator())
	labels = tick_labels(values) if values else None
	axis.set_major_formatter(
		matplotlib.ticker.FuncFormatter(lambda value, _: labels[round(value)] if labels else f"{value:g}"))


def whole_sorts(path, of_processors):
	"""Nanoseconds a particle by count. of_processors: name -> (library's points, the loop's points), of (count, ns)."""
	figure, axes = plt.subplots(figsize=(8, 4.5))
	axes.set_xscale("log")
	axes.set_yscale("log")
	for order, (processor, (library, loop)) in enumerate(of_processors.items()):
		colour = f"C{order % COLOURS}"
		axes.plot(*zip(*loop), marker="o", markersize=4, linestyle="--", color=colour,
			label=f"std::sort and loops, {processor}")
		axes.plot(*zip(*library), marker="o", markersize=4, color=colour, label=f"Vexmoor, {processor}")
	sizes = sorted({size for sides in of_processors.values() for points in sides for size, _ in points})
	logarithmic(axes.xaxis, sizes)
	logarithmic(axes.yaxis)
	axes.set_ylim(bottom=1)
	axes.set_xlabel("particles in a draw call")
	axes.set_ylabel("nanoseconds a particle")
	axes.set_title("From positions to the index buffer, one core", fontsize=11)
	axes.grid(True, alpha=0.25)
	axes.legend(fontsize=8, loc="upper center", bbox_to_anchor=(0.5, -0.14))
	save(figure, path)


def scenes(path, title, ratios_of_scenes):
	"""How many times as long the loop takes. ratios_of_scenes: a scene's title -> count -> ratio."""
	names = list(ratios_of_scenes)
	sizes = sorted({size for of_scene in ratios_of_scenes.values() for size in of_scene})
	figure, axes = plt.subplots(figsize=(8.5, 1.2 + 0.24 * len(names)))
	axes.set_xscale("log")
	axes.axvline(1, color="0.4", linewidth=1.2, linestyle="--")
	for order, size in enumerate(sizes):
		points = [(of_scene[size], row) for row, of_scene in enumerate(ratios_of_scenes.values()) if size in of_scene]
		axes.plot(*zip(*points), marker="o", markersize=5, linestyle="", color=f"C{order % COLOURS}",
			label=size_name(size))
	logarithmic(axes.xaxis)
	axes.set_yticks(range(len(names)), names, fontsize=8)
	axes.invert_yaxis()
	axes.set_xlabel("how many times as long the loop takes: left of 1 the library is slower", fontsize=9)
	axes.set_title(title, fontsize=10)
	axes.grid(True, alpha=0.25)
	axes.legend(fontsize=8, title="particles", title_fontsize=8, loc="center left", bbox_to_anchor=(1.0, 0.5))
	save(figure, path)


def ratios(path, title, series, reference):
	"""How many times as long peers take, by count. series: label -> list of (count, ratio)."""
	figure, axes = plt.subplots(figsize=(9, 4.5))
	axes.set_xscale("log")
	axes.set_yscale("log")
	axes.axhline(1, color="0.4", linewidth=1.2, linestyle="--")
	for order, (label, points) in enumerate(series.items()):
		if points:
			axes.plot(*zip(*points), marker="o", markersize=3, label=label, linestyle="-" if order < COLOURS else ":")
	found = [ratio for points in series.values() for _, ratio in points]
	axes.set_ylim(max(0.1, min(found) / 1.3), min(50, max(found) * 1.3))  # beyond it the table has the number
	logarithmic(axes.xaxis, sorted({size for points in series.values() for size, _ in points}))
	logarithmic(axes.yaxis)
	axes.tick_params(axis="x", labelsize=7, rotation=45)
	axes.set_xlabel("count")
	axes.set_ylabel("times as long")
	axes.set_title(f"{title}\n{reference}", fontsize=10)
	axes.grid(True, alpha=0.25)
	axes.legend(fontsize=7, loc="center left", bbox_to_anchor=(1.0, 0.5))
	save(figure, path)
