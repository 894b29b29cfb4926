#!/usr/bin/env python3
"""Tests what goals.py says of results, and its exit code.

goals_test.py FOLDER_OF_BENCHMARKS
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

BENCHMARKS = sys.argv.pop(1)
sys.path.insert(0, BENCHMARKS)
import goals
import results
from example import example, in_turns, timed


def find(found, title, size):
	(goal,) = [goal for goal in found if goal.title == title and goal.size == size]
	return goal


class GoalsTest(unittest.TestCase):
	def setUp(self):
		self.found = goals.goals(example())

	def test_only_what_was_measured_has_goals(self):
		self.assertEqual({goal.what for goal in self.found if goal.title.startswith("sort")}, {"uniform"})

	def test_a_lead_below_its_goal_is_missed(self):
		goal = find(self.found, "sort, ahead of std::sort", 1000)
		self.assertEqual((goal.value, goal.goal, goal.bound, goal.kept), (4.0, 5, goals.AT_LEAST, False))

	def test_a_lead_that_is_its_goal_is_kept(self):
		self.assertTrue(goals.Goal("lead", "", 1, goals.AT_LEAST, 5, 5.0).kept)
		self.assertTrue(goals.Goal("time", "", 1, goals.AT_MOST, 1.05, 1.05).kept)

	def test_a_time_beyond_its_goal_is_missed(self):
		goal = find(self.found, "expansion, over the same traffic", 1000)
		self.assertTrue(goal.kept)
		slow = example()
		slow.cases[("expand", "u32_width_6", "vexmoor_at_0", 1000)] = timed(2100.0, 1000)
		self.assertFalse(find(goals.goals(slow), "expansion, over the same traffic", 1000).kept)

	def test_a_scene_in_which_the_loop_is_faster_is_missed(self):
		missed = [goal.what for goal in self.found if goal.title == "scene, ahead of the loop" and not goal.kept]
		self.assertEqual(missed, ["values_disabled_99"])

	def test_a_small_draw_call_is_held_to_more_than_the_loop(self):
		self.assertFalse(find(self.found, "small draw call, ahead of the loop", 100).kept)

	def test_two_threads_are_over_one(self):
		self.assertEqual(find(self.found, "draw calls, ahead of one thread", 500).value, 2.0)

	def test_two_cores_are_those_of_the_faster_job_system(self):
		title = "one draw call on two cores, ahead of one"
		of_cores = [(goal.what, goal.value, goal.kept) for goal in self.found if goal.title == title]
		self.assertEqual(of_cores, [("ball, a thread pool", 2.0, True), ("curve, oneTBB", 1.25, False)])

	def test_one_job_is_held_to_less_than_the_sort_without(self):
		of_jobs = [(goal.what, goal.size, goal.kept) for goal in self.found if goal.title.startswith("one job")]
		self.assertEqual(
			of_jobs, [("ball", 10000, True), ("ball", 100000, False), ("camera inside", 100000, True)])

	def test_small_pages_are_held_to_large_ones(self):
		small = example()
		for what, ratio in (("positions_stride_12", 2.6), ("positions_stride_16", 2.9), ("something_else", 9.0)):
			small.cases[("small_pages", what, "pages_of_1", 10000)] = in_turns(ratio, 1.0, 10000)
		of_pages = [(goal.what, goal.kept) for goal in goals.goals(small) if goal.title.startswith("pages of one")]
		self.assertEqual(of_pages, [("positions_stride_12", False), ("positions_stride_16", True)])

	def test_whole_sorts_go_by_turns_where_there_are_some(self):
		with_turns = example()
		with_turns.cases[("whole", "billboards_u32_ball", "vexmoor_pages_of_1k", 1000)] = timed(5000.0, 1000)
		with_turns.cases[("whole", "billboards_u32_ball", "user", 1000)] = timed(40000.0, 1000)
		self.assertEqual(goals.whole_ahead(with_turns, "ball", "1k", "user", 1000), 8.0)
		with_turns.cases[("whole_pairs", "ball_vexmoor_pages_of_1k", "user", 1000)] = in_turns(7.5, 5000.0, 1000)
		self.assertEqual(goals.whole_ahead(with_turns, "ball", "1k", "user", 1000), 7.5)

	def test_the_fill_is_held_to_the_loop_it_is_slower_beside(self):
		filled = example()
		for who, ratio in (("same_traffic_16", 1.01), ("same_traffic_32", 1.3)):
			filled.cases[("fill", "pairs", who, 100000)] = in_turns(ratio, 1.0, 100000)
		self.assertFalse(find(goals.goals(filled), "fill, over the same traffic", 100000).kept)


class TableTest(unittest.TestCase):
	def test_missed_goals_come_last_and_every_row_names_its_processor(self):
		lines = goals.goal_lines([("Example", goals.goals(example()))])[1:]
		kept = ["kept on Example" in line for line in lines]
		self.assertEqual(kept, sorted(kept, reverse=True))
		self.assertTrue(all(line.endswith(("kept on Example", "MISSED on Example")) for line in lines))

	def test_sizes_are_short(self):
		self.assertEqual([goals.size_name(size) for size in (110, 1000, 4000000, 1500)], ["110", "1k", "4M", "1500"])


class ExitCodeTest(unittest.TestCase):
	def run_goals(self, *texts_or_results):
		with tempfile.TemporaryDirectory() as folder:
			paths = []
			for i, content in enumerate(texts_or_results):
				paths.append(pathlib.Path(folder, f"{i}.json"))
				if isinstance(content, str):
					paths[-1].write_text(content, encoding="utf-8")
				else:
					results.save(content, paths[-1])
			return subprocess.run(
				[sys.executable, f"{BENCHMARKS}/goals.py", *paths], capture_output=True, text=True, check=False)

	def all_kept(self):
		kept = example()
		kept.cases = {key: case for key, case in kept.cases.items() if key[:2] == ("scenes", "positions")}
		return kept

	def test_kept_goals_end_with_0(self):
		answer = self.run_goals(self.all_kept())
		self.assertEqual((answer.returncode, answer.stderr), (0, ""))
		self.assertIn("2 of 2 goals are kept on Example Processor, family 6, model 99", answer.stdout)

	def test_a_missed_goal_ends_with_1(self):
		answer = self.run_goals(example())
		self.assertEqual((answer.returncode, answer.stderr), (1, ""))
		self.assertIn("MISSED on Example Processor", answer.stdout)

	def test_a_missed_goal_of_one_processor_ends_with_1(self):
		other = self.all_kept()
		other.machine["model"] = "100"
		answer = self.run_goals(other, example())
		self.assertEqual(answer.returncode, 1)
		self.assertIn("2 of 2 goals are kept on Example Processor, family 6, model 100", answer.stdout)

	def test_a_file_of_something_else_is_one_sentence_and_2(self):
		for text in ("", "{}", "[]", '{"machine": {}}'):
			answer = self.run_goals(text)
			self.assertEqual((answer.returncode, len(answer.stderr.splitlines())), (2, 1), answer.stderr)
			self.assertIn("is no file of results", answer.stderr)


if __name__ == "__main__":
	unittest.main()
