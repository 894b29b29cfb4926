#!/usr/bin/env python3
"""Gives the benchmarks' programs bad arguments: each says what is wrong in one sentence, and ends with 2.

arguments_test.py FOLDER_OF_BENCHMARKS
"""

import pathlib
import subprocess
import sys
import unittest

BENCHMARKS = pathlib.Path(sys.argv.pop(1))
SCRIPT = BENCHMARKS.parent / "Tools" / "bench.sh"


class ArgumentsTest(unittest.TestCase):
	def expect_sentence(self, words, *command):
		answer = subprocess.run(command, capture_output=True, text=True, check=False)
		self.assertEqual((answer.returncode, len(answer.stderr.splitlines()), answer.stdout), (2, 1, ""), answer.stderr)
		self.assertIn(words, answer.stderr)

	def test_the_script(self):
		self.expect_sentence('there is no option "--all"', SCRIPT, "--all")
		self.expect_sentence("--filter takes a regular expression", SCRIPT, "--filter")
		self.expect_sentence("--lock takes the name of a file", SCRIPT, "--lock")
		self.expect_sentence("--repetitions takes a number", SCRIPT, "--repetitions", "many")
		self.expect_sentence("exclude each other", SCRIPT, "--quick", "--pages")

	def test_what_the_script_calls(self):
		for program in ("measure.py", "goals.py"):
			sentence = f"{program}: the following arguments are required"
			self.expect_sentence(sentence, sys.executable, BENCHMARKS / program)
		sentence = "unrecognized arguments: --all"
		self.expect_sentence(sentence, sys.executable, BENCHMARKS / "goals.py", "results.json", "--all")


if __name__ == "__main__":
	unittest.main()
