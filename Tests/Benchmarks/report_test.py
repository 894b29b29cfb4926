#!/usr/bin/env python3
"""Writes pages of made-up results. Skipped (77) where matplotlib, which draws their plots, is not installed.

report_test.py FOLDER_OF_BENCHMARKS
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

BENCHMARKS = sys.argv.pop(1)
sys.path.insert(0, BENCHMARKS)
try:
	import report
except ModuleNotFoundError as missing:
	print(f"report_test.py: {missing}")
	sys.exit(77)
import results
import tables
from example import example, in_turns


class ReportTest(unittest.TestCase):
	def setUp(self):
		folder = tempfile.TemporaryDirectory()
		self.addCleanup(folder.cleanup)
		self.folder = pathlib.Path(folder.name)

	def write(self, *of_processors, options=()):
		paths = []
		for number, of_processor in enumerate(of_processors):
			paths.append(self.folder / f"{number}.json")
			results.save(of_processor, paths[-1])
		answer = subprocess.run(
			[sys.executable, f"{BENCHMARKS}/report.py", *paths, "--page", self.folder / "page.md", *options],
			capture_output=True, text=True, check=False)
		self.assertEqual((answer.returncode, answer.stderr), (0, ""))
		return (self.folder / "page.md").read_text(encoding="utf-8")

	def test_the_page_opens_with_the_plot_and_the_table(self):
		headings = re.findall(r"^(#+ .*|!\[.*?\])", self.write(example()), re.M)
		self.assertEqual(
			headings[:3], ["# Performance", "![Whole sorts by count, beside the loop]", "## Your draw call"])

	def test_every_link_leads_somewhere(self):
		page = self.write(example())
		for link in re.findall(r"\]\((page[^)]*)\)", page):
			self.assertTrue((self.folder / link).exists(), link)
		details = self.folder / "page" / "intel-6-99.md"
		for link in re.findall(r"!\[[^]]*\]\(([^)]*)\)", details.read_text(encoding="utf-8")):
			self.assertTrue((details.parent / link).exists(), link)

	def test_processors_have_a_page_each(self):
		other = example()
		other.machine["model"] = "100"
		page = self.write(example(), other)
		self.assertIn("(page/intel-6-99.md)", page)
		self.assertIn("(page/intel-6-100.md)", page)

	def test_losses_are_on_the_page(self):
		self.assertIn("- The loop, by value, 99 % disabled: at 1k (×0.50).", self.write(example()))

	def write_web(self, cases):
		machine = example().machine | {"node": "v20", "v8": "11", "compilers": "emscripten 3"}
		path = self.folder / "web.json"
		path.write_text(json.dumps({"machine": machine, "cases": {"1000000": cases}}), encoding="utf-8")
		return self.write(example(), options=("--web", path))

	def test_sorts_in_javascript_have_a_table_and_losses_are_bold(self):
		case = {"ns": 2e6, "ratio": 2.0, "ratio_to_two_threads": 4.0}
		cases = {name: case for name in tables.WEB_SORTS} | {"turns": 5}
		cases["counting_c"] = {"ns": 5e5, "ratio": 0.5, "ratio_to_two_threads": 0.75}
		page = self.write_web(cases)
		self.assertIn("## In JavaScript", page)
		self.assertIn("| the package, with SIMD | 2.00 ms |", page)
		self.assertIn("| counting sort in C | 500 µs, **×0.50** |", page)
		self.assertIn("| the package, on two threads | 2.00 ms, ×2.00 |", page)
		self.assertIn("| counting sort in JavaScript | ×4.00 |", page)
		self.assertIn("| counting sort in C | **×0.75** |", page)
		self.assertNotIn("## In JavaScript", self.write(example()))

	def test_sorts_in_javascript_on_a_single_core_have_no_row_for_two_threads(self):
		case = {"ns": 2e6, "ratio": 2.0, "ratio_to_two_threads": None}
		cases = {name: case for name in tables.WEB_SORTS if name != "two_threads"} | {"turns": 5}
		page = self.write_web(cases)
		self.assertIn("| counting sort in C | 2.00 ms, ×2.00 |", page)
		self.assertNotIn("two threads |", page)

	def test_a_readme_gets_its_figures(self):
		whole = example()
		for size in report.README_COUNTS:
			whole.cases[("scenes", "positions", "user", size)] = in_turns(6.6, 5.0 * size, size)
		for shape in report.SHAPES:
			for size in report.SIZES[:-1]:
				case = ("whole_pairs", f"{shape}_vexmoor_pages_of_1k", "vqsort_best", size)
				whole.cases[case] = in_turns(1.25, 1.0, size)
		readme = self.folder / "README.md"
		readme.write_text(f"before\n{report.FIGURES_BEGIN}\nold\n{report.FIGURES_END}\nafter\n", encoding="utf-8")
		self.write(whole, options=("--readme", readme))
		text = readme.read_text(encoding="utf-8")
		self.assertTrue(text.startswith("before\n") and text.endswith("\nafter\n"))
		self.assertNotIn("old", text)
		self.assertIn("in 5.00 µs for 1,000 particles, 50.0 µs for 10,000", " ".join(text.split()))
		self.assertIn("take 7 to 7 times as", " ".join(text.split()))
		self.assertLessEqual(max(map(len, text.splitlines())), 120)

	def test_a_file_of_something_else_is_one_sentence_and_2(self):
		path = self.folder / "other.json"
		path.write_text("[]", encoding="utf-8")
		answer = subprocess.run([sys.executable, f"{BENCHMARKS}/report.py", path, "--page", self.folder / "page.md"],
			capture_output=True, text=True, check=False)
		self.assertEqual((answer.returncode, len(answer.stderr.splitlines())), (2, 1), answer.stderr)

	def test_the_pages_of_the_documents_are_what_the_results_make(self):
		root = pathlib.Path(BENCHMARKS).resolve().parent
		pages = [root / "README.md", *root.glob("Docs/performance*.md"), *root.glob("Docs/performance/*.md")]
		made = self.folder / "Docs" / "performance.md"
		made.parent.mkdir()
		shutil.copy(root / "README.md", self.folder)
		arguments = ["report.py", *root.glob("Benchmarks/results/*.json"), "--page", made, "--readme",
			self.folder / "README.md", "--web", *root.glob("Web/bench/results/*.json")]
		with unittest.mock.patch.object(sys, "argv", [str(argument) for argument in arguments]), \
				unittest.mock.patch.object(report, "plots"):
			report.main()
		for page in pages:
			# Lines are wrapped after the pages are written.
			words = [path.read_text(encoding="utf-8").split() for path in (page, self.folder / page.relative_to(root))]
			self.assertTrue(words[0] == words[1], f"{page}: ./Tools/bench.sh --pages writes it anew")


if __name__ == "__main__":
	unittest.main()
