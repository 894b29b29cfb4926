#!/usr/bin/env python3
"""Runs measure.py on a made-up benchmark program: what it runs together, what it keeps, and how it fails.

measure_test.py FOLDER_OF_BENCHMARKS
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

BENCHMARKS = sys.argv.pop(1)
sys.path.insert(0, BENCHMARKS)
import measure
import results

# Answers as vexmoor_benchmarks does. A case named "broken" fails its check, and one named "ends" ends the program.
PROGRAM = """\
#!/usr/bin/env python3
import json, re, sys
options = dict(option[2:].partition("=")[::2] for option in sys.argv[1:])
names = [name for name in {names!r} if re.search(options["benchmark_filter"], name)]
if "benchmark_list_tests" in options:
	print("\\n".join(names))
	sys.exit(0)
if any("ends" in name for name in names):
	sys.exit("it ended")
context = dict(num_cpus=2, caches=[], compiler="g++", flags="-O3", vqsort_best_target="AVX2", vqsort_avx2_target="AVX2",
	date="2026-01-02T03:04:05", load_avg=[0.5, 2.25, 1.0])
runs = [dict(run_name=name, run_type="iteration", family_index=i, real_time=10.0 * (i + 1), cpu_time=10.0, calls=1,
items=5)
	for i, name in enumerate(names)]
for run in runs:
	if "broken" in run["run_name"]:
		run.update(error_occurred=True, error_message="not sorted")
json.dump(dict(context=context, benchmarks=runs), open(options["benchmark_out"], "w"))
"""


class ChunksTest(unittest.TestCase):
	def test_few_cases_run_together(self):
		names = ["a/x/who/1", "b/x/who/1"]
		self.assertEqual(measure.chunks(names, 2), [names])

	def test_many_cases_run_apart(self):
		names = [f"{stage}/x/who/{i}" for stage in "ab" for i in range(100)]
		self.assertEqual(measure.chunks(names, measure.MOST_RUNS // 150), [names[:100], names[100:]])

	def test_repetitions_count(self):
		names = ["a/x/who/1", "b/x/who/1"]
		self.assertEqual(measure.chunks(names, measure.MOST_RUNS), [names[:1], names[1:]])

	def test_many_particles_count(self):
		names = ["a/x/who/4000000", "b/x/who/4000000"]
		self.assertEqual(measure.chunks(names, measure.MOST_RUNS // 10), [names[:1], names[1:]])

	def test_competitors_run_together_however_many_there_are(self):
		names = [f"a/x/who/{i}" for i in range(measure.MOST_RUNS + 1)]
		self.assertEqual(measure.chunks([*names, "a/y/who/1"], 1), [names, ["a/y/who/1"]])

	def test_every_name_runs_once(self):
		names = [f"{stage}/{what}/who/{i}" for i in range(3) for stage in "ab" for what in "xyz"]
		chunks = measure.chunks(names, measure.MOST_RUNS // 4)
		self.assertEqual(sorted(name for chunk in chunks for name in chunk), sorted(names))


class MeasureTest(unittest.TestCase):
	def measure(self, names, *options, out="out.json"):
		with tempfile.TemporaryDirectory() as folder:
			program = pathlib.Path(folder, "program")
			program.write_text(PROGRAM.format(names=names), encoding="utf-8")
			program.chmod(0o755)
			options = [option.replace("FOLDER", folder) for option in options]
			command = [sys.executable, f"{BENCHMARKS}/measure.py", program, pathlib.Path(folder, out), *options]
			answer = subprocess.run(command,
				capture_output=True, text=True, check=False)
			written = [path for path in pathlib.Path(folder).glob("*.json")]
			return answer, results.load(written[0]) if written else None, [path.name for path in written]

	def test_what_was_measured_is_kept_quietly(self):
		answer, kept, _ = self.measure(["a/x/who/5", "b/x/who/5"])
		self.assertEqual((answer.returncode, answer.stderr), (0, ""))
		self.assertEqual(len(answer.stdout.splitlines()), 1)
		self.assertEqual(sorted(kept.cases), [("a", "x", "who", 5), ("b", "x", "who", 5)])
		self.assertEqual([kept.machine[name] for name in ("repetitions", "date", "load")], [11, "2026-01-02", "2.2"])

	def test_a_filter_runs_no_other_case(self):
		_, kept, _ = self.measure(["a/x/who/5", "a/x/who/50"], "--filter=/50$")
		self.assertEqual(list(kept.cases), [("a", "x", "who", 50)])

	def test_the_processor_names_a_file_in_a_folder(self):
		_, kept, names = self.measure(["a/x/who/5"], out=".")
		self.assertEqual(names, [results.file_name(kept.machine) + ".json"])

	def test_a_filter_that_matches_nothing_is_one_sentence_and_2(self):
		answer, kept, _ = self.measure(["a/x/who/5"], "--filter=nothing")
		self.assertEqual((answer.returncode, kept), (2, None))
		self.assertEqual(answer.stderr, 'measure.py: no benchmark has a name that matches "nothing"\n')

	def test_a_failed_check_is_named_and_the_rest_kept(self):
		answer, kept, _ = self.measure(["a/x/who/5", "a/broken/who/5"])
		self.assertEqual(answer.returncode, 1)
		self.assertIn("1 benchmarks failed their check: a/broken/who/5: not sorted", answer.stderr)
		self.assertEqual(list(kept.cases), [("a", "x", "who", 5)])

	def test_a_program_that_ends_is_one_sentence_and_2(self):
		answer, kept, _ = self.measure(["a/ends/who/5"])
		self.assertEqual(
			(answer.returncode, kept, answer.stderr), (2, None, "measure.py: program ended with 1: it ended\n"))

	def test_what_cannot_be_opened_is_one_sentence_and_2(self):
		answer, _, _ = self.measure(["a/x/who/5"], out="missing/out.json")
		self.assertEqual((answer.returncode, len(answer.stderr.splitlines())), (2, 1), answer.stderr)
		answer, _, _ = self.measure(["a/x/who/5"], "--lock=FOLDER/missing/lock")
		self.assertEqual((answer.returncode, len(answer.stderr.splitlines())), (2, 1), answer.stderr)
		command = [sys.executable, f"{BENCHMARKS}/measure.py", "/no/program", "out.json"]
		answer = subprocess.run(command, capture_output=True,
			text=True, check=False)
		self.assertEqual((answer.returncode, len(answer.stderr.splitlines())), (2, 1), answer.stderr)

	def test_a_lock_is_given_back(self):
		answer, _, _ = self.measure(["a/x/who/5", "b/x/who/5"], "--lock=FOLDER/lock")
		self.assertEqual((answer.returncode, answer.stderr), (0, ""))


if __name__ == "__main__":
	unittest.main()
