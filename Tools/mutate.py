#!/usr/bin/python3
"""Changes the library in one small place at a time, and sees whether the tests notice.

Every mutant is Runtime/ with one comparison flipped, one bound or lane moved, one statement dropped. It is built in a
copy of the tree under build/mutation and the whole suite runs on it, the cheapest tests first, until one fails. A
mutant that no test fails on survives: either a test is missing, or the change changes nothing that can be seen.

  ./Tools/mutate.py --count 200             200 mutants of all of Runtime/, the same ones every time
  ./Tools/mutate.py --seed 1                other ones
  ./Tools/mutate.py --files kr_sort.h       of one file
  ./Tools/mutate.py --matching '^VX_.* -> nothing'
                                            every report site dropped: does a test miss each of them?
  ./Tools/mutate.py --list                  what would be tried, without trying it
  ./Tools/mutate.py --resume                goes on where a run was stopped
  ./Tools/mutate.py --again                 the survivors of earlier runs once more, with the tests of today

The verdicts lie in build/mutation/verdicts.jsonl, and the report in build/mutation/report.md.
"""

import argparse
import bisect
import collections
import concurrent.futures
import glob
import itertools
import json
import os
import queue
import random
import re
import resource
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, "build", "mutation")
BASE = os.path.join(WORK, "base")
VERDICTS = os.path.join(WORK, "verdicts.jsonl")
REPORT = os.path.join(WORK, "report.md")

INCLUDE_DIRECTORIES = [
	"Runtime/include", "Runtime/vx_maths/include", "Runtime/vx_kernel/include", "Runtime/vx_geometrics/include",
	"Tests/Model", "Tests/Support", "Samples/particle_viewer",
]
FLAGS = ["-std=c++17", "-O1", "-w", "-DVX_ASSERTIONS=1"]
LIBRARIES = ["-lgtest", "-pthread"]
WIDTHS = [[], ["--lanes=8"], ["--lanes=4"]]  # every test passes on all paths, so a mutant of any shows

# Tests that instantiate a header's code in their own object. They are built anew for its mutants; all other tests see
# such a mutant through the library's objects, which come first in the link and so bring the version that counts.
TESTS_OF_HEADER = {
	"kr_containers_array.h": ["containers_array"],
	"kr_iterators.h": ["memory_views"],
	"kr_log_unique.h": ["log_unique"],
	"kr_mem.h": ["scratch_memory"],
	"kr_memoryviews.h": ["memory_views"],
	"kr_profiler.h": ["profiler"],
	"kr_refptr.h": ["log_unique", "diagnostics"],
	"kr_sort.h": ["quick_sort", "radix_sort", "wide_lanes"],
	"kr_string.h": ["log_unique", "diagnostics"],
	"simd_vector.h": ["simd_vector"],
	"vx_assert.h": ["diagnostics"],
	"vx_compiler.h": ["diagnostics"],
	"vx_defs.h": ["memory_views"],
	"vx_maths_vector.h": ["memory_views", "simd_vector"],
	"ge_mesh_triangle_sorter.h": ["sorter_configuration", "working_buffers"],
}

# No test can see a fence or a prefetch go, nor the break that ends a switch.
UNSEEN = re.compile(r"WriteBarrier|_mm_sfence|_mm_prefetch|__builtin_prefetch|break;\s*}")

Mutant = collections.namedtuple("Mutant", "file line kind begin end text before after key")


# Mutants.

def masked(text):
	"""The text with comments, literals in quotes and directives blanked out, every character in its place."""
	pattern = re.compile(
		r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'|^[ \t]*#[^\n]*|\bstatic_assert\([^;]*;',
		re.S | re.M)
	return pattern.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


