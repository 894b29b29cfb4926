#!/usr/bin/env python3
"""Tests that results.py keeps what the benchmarks measured.

results_test.py FOLDER_OF_BENCHMARKS
"""

import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, sys.argv.pop(1))
import results
from example import example


def run(name, family_index, real_time, **more):
	return {"run_name": name, "run_type": "iteration", "family_index": family_index, "real_time": real_time,
		"cpu_time": real_time / 4, "calls": 2.0, "items": 100.0, **more}


class SumUpTest(unittest.TestCase):
	def test_the_median_of_the_repetitions_is_per_call(self):
		name = "sort/ball/vexmoor/100/manual_time"
		cases, errors = results.sum_up([run(name, 0, 40.0), run(name, 0, 20.0), run(name, 0, 60.0)])
		case = cases[("sort", "ball", "vexmoor", 100)]
		self.assertEqual((case.ns, case.items, case.per_item(), errors), (20.0, 100, 0.2, {}))

	def test_time_is_the_processor_s_unless_a_clock_is_named(self):
		for suffix, time in (("", 10.0), ("/manual_time", 40.0), ("/real_time", 40.0)):
			self.assertEqual(results.time_of(run(f"a/x/y/1{suffix}", 0, 40.0)), time)

	def test_the_spread_of_many_is_half_the_range_of_quartiles(self):
		self.assertAlmostEqual(results.spread_of([90, 95, 100, 105, 110]), 0.075)

	def test_turns_keep_least_median_and_most_and_no_time(self):
		name = "scenes/positions/user/100/iterations:1"
		runs = [run(name, 0, 1.0, ratio=ratio, plain_ns=700.0) for ratio in (3.0, 5.0, 4.0)]
		case = results.sum_up(runs)[0][("scenes", "positions", "user", 100)]
		self.assertIsNone(case.ns)
		self.assertEqual(case.counters, {"ratio": [3.0, 4.0, 5.0], "plain_ns": [700.0] * 3})

	def test_cases_come_in_the_order_of_registration(self):
		cases, _ = results.sum_up([run("b/x/y/1", 1, 1.0), run("a/x/y/1", 0, 1.0)])
		self.assertEqual([key[0] for key in cases], ["a", "b"])

	def test_aggregates_are_left_out(self):
		self.assertEqual(results.sum_up([{**run("a/x/y/1", 0, 1.0), "run_type": "aggregate"}]), ({}, {}))

	def test_a_failed_check_is_an_error_and_no_case(self):
		cases, errors = results.sum_up([run("a/x/y/1", 0, 1.0, error_occurred=True, error_message="not sorted")])
		self.assertEqual((cases, errors), ({}, {"a/x/y/1": "not sorted"}))


class FileTest(unittest.TestCase):
	def test_what_is_saved_is_loaded(self):
		saved = example()
		with tempfile.TemporaryDirectory() as folder:
			path = pathlib.Path(folder, "example.json")
			results.save(saved, path)
			loaded = results.load(path)
			results.save(loaded, pathlib.Path(folder, "again.json"))
			self.assertEqual(path.read_text(), pathlib.Path(folder, "again.json").read_text())
		self.assertEqual(loaded.machine, saved.machine)
		self.assertEqual(list(loaded.cases), list(saved.cases))
		for key, case in saved.cases.items():
			self.assertEqual(vars(loaded.cases[key]), vars(case))

	def test_numbers_are_kept_to_four_digits(self):
		self.assertEqual(results.rounded(1234.567), 1235.0)

	def test_a_competitor_has_a_line(self):
		with tempfile.TemporaryDirectory() as folder:
			path = pathlib.Path(folder, "example.json")
			results.save(example(), path)
			lines = [line for line in path.read_text().splitlines() if line.startswith('"sort/uniform/vexmoor"')]
		self.assertEqual(len(lines), 1)
		self.assertIn('"1000": {"ns": 4000.0', lines[0])


class NameTest(unittest.TestCase):
	def test_a_processor_names_its_file(self):
		self.assertEqual(results.file_name(example().machine), "intel-6-99")
		self.assertEqual(results.file_name({"vendor": "AuthenticAMD", "family": "25", "model": "17"}), "amd-25-17")
		self.assertEqual(results.file_name({"vendor": "ARM", "family": "0", "model": "1"}), "arm-0-1")

	def test_a_processor_is_called_by_family_and_model(self):
		self.assertEqual(results.processor_name(example().machine), "Example Processor, family 6, model 99")


class LookUpTest(unittest.TestCase):
	def test_a_ratio_says_how_many_times_as_long_the_peer_takes(self):
		self.assertEqual(example().ratio("sort", "uniform", "std_sort", "vexmoor", 1000), 4.0)

	def test_a_ratio_of_a_missing_case_is_none(self):
		self.assertIsNone(example().ratio("sort", "uniform", "pdqsort", "vexmoor", 1000))
		self.assertIsNone(example().turns("scenes", "values", "user", 1000))

	def test_turns_give_their_median(self):
		self.assertEqual(example().turns("scenes", "positions", "user", 1000), 7.0)

	def test_values_are_different_and_in_order(self):
		self.assertEqual(example().values(2, stage="sort", what="uniform"), ["vexmoor", "std_sort", "vqsort_best"])
		self.assertEqual(example().values(3, stage="scenes", what="positions"), [100, 1000])


if __name__ == "__main__":
	unittest.main()
