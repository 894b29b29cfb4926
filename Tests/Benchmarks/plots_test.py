#!/usr/bin/env python3
"""Draws every kind of plot, and looks for what has to be on it. Skipped (77) where matplotlib is not installed.

plots_test.py FOLDER_OF_BENCHMARKS
"""

import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, sys.argv.pop(1))
try:
	import plots
except ModuleNotFoundError as missing:
	print(f"plots_test.py: {missing}")
	sys.exit(77)


def draw(plot, *arguments):
	with tempfile.TemporaryDirectory() as folder:
		path = pathlib.Path(folder, "plot.svg")
		plot(path, *arguments)
		return path.read_text(encoding="utf-8")


class PlotsTest(unittest.TestCase):
	def test_whole_sorts_name_both_sides_of_every_processor(self):
		points = ([(100, 7.0), (1000, 6.0)], [(100, 28.0), (1000, 40.0)])
		svg = draw(plots.whole_sorts, {"one": points, "two": points})
		for text in ("Vexmoor, one", "std::sort and loops, two", ">1k<", ">100<", "nanoseconds a particle"):
			self.assertIn(text, svg)

	def test_scenes_have_a_row_each_and_a_mark_for_each_count(self):
		svg = draw(plots.scenes, "on this one", {"by value": {100: 0.5, 1000: 2.0}, "by position": {1000: 7.0}})
		for text in ("by value", "by position", ">1k<", "on this one"):
			self.assertIn(text, svg)

	def test_ratios_name_their_peers(self):
		svg = draw(plots.ratios, "Sort", {"std_sort": [(8, 2.0), (1000, 9.0)], "none": []}, "above 1 it is slower")
		self.assertIn("std_sort", svg)
		self.assertIn("above 1 it is slower", svg)

	def test_the_same_data_gives_the_same_bytes(self):
		arguments = ("Sort", {"std_sort": [(8, 2.0), (1000, 9.0)]}, "")
		self.assertEqual(draw(plots.ratios, *arguments), draw(plots.ratios, *arguments))

	def test_neighbouring_counts_share_a_label(self):
		self.assertEqual(plots.tick_labels([8, 109, 110]), {8: "8", 109: "", 110: "109/110"})


if __name__ == "__main__":
	unittest.main()
