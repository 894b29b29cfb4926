#!/usr/bin/env python3
"""Tests that the tables of the pages have the numbers that they are made of.

tables_test.py FOLDER_OF_BENCHMARKS
"""

import sys
import unittest

sys.path.insert(0, sys.argv.pop(1))
import tables
from example import example, in_turns, timed


def rows(lines):
	"""Cells of a Markdown table, its head and what divides it off left out."""
	return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines[2:] if line]


class NumbersTest(unittest.TestCase):
	def test_durations_have_a_unit_that_fits(self):
		self.assertEqual(
			[tables.duration(ns) for ns in (744, 5160, 56000, 1.2e7)], ["744 ns", "5.16 µs", "56.0 µs", "12.0 ms"])

	def test_a_peer_that_is_faster_is_bold(self):
		self.assertEqual((tables.times(2.0), tables.times(0.5)), ("×2.00", "**×0.50**"))

	def test_scenes_have_titles(self):
		self.assertEqual(tables.scene_title("positions"), "by position, pages of 1,000")
		self.assertEqual(tables.scene_title("values_disabled_99"), "by value, 99 % disabled")
		self.assertEqual(tables.scene_title("values_from_elsewhere"), "by value, from elsewhere")


class TablesTest(unittest.TestCase):
	def setUp(self):
		self.results = example()

	def test_a_draw_call_takes_so_long_by_either_side(self):
		lines = rows(tables.draw_call_table({"Example": self.results}))
		self.assertEqual(lines, [["100", "700 ns", "2.80 µs", "×4.00"], ["1k", "6.00 µs", "42.0 µs", "×7.00"]])

	def test_processors_stand_side_by_side(self):
		lines = rows(tables.draw_call_table({"one": self.results, "two": self.results}))
		self.assertEqual([len(line) for line in lines], [7, 7])

	def test_two_cores_have_a_column_for_each_job_system(self):
		lines = rows(tables.jobs_table(self.results))
		self.assertEqual(lines, [
			["ball", "100k", "600 µs", "×1.25", "×2.00"], ["curve", "100k", "600 µs", "×1.25", ""]])

	def test_one_job_has_a_column_for_each_count(self):
		lines = rows(tables.one_job_table(self.results))
		self.assertEqual(lines, [["ball", "×1.25", "**×0.80**"], ["camera inside", "", "×2.00"]])

	def test_a_scene_is_a_row_of_times_a_particle(self):
		lines = {line[0]: line[1:] for line in rows(tables.scene_table(self.results))}
		self.assertEqual(lines["by position, pages of 1,000"], ["7.00, ×4.00", "6.00, ×7.00", "", "", "", ""])
		self.assertEqual(lines["by value, 99 % disabled"][1], "1.50, **×0.50**")
		self.assertEqual(lines["by value, 500 such draw calls of 100 to 2,000"], ["", "6.00, ×5.00", "", "", "", ""])

	def test_small_draw_calls_say_what_was_swept(self):
		self.assertEqual(rows(tables.cold_table(self.results)), [
			["by position", "all caches, of code and data", "write-combined", "3.50 µs, ×1.40"],
			["by position", "all caches, of code and data", "ordinary", "3.40 µs, ×1.45"],
		])

	def test_a_scene_in_ordinary_memory_has_a_row_of_its_own(self):
		self.results.cases[("scenes", "positions", "user_ordinary_memory", 100)] = in_turns(0.8, 350.0, 100)
		lines = {line[0]: line[1:] for line in rows(tables.scene_table(self.results))}
		self.assertEqual(lines["by position, pages of 1,000"][0], "7.00, ×4.00")
		self.assertEqual(lines["by position, pages of 1,000, ordinary memory"], ["3.50, **×0.80**", "", "", "", "", ""])
		self.assertIn("- The loop, by position, pages of 1,000, although the output is known to be ordinary memory: "
			"at 100 (×0.80).", tables.losses(self.results))

	def test_losses_are_named_with_their_counts(self):
		lines = tables.losses(self.results)
		self.assertEqual(lines, [
			"- The loop, by value, 99 % disabled: at 1k (×0.50).",
			"- Sorts of records alone, uniform: vqsort_best at 1k (×0.75).",
		])

	def test_whole_sorts_that_took_turns_are_losses_by_their_turns(self):
		for who, ns in (("vexmoor_pages_of_1k", 1000.0), ("vqsort_best", 1100.0)):
			self.results.cases[("whole", "billboards_u32_ball", who, 1000)] = timed(ns, 1000)
		self.assertNotIn("Whole sorts", "\n".join(tables.losses(self.results)))
		pair = ("whole_pairs", "ball_vexmoor_pages_of_1k", "vqsort_best", 1000)
		self.results.cases[pair] = in_turns(0.9, 1000.0, 1000)
		self.assertIn("- Whole sorts, billboards u32 ball: vqsort_best at 1k (×0.90).", tables.losses(self.results))

	def test_many_losses_are_summed_up(self):
		self.assertEqual(tables.slower_at([(8, 0.9), (16, 1.0), (32, 0.999)]), "at 8 (×0.90), 32 (×1.00)")
		self.assertEqual(tables.slower_at([(size, 8 / size) for size in (8, 16, 32, 64, 128, 1000)]),
			"at 5 counts from 16 to 1k (×0.01 at the least)")
		self.assertEqual(tables.slower_at([(8, 2.0), (16, None)]), "")

	def test_a_cold_loss_is_one(self):
		self.results.cases[("cold", "positions_swept_all_caches", "user", 100)].counters["ratio"] = [0.8, 0.9, 1.0]
		self.results.cases[("cold", "positions_swept_all_caches", "user_ordinary_memory", 100)].counters["ratio"] = [
			0.6, 0.7, 0.8]
		losses = "\n".join(tables.losses(self.results))
		self.assertIn("by position, with empty caches (all caches, of code and data): at 100 (×0.90).", losses)
		self.assertIn("caches, of code and data), although the output is known to be ordinary memory: at 100 (×0.70).",
			losses)

	def test_a_peer_has_a_ratio_and_the_library_none(self):
		lines, series = tables.peer_table(self.results, "sort", "uniform", "vexmoor", "ns a record")
		self.assertEqual(rows(lines)[:2], [
			["vexmoor", "1.25 ±1 %", "4.00 ±1 %"],
			["std_sort", "3.75 ±1 %, ×3.00", "16.0 ±1 %, ×4.00"],
		])
		self.assertEqual(series, {"std_sort": [(8, 3.0), (1000, 4.0)], "vqsort_best": [(1000, 0.75)]})

	def test_expansion_has_its_ratios_to_both_loops(self):
		of_widths, series = tables.expand_tables(self.results)
		self.assertEqual(rows(of_widths["u32_width_6"])[0], ["vexmoor_at_0", "2.00 ±1 % (1.02, 2.00)"])
		self.assertEqual(list(series), ["u32_width_6"])

	def test_a_fill_is_over_the_faster_loop(self):
		for who, ns in (("same_traffic_16", 500.0), ("same_traffic_32", 400.0), ("copy", 200.0)):
			self.results.cases[("fill", "baseline", who, 1000)] = timed(ns, 1000)
		self.results.cases[("fill", "positions_12_aligned", "vexmoor", 1000)] = timed(440.0, 1000)
		lines, series = tables.fill_table(self.results)
		self.assertIn(["positions_12_aligned", "0.44 ±1 % (1.10, 2.20)"], rows(lines))
		self.assertEqual(series, {"positions_12_aligned": [(1000, 1.1)]})

	def test_two_threads_lead_by_so_much(self):
		self.assertEqual([round(lead, 2) for lead in tables.two_threads_lead(self.results)], [1.82, 2.0, 2.22])

	def test_every_table_is_empty_without_cases(self):
		self.results.cases.clear()
		self.assertEqual(
			(tables.scene_table(self.results), tables.cold_table(self.results), tables.losses(self.results)),
			([], [], []))
		self.assertIsNone(tables.middle_spread(self.results))


if __name__ == "__main__":
	unittest.main()