SWAPS = [
	("comparison", r"(?<= )(<=|>=|==|!=|<|>)(?= )", {
		"<": ["<=", ">="], "<=": ["<"], ">": [">=", "<="], ">=": [">"], "==": ["!="], "!=": ["=="]}),
	("arithmetic", r"(?<= )([-+*/%&|^]|<<|>>|&&|\|\|)(?= )", {
		"+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"], "&": ["|"], "|": ["&"], "^": ["|"],
		"<<": [">>"], ">>": ["<<"], "&&": ["||"], "||": ["&&"]}),
	("assignment", r"(?<= )([-+*/&|]=|>>=|<<=)(?= )", {
		"+=": ["-="], "-=": ["+="], "*=": ["="], "/=": ["="], "&=": ["|="], "|=": ["&="], ">>=": ["="], "<<=": ["="]}),
	("step", r"(\+\+|--)", {"++": ["--"], "--": ["++"]}),
	("truth", r"\b(true|false)\b", {"true": ["false"], "false": ["true"]}),
	("negation", r"(!)(?=[\w(:~!])", {"!": [""]}),
	("extreme", r"\b(std::min|std::max)\b", {"std::min": ["std::max"], "std::max": ["std::min"]}),
	("lane operation", r"\b(_mm\w*_(?:add|sub|and|or|min|max|cmpgt|cmplt|unpacklo|unpackhi|srai|srli|slli)_\w+)", None),
]
OPPOSITES = {
	"add": "sub", "sub": "add", "and": "or", "or": "and", "min": "max", "max": "min", "cmpgt": "cmplt",
	"cmplt": "cmpgt", "unpacklo": "unpackhi", "unpackhi": "unpacklo", "srai": "srli", "srli": "srai", "slli": "srli",
}
NUMBER = re.compile(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+(?:\.\d+)?)(u?l?l?|f?)(?![\w.])")
LANES = re.compile(r"\b(?:Shuffle2?|SplatLane)<([\d, ]+)>|_MM_SHUFFLE\(([\d, ]+)\)")
CONDITION = re.compile(r"\b(if|while) (?:constexpr )?\(")
WORDS_OF_NO_STATEMENT = {
	"alignas", "case", "class", "const", "constexpr", "default", "do", "else", "enum", "explicit", "extern", "for",
	"friend", "if", "inline", "namespace", "private", "protected", "public", "return", "static", "struct", "switch",
	"template", "typedef", "union", "using", "VX_INLINE", "volatile", "while",
}
DECLARATION = re.compile(r"(\[\[\w+\]\] )?[A-Za-z_][\w:]*(<[^;=]*>)?[ *&]+[A-Za-z_]\w*")


def closing(code, begin):
	"""Where the bracket at begin ends."""
	depth = 0
	for at in range(begin, len(code)):
		depth += code[at] in "([{"
		depth -= code[at] in ")]}"
		if depth == 0:
			return at
	return len(code)


def statements(code):
	"""Spans of whole statements that are neither declarations nor control flow."""
	ended = True
	at = 0
	for line in code.splitlines(keepends=True):
		text = line.strip()
		if text and ended and not text.startswith(("{", "}", ")", "#")):
			begin = at + line.index(text[0])
			end = begin
			while end < len(code) and code[end] not in ";{}":
				end = closing(code, end) + 1 if code[end] in "([" else end + 1
			word = re.match(r"\w*", text).group()
			statement = code[begin:end]
			if code[end:end + 1] == ";" and word not in WORDS_OF_NO_STATEMENT and not DECLARATION.match(statement):
				yield begin, end
			if text == "return;":
				yield begin, end
		if text:
			ended = text.endswith((";", "{", "}", ")", ":", "else"))
		at += len(line)


