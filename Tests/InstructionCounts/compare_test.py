#!/usr/bin/env python3
"""Tests what compare.py says of made-up counts.

compare_test.py COMPARE RECORDED
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

COMPARE, RECORDED = sys.argv[1:]
RECORD = "./Tools/instruction_counts.sh --record"


def read_lines():
    return dict(line.split() for line in pathlib.Path(RECORDED).read_text(encoding="utf-8").splitlines())


class CompareTest(unittest.TestCase):
    def setUp(self):
        self.recorded = read_lines()
        self.counted = read_lines()
        self.case = "radix_sort_10k"
        self.count = int(self.recorded[self.case])

    def compare(self):
        with tempfile.TemporaryDirectory() as folder:
            files = []
            for name, lines in (("recorded", self.recorded), ("counted", self.counted)):
                files.append(pathlib.Path(folder, name))
                files[-1].write_text("".join(f"{word} {value}\n" for word, value in lines.items()), encoding="utf-8")
            return subprocess.run([sys.executable, COMPARE, *files], capture_output=True, text=True, check=False)

    def expect_pass(self, *words):
        answer = self.compare()
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        for word in words:
            self.assertIn(word, answer.stdout)

    def expect_failure(self, *words):
        answer = self.compare()
        self.assertEqual(answer.returncode, 1)
        self.assertEqual(len(answer.stderr.splitlines()), 1, answer.stderr)
        for word in words:
            self.assertIn(word, answer.stderr)

    def test_the_same_counts_pass(self):
        self.expect_pass("no case takes over 3 % more")

    def test_a_rise_beyond_the_tolerance_fails_and_says_what_to_do(self):
        risen = self.count * 104 // 100
        self.counted[self.case] = risen
        self.expect_failure(f"{self.case}: {risen} instructions", "4.0 % more", f"the {self.count} recorded", RECORD)

    def test_a_record_too_low_fails(self):
        self.recorded[self.case] = self.count * 9 // 10
        self.expect_failure(f"{self.case}: {self.count} instructions", "11.1 % more")

    def test_a_rise_within_the_tolerance_passes(self):
        self.counted[self.case] = self.count * 103 // 100
        self.expect_pass("no case takes over 3 % more")

    def test_a_fall_passes_with_a_hint(self):
        self.counted[self.case] = self.count * 9 // 10
        self.expect_pass(f"{self.case}: 10.0 % fewer instructions", RECORD)

    def test_another_compiler_is_not_compared(self):
        self.counted["compiler"] = "99.1.0"
        self.counted[self.case] = self.count * 2
        self.expect_pass("not compared", f"g++ {self.recorded['compiler']}", "g++ 99.1.0")

    def test_a_case_not_counted_fails(self):
        del self.counted[self.case]
        self.expect_failure(f"{self.case}: recorded, but not counted")

    def test_a_case_not_recorded_fails(self):
        del self.recorded[self.case]
        self.expect_failure(f"{self.case}: {self.count} instructions, and no count", RECORD)

    def test_wide_lanes_may_be_missing(self):
        del self.counted["small_sort_64_avx2"]
        self.expect_pass("small_sort_64_avx2: not counted, this processor has no AVX2")

    def test_a_line_that_is_no_count_fails(self):
        self.counted[self.case] = "many"
        self.expect_failure("not a case's name and its count: radix_sort_10k many")

    def test_a_count_of_nothing_fails(self):
        self.counted[self.case] = 0
        self.expect_failure("not a case's name and its count: radix_sort_10k 0")


unittest.main(argv=sys.argv[:1])