def changes(code):
	"""Every change as (kind, begin, end, replacement)."""
	for kind, pattern, table in SWAPS:
		for match in re.finditer(pattern, code):
			if table is None:
				parts = match.group().split("_")
				where = next(i for i, part in enumerate(parts) if part in OPPOSITES)
				replacements = ["_".join(parts[:where] + [OPPOSITES[parts[where]]] + parts[where + 1:])]
			else:
				replacements = table[match.group(1)]
			for replacement in replacements:
				yield kind, match.start(1), match.end(1), replacement
	lanes = [match.span() for match in LANES.finditer(code)]
	for match in NUMBER.finditer(code):
		number, suffix = match.groups()
		if any(begin <= match.start() < end for begin, end in lanes):
			yield "lane", match.start(), match.end(), str((int(number) + 1) % 4)
		elif "." in number:
			yield "constant", match.start(), match.end(), "%sf" % (float(number) + 1)
		else:
			value = int(number, 0)
			written = hex if number.startswith("0x") else str
			yield "constant", match.start(), match.end(), written(value + 1) + suffix
			if value != 0:
				yield "constant", match.start(), match.end(), written(value - 1) + suffix
	for match in CONDITION.finditer(code):
		begin = match.end() - 1
		end = closing(code, begin)
		if ";" not in code[begin:end]:
			yield "condition", begin + 1, end, "true" if match.group(1) == "if" else None
			yield "condition", begin + 1, end, "false"
	for begin, end in statements(code):
		follows = re.match(r";\s*}?", code[end:]).group()
		if not UNSEEN.search(code[begin:end] + follows):
			yield "statement", begin, end, ""


ASSERTION = re.compile(r"\b(VX_ASSERT|VX_ASSERT_MESSAGE)\(")


def with_its_text(text, code, begin, end, replacement):
	"""A change inside an assertion's condition alone, so that its text does not give it away."""
	for match in ASSERTION.finditer(code):
		last = closing(code, match.end() - 1)
		if not match.end() <= begin < last:
			continue
		condition_end = last
		rest = ""
		if match.group(1) == "VX_ASSERT_MESSAGE":
			condition_end = match.end()
			while code[condition_end] != ",":
				condition_end = closing(code, condition_end) + 1 if code[condition_end] in "([" else condition_end + 1
			rest = text[condition_end + 1:last]
		if begin >= condition_end:
			break
		condition = text[match.end():condition_end]
		quoted = json.dumps(" ".join(condition.split()))
		changed = text[match.end():begin] + replacement + text[end:condition_end]
		site = "VX_ASSERT_SITE((%s), ::Vexmoor::Assert::%s(__FILE__, VX_FUNCTION, __LINE__, %s, VX_STRINGIZE(%s), %s))"
		evaluate = "EvalAssertFormat" if rest else "EvalAssert"
		return match.start(), last + 1, site % (changed, evaluate, quoted, condition, rest or quoted)
	return begin, end, replacement


def mutants_of(tree, path):
	with open(os.path.join(tree, path), encoding="utf-8") as file:
		text = file.read()
	code = masked(text)
	starts = [0] + [match.end() for match in re.finditer("\n", text)]
	seen = collections.Counter()
	for kind, begin, end, replacement in sorted(set(changes(code)), key=lambda change: (change[1:3], str(change))):
		if replacement is None:
			continue
		line = bisect.bisect(starts, begin)
		before = " ".join(text[begin:end].split())
		if kind in ("statement", "condition"):
			shown = "%s -> %s" % (before, replacement or "nothing")
		else:
			whole = text[starts[line - 1]:].split("\n", 1)[0]
			column = begin - starts[line - 1]
			shown = "%s -> %s" % (
				whole.strip(), (whole[:column] + replacement + whole[column + end - begin:]).strip())
		name = "%s: %s: %s" % (path, kind, shown)
		seen[name] += 1
		yield Mutant(path, line, kind, *with_its_text(text, code, begin, end, replacement), before, shown,
			"%s #%d" % (name, seen[name]))


# Builds.

def compiler():
	command = [os.environ.get("CXX", "g++")]
	return (["ccache"] if shutil.which("ccache") else []) + command


def compile_object(tree, source, target, cached=True):
	os.makedirs(os.path.dirname(target), exist_ok=True)
	command = compiler() if cached else compiler()[-1:]
	command += FLAGS + ["-fmacro-prefix-map=%s/=../../" % tree]
	command += ["-I" + os.path.join(tree, path) for path in INCLUDE_DIRECTORIES]
	# Asserts and reports name files as the build does: by the path below the checkout.
	result = subprocess.run(command + ["-c", os.path.join(tree, source), "-o", target], capture_output=True, text=True)
	return result.returncode == 0, result.stderr


def files_of_runtime(tree, suffix):
	paths = glob.glob(tree + "/Runtime/**/*" + suffix, recursive=True)
	return sorted(os.path.relpath(path, tree) for path in paths)


def test_sources():
	with open(os.path.join(BASE, "Tests", "CMakeLists.txt"), encoding="utf-8") as file:
		listed = re.search(r"add_executable\(\s*vexmoor_tests\s([^)]*)\)", file.read()).group(1).split()
	return [os.path.normpath("Tests/" + source) for source in listed]


def object_of(directory, source):
	return os.path.join(directory, source + ".o")


def includes_of(source):
	"""The headers of Runtime/ that a source of Runtime/ reads, directly or not, by file name."""
	headers = {os.path.basename(path): path for path in files_of_runtime(BASE, ".h")}
	found = set()
	waiting = [source]
	while waiting:
		with open(os.path.join(BASE, waiting.pop()), encoding="utf-8") as file:
			for name in re.findall(r'#include "(?:[\w/]+/)?(\w+\.h)"', file.read()):
				if name in headers and name not in found:
					found.add(name)
					waiting.append(headers[name])
	return found


def copy_tree(source, tree):
	shutil.rmtree(tree, ignore_errors=True)
	for part in ("Runtime", "Tests", "Samples/particle_viewer"):
		shutil.copytree(os.path.join(source, part), os.path.join(tree, part))


def link(objects, target):
	command = compiler()[-1:] + objects + ["-o", target] + LIBRARIES
	return subprocess.run(command, capture_output=True, text=True)


def limit_process():
	resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
	resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))


def run_tests(binary, width, tests, seconds, directory):
	"""Whether all of the tests pass, and otherwise the one that did not."""
	flag_file = os.path.join(directory, "flags")
	with open(flag_file, "w", encoding="utf-8") as file:
		file.write("--gtest_filter=" + ":".join(tests) + "\n--gtest_fail_fast\n--gtest_brief=1\n")
	log = os.path.join(directory, "log")
	with open(log, "w", encoding="utf-8") as out:
		process = subprocess.Popen([binary, "--gtest_flagfile=" + flag_file] + width, stdout=out, stderr=out, cwd=directory,
			preexec_fn=limit_process, start_new_session=True)
		try:
			code = process.wait(seconds)
		except subprocess.TimeoutExpired:
			os.killpg(process.pid, 9)
			process.wait()
			return False, "a timeout"
	if code == 0:
		return True, None
	with open(log, encoding="utf-8", errors="replace") as file:
		failed = re.findall(r"\[  FAILED  \] ([\w/.]+)", file.read())
	return False, failed[0] if failed else "a crash"


class Suite:
	"""The tests as they are without a mutant: objects, binary, and batches of tests with the cheapest first."""

	def __init__(self, jobs):
		self.runtime = files_of_runtime(BASE, ".cpp")
		self.tests = test_sources()
		self.includes = {source: includes_of(source) for source in self.runtime}
		sources = self.runtime + self.tests
		self.directory = os.path.join(WORK, "objects")
		with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
			results = pool.map(
				lambda source: compile_object(BASE, source, object_of(self.directory, source)), sources)
			for done, (source, (built, error)) in enumerate(zip(sources, results), 1):
				if not built:
					sys.exit("mutate.py: %s does not compile:\n%s" % (source, error))
				show_progress("built %d of %d" % (done, len(sources)))
		binary = os.path.join(WORK, "tests")
		linked = link([object_of(self.directory, source) for source in sources], binary)
		if linked.returncode != 0:
			sys.exit("mutate.py: the tests do not link:\n" + linked.stderr)
		self.batches = self.measure(binary)

	@staticmethod
	def measure(binary):
		show_progress("running the tests without a mutant")
		times = os.path.join(WORK, "times.json")
		result = subprocess.run([binary, "--gtest_brief=1", "--gtest_output=json:" + times], capture_output=True,
			text=True, preexec_fn=limit_process, cwd=WORK)
		if result.returncode != 0:
			sys.exit("mutate.py: the tests fail without a mutant:\n" + result.stdout[-4000:])
		with open(times, encoding="utf-8") as file:
			suites = json.load(file)["testsuites"]
		costs = sorted((float(test["time"][:-1]), suite["name"] + "." + test["name"])
			for suite in suites for test in suite["testsuite"] if test.get("result") == "COMPLETED")
		batches = []
		for low, high in ((-1, 0.005), (0.005, 0.1), (0.1, 0.5), (0.5, 1e9)):
			batch = [(seconds, name) for seconds, name in costs if low < seconds <= high]
			if batch:
				batches.append((sum(seconds for seconds, _ in batch), [name for _, name in batch]))
		return batches

	def rebuilt(self, path):
		"""The sources to build anew for a mutant of a file."""
		if path in self.runtime:
			return [path]
		name = os.path.basename(path)
		sources = [source for source in self.runtime if name in self.includes[source]]
		of_header = {"Tests/%s_test.cpp" % test for test in TESTS_OF_HEADER.get(name, [])}
		return sources + [source for source in self.tests if source in of_header]


class Job:
	"""One tree that mutants are built in, one after the other."""

	killers = collections.defaultdict(list)  # by file: the tests that failed last

	def __init__(self, suite, number):
		self.suite = suite
		self.directory = os.path.join(WORK, "job%d" % number)
		copy_tree(BASE, self.directory)

	def verdict(self, mutant):
		path = os.path.join(self.directory, mutant.file)
		with open(path, encoding="utf-8") as file:
			original = file.read()
		with open(path, "w", encoding="utf-8") as file:
			file.write(original[:mutant.begin] + mutant.text + original[mutant.end:])
		try:
			return self._verdict(mutant)
		finally:
			with open(path, "w", encoding="utf-8") as file:
				file.write(original)

	def _verdict(self, mutant):
		rebuilt = self.suite.rebuilt(mutant.file)
		for source in rebuilt:
			built, _ = compile_object(self.directory, source, object_of(self.directory, source), cached=False)
			if not built:
				return "does not compile", None
		objects = [object_of(self.directory if source in rebuilt else self.suite.directory, source)
			for source in self.suite.runtime + self.suite.tests]
		binary = os.path.join(self.directory, "tests")
		if link(objects, binary).returncode != 0:
			return "does not compile", None

		killers = Job.killers[mutant.file]
		batches = ([(1, killers)] if killers else []) + self.suite.batches
		for (seconds, tests), width in itertools.product(batches, WIDTHS):
			passed, failed = run_tests(binary, width, tests, 4 * seconds + 10, self.directory)
			if not passed:
				if "." in failed and failed not in killers:
					Job.killers[mutant.file] = [failed] + killers[:9]
				return "killed", failed
		return "survived", None


# Verdicts.

def read_verdicts():
	verdicts = {}
	if os.path.exists(VERDICTS):
		with open(VERDICTS, encoding="utf-8") as file:
			for line in file:
				verdict = json.loads(line)
				verdicts[verdict["key"]] = verdict
	return verdicts


def write_report(verdicts):
	counts = collections.defaultdict(collections.Counter)
	for verdict in verdicts:
		counts[verdict["file"]][verdict["verdict"]] += 1
		counts["all"][verdict["verdict"]] += 1
	lines = ["# Mutants", "", "| File | Mutants | Killed | Survived | Score |", "|---|---|---|---|---|"]
	for file in sorted(counts, key=lambda file: (file == "all", file)):
		killed, survived = counts[file]["killed"], counts[file]["survived"]
		if killed + survived:
			score = 100 * killed / (killed + survived)
			lines.append("| %s | %d | %d | %d | %.1f %% |" % (file, killed + survived, killed, survived, score))
	lines += ["", "%d more did not compile and do not count." % counts["all"]["does not compile"], "", "## Survivors"]
	for verdict in sorted(verdicts, key=lambda verdict: (verdict["file"], verdict["line"])):
		if verdict["verdict"] == "survived":
			lines += ["", "%(file)s:%(line)d, %(kind)s" % verdict, "", "    " + verdict["after"]]
	with open(REPORT, "w", encoding="utf-8") as file:
		file.write("\n".join(lines) + "\n")
	return counts["all"]


def show_progress(text):
	if sys.stderr.isatty():
		sys.stderr.write("\r\033[K" + text)
		sys.stderr.flush()


def main():
	parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
	parser.add_argument("--count", type=int, help="how many mutants, drawn evenly from all; by default all of them")
	parser.add_argument("--seed", type=int, default=0, help="which ones")
	parser.add_argument("--jobs", type=int, default=1, help="mutants at a time")
	parser.add_argument("--files", nargs="+", help="of these files of Runtime/ alone, named without folders")
	parser.add_argument("--matching", metavar="REGEX", help="of these changes alone, as --list prints them")
	parser.add_argument("--list", action="store_true", help="print the mutants and stop")
	parser.add_argument("--resume", action="store_true", help="keep earlier verdicts and try the rest")
	parser.add_argument("--again", action="store_true", help="keep earlier verdicts and try their survivors once more")
	arguments = parser.parse_args()

	tree = ROOT
	if not arguments.list:
		copy_tree(ROOT, BASE)  # the checkout may change meanwhile
		tree = BASE
	paths = files_of_runtime(tree, ".h") + files_of_runtime(tree, ".cpp")
	names = {os.path.basename(path) for path in paths}
	for name in arguments.files or []:
		if name not in names:
			parser.error("Runtime/ has no file %s" % name)
	if arguments.jobs < 1 or (arguments.count is not None and arguments.count < 1):
		parser.error("--jobs and --count are at least 1")
	wanted = [path for path in paths if not arguments.files or os.path.basename(path) in arguments.files]
	mutants = [mutant for path in wanted for mutant in mutants_of(tree, path)]
	if arguments.matching:
		mutants = [mutant for mutant in mutants if re.search(arguments.matching, mutant.after)]
	verdicts = read_verdicts() if arguments.resume or arguments.again else {}
	if arguments.again:
		mutants = [mutant for mutant in mutants if verdicts.get(mutant.key, {}).get("verdict") == "survived"]
	if arguments.count is not None and arguments.count < len(mutants):
		mutants = random.Random(arguments.seed).sample(mutants, arguments.count)
	if not arguments.again:
		mutants = [mutant for mutant in mutants if mutant.key not in verdicts]

	if arguments.list:
		for mutant in sorted(mutants, key=lambda mutant: (mutant.file, mutant.line)):
			print("%s:%d: %s: %s" % (mutant.file, mutant.line, mutant.kind, mutant.after))
		return

	os.makedirs(WORK, exist_ok=True)
	with open(VERDICTS, "w", encoding="utf-8") as file:
		file.writelines(json.dumps(verdict) + "\n" for verdict in verdicts.values())
	suite = Suite(arguments.jobs)
	jobs = queue.Queue()
	for number in range(arguments.jobs):
		jobs.put(Job(suite, number))

	def judge(mutant):
		job = jobs.get()
		try:
			return mutant, job.verdict(mutant)
		finally:
			jobs.put(job)

	with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
		futures = [pool.submit(judge, mutant) for mutant in mutants]
		for done, future in enumerate(concurrent.futures.as_completed(futures), 1):
			mutant, (verdict, test) = future.result()
			entry = {"key": mutant.key, "file": mutant.file, "line": mutant.line, "kind": mutant.kind,
				"after": mutant.after, "verdict": verdict, "test": test}
			verdicts[mutant.key] = entry
			with open(VERDICTS, "a", encoding="utf-8") as file:
				file.write(json.dumps(entry) + "\n")
			show_progress("%d of %d mutants" % (done, len(mutants)))
			if verdict == "survived":
				show_progress("")
				print("%s:%d survived: %s: %s" % (mutant.file, mutant.line, mutant.kind, mutant.after), flush=True)
	show_progress("")
	counts = write_report(verdicts.values())
	print("%d killed, %d survived, %d did not compile; see %s" % (
		counts["killed"], counts["survived"], counts["does not compile"], os.path.relpath(REPORT, os.getcwd())))


if __name__ == "__main__":
	main()
