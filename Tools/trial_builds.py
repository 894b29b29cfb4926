"""Builds the library with a change, and finds a test that fails. mutate.py and bugs.py share this module.

A Suite is the unchanged library with its tests: every object file, and the tests in batches, the cheapest first. A Job
is a copy of the tree that tries one change after another. It compiles the files that the change reaches, links them
with the objects of the suite, and runs the tests.
"""

import collections
import concurrent.futures
import fnmatch
import glob
import hashlib
import itertools
import json
import os
import re
import resource
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

INCLUDE_DIRECTORIES = [
	"Runtime/include", "Runtime/vx_maths/include", "Runtime/vx_kernel/include", "Runtime/vx_geometrics/include",
	"Samples/minimal",
]

# A way to build and run tests: the target of Tests/CMakeLists.txt, and one command for each run of a batch. A limit on
# memory holds what a change allocates by mistake; sanitizers and emulators map more than any limit.
Configuration = collections.namedtuple("Configuration",
	"name compiler flags target libraries prefix runs only limited packages")

COMMON_FLAGS = ["-std=c++17", "-O1", "-w"]
WIDTHS = [[], ["--avx2"], ["--baseline"]]  # on all tests, and as on narrower registers on those with wide paths
SUITE = Configuration("suite", os.environ.get("CXX", "g++"), COMMON_FLAGS + ["-DVX_ASSERTIONS=1"], "vexmoor_tests",
	["-lgtest", "-pthread"], [], WIDTHS, None, True, ["g++", "libgtest-dev", "nlohmann-json3-dev"])
NO_ASSERTIONS = SUITE._replace(name="no-assertions", flags=COMMON_FLAGS + ["-DVX_ASSERTIONS=0"])
# Threads meet by chance, and what happens once happens in a fresh process.
THREADS = Configuration("threads", "clang++", COMMON_FLAGS + ["-DVX_ASSERTIONS=1", "-fsanitize=thread"],
	"vexmoor_thread_tests", ["-lgtest_main", "-lgtest", "-pthread"], [], [[]] * 5, None, False,
	["clang", "libclang-rt-14-dev", "libgtest-dev"])
# A processor with no wide registers, whose lanes no test can ask for.
OLD_PROCESSOR = SUITE._replace(name="old-processor", prefix=["qemu-x86_64", "-cpu", "Nehalem"], runs=[[]],
	only="Cpu.*:*WideLanes*", limited=False, packages=SUITE.packages + ["qemu-user"])
# Limits so low that small scenes are shared out among many jobs.
JOBS = SUITE._replace(name="jobs", flags=COMMON_FLAGS + ["-DVX_ASSERTIONS=1", "-DTEST_SORTS_IN_JOBS=1",
	"-DVEXMOOR_MIN_RECORDS_PER_JOB=16", "-DVEXMOOR_MIN_PART_SIZE=8", "-DVEXMOOR_MIN_RECORDS_OF_ONE_JOB=110",
	"-DVEXMOOR_MIN_PAGE_SIZE_OF_ONE_JOB=1", "-DVEXMOOR_MIN_SPLIT_BY_ONE_JOB=1500",
	"-DVEXMOOR_MIN_SPLIT_OF_WIDE_KEYS=1000",
	"-DVEXMOOR_MAX_IN_SHORT_COUNTERS=700", "-DVEXMOOR_MAX_FILLED_AT_ONCE=24"], target="vexmoor_job_tests",
	libraries=["-lgtest_main", "-lgtest", "-pthread"], runs=[[]])
CONFIGURATIONS = {each.name: each for each in (SUITE, NO_ASSERTIONS, THREADS, OLD_PROCESSOR, JOBS)}

# Sources of Tests/ that instantiate a header's code in their own object. They are built anew when the header changes;
# all other tests see the change through the objects built anew, which come first in the link and so bring the version
# that counts.
SOURCES_OF_HEADER = {
	"kr_containers_array.h": ["containers_array_test"],
	"kr_cpu.h": ["wide_lanes_test"],
	"kr_iterators.h": ["memory_views_test"],
	"kr_log_unique.h": ["log_unique_test"],
	"kr_mem.h": ["scratch_memory_test"],
	"kr_memoryviews.h": ["memory_views_test", "views_test"],
	"kr_views.h": ["views_test"],
	"ge_mesh_pages.h": ["particle_pages_test"],
	"kr_profiler.h": ["profiler_test"],
	"kr_refptr.h": ["log_unique_test", "diagnostics_test"],
	"kr_sort.h": ["quick_sort_test"],
	"kr_sort_lanes.h": ["quick_sort_test", "radix_sort_test", "wide_lanes_test"],
	"kr_sort_quick.h": ["quick_sort_test"],
	"kr_sort_radix.h": ["quick_sort_test", "radix_sort_test"],
	"kr_sort_few.h": ["quick_sort_test"],
	"kr_sort_ranks.h": ["quick_sort_test"],
	"kr_sort_records.h": ["quick_sort_test", "radix_sort_test"],
	"kr_string.h": ["log_unique_test", "diagnostics_test"],
	"kr_first_answer.h": ["wide_lanes_test"],
	"lanes_scalar.h": ["scalar_lanes_test"],
	"lanes_sse2.h": ["simd_vector_test", "sort_scan_test"],
	"pv_sort_scan.h": ["sort_scan_test"],
	"simd_vector.h": ["simd_vector_test"],
	"vx_assert.h": ["diagnostics_test"],
	"vx_compiler.h": ["diagnostics_test"],
	"vx_defs.h": ["memory_views_test"],
	"vx_maths_vector.h": ["memory_views_test", "simd_vector_test"],
	"ge_mesh_triangle_sorter.h": ["sorter_configuration_test", "working_buffers_test", "page_cache_test",
		"Support/scene_memory"],
}


def files_of_runtime(tree, suffix):
	paths = glob.glob(tree + "/Runtime/**/*" + suffix, recursive=True)
	return sorted(os.path.relpath(path, tree) for path in paths)


def copy_tree(source, tree):
	shutil.rmtree(tree, ignore_errors=True)
	for part in ("Runtime", "Tests", "Samples/minimal", "Samples/particle_viewer"):
		shutil.copytree(os.path.join(source, part), os.path.join(tree, part))


def read_text(path):
	with open(path, encoding="utf-8") as file:
		return file.read()


def write_text(path, text):
	with open(path, "w", encoding="utf-8") as file:
		file.write(text)


def show_progress(text):
	if sys.stderr.isatty():
		sys.stderr.write("\r\033[K" + text)
		sys.stderr.flush()


def fail(text):
	show_progress("")
	sys.exit("%s: %s" % (os.path.basename(sys.argv[0]), text))


def object_of(directory, source):
	return os.path.join(directory, source + ".o")


def compile_object(configuration, tree, source, target, include_directories, cached=True):
	os.makedirs(os.path.dirname(target), exist_ok=True)
	command = ["ccache"] if cached and shutil.which("ccache") else []
	# Asserts and reports name files as the build does: by the path below the checkout.
	command += [configuration.compiler] + configuration.flags + ["-fmacro-prefix-map=%s/=../../" % tree]
	command += ["-I" + os.path.join(tree, path) for path in include_directories]
	result = subprocess.run(command + ["-c", os.path.join(tree, source), "-o", target], capture_output=True, text=True)
	return result.returncode == 0, result.stderr


def link(configuration, objects, target, options):
	command = [configuration.compiler] + [flag for flag in configuration.flags if flag.startswith("-fsanitize")]
	command += objects + ["-o", target] + options + configuration.libraries
	return subprocess.run(command, capture_output=True, text=True)


def limit_process():
	resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def limit_process_and_memory():
	limit_process()
	resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))


def limits_of(configuration):
	return limit_process_and_memory if configuration.limited else limit_process


def run_tests(configuration, binary, arguments, tests, seconds, directory):
	"""Whether all of the tests pass, and otherwise the one that did not."""
	flag_file = os.path.join(directory, "flags")
	write_text(flag_file, "--gtest_filter=" + ":".join(tests) + "\n--gtest_fail_fast\n--gtest_brief=1\n")
	log = os.path.join(directory, "log")
	with open(log, "w", encoding="utf-8") as out:
		command = configuration.prefix + [binary, "--gtest_flagfile=" + flag_file] + arguments
		process = subprocess.Popen(command, stdout=out, stderr=out, cwd=directory, preexec_fn=limits_of(configuration),
			start_new_session=True)
		try:
			code = process.wait(seconds)
		except subprocess.TimeoutExpired:
			os.killpg(process.pid, 9)
			process.wait()
			return False, "a timeout"
	if code == 0:
		return True, None
	with open(log, encoding="utf-8", errors="replace") as file:
		text = file.read()
	failed = re.findall(r"\[  FAILED  \] ([\w/.]+)", text)
	if not failed and "WARNING: ThreadSanitizer" in text:
		return False, "the thread sanitizer"
	return False, failed[0] if failed else "a crash"


class Suite:
	"""The tests as they are without a change: objects, binary, and batches of tests with the cheapest first."""

	def __init__(self, work, base, configuration, jobs, test_files=None):
		"""Of all tests, or of those in some files of Tests/, named as in SOURCES_OF_HEADER."""
		subprocess.run([os.path.join(ROOT, "Tools", "install_packages.sh"), *configuration.packages], check=True)
		self.configuration = configuration
		self.base = base
		self.runtime = files_of_runtime(base, ".cpp")
		self._read_targets()
		if test_files is not None:
			kept = {"Tests/%s.cpp" % name for name in test_files}
			self.tests = [source for source in self.tests if source in kept or not source.endswith("_test.cpp")]
		self.includes = {source: self._includes_of(source) for source in self.runtime}
		self.work = os.path.join(work, configuration.name)
		self.directory = os.path.join(self.work, "objects")
		sources = self.runtime + self.tests
		with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
			results = pool.map(
				lambda source: compile_object(
					configuration, base, source, object_of(self.directory, source), self.include_directories), sources)
			for done, (source, (built, error)) in enumerate(zip(sources, results), 1):
				if not built:
					fail("%s does not compile:\n%s" % (source, error))
				show_progress("%s: built %d of %d" % (configuration.name, done, len(sources)))
		binary = os.path.join(self.work, "tests")
		objects = [object_of(self.directory, source) for source in sources]
		linked = link(configuration, objects, binary, self.link_options)
		if linked.returncode != 0:
			fail("the tests do not link:\n" + linked.stderr)
		self.batches = self._measure(binary)

	def _read_targets(self):
		"""What Tests/CMakeLists.txt says of the tests: sources, include folders, options of the linker, and which tests
		run on narrower registers too."""
		text = read_text(os.path.join(self.base, "Tests", "CMakeLists.txt"))

		def listed(command):
			found = re.search(r"\b%s\(\s*%s\s([^)]*)\)" % (command, self.configuration.target), text)
			return [each for each in found.group(1).split() if each != "PRIVATE"] if found else []

		def paths(command):
			return [os.path.normpath("Tests/" + each) for each in listed(command)]

		self.tests = [source for source in paths("add_executable") if source.endswith(".cpp")]
		self.include_directories = INCLUDE_DIRECTORIES + paths("target_include_directories")
		self.link_options = [each.replace("LINKER:", "-Wl,") for each in listed("target_link_options")]
		self.wide_tests = re.search(
			r"--\$\{instruction_set\}.*?--gtest_filter=(\S+)", text, re.S).group(1).split(":")

	def _includes_of(self, source):
		"""The headers of Runtime/ that a source of Runtime/ reads, directly or not, by file name."""
		headers = {os.path.basename(path): path for path in files_of_runtime(self.base, ".h")}
		found = set()
		waiting = [source]
		while waiting:
			for name in re.findall(
					r'#include "(?:[\w/]+/)?(\w+\.h)"', read_text(os.path.join(self.base, waiting.pop()))):
				if name in headers and name not in found:
					found.add(name)
					waiting.append(headers[name])
		return found

	def _measure(self, binary):
		times = os.path.join(self.work, "times.json")
		measured = os.path.join(self.work, "measured")  # which binary the times are of
		with open(binary, "rb") as file:
			digest = hashlib.sha256(file.read()).hexdigest()
		if not os.path.exists(measured) or read_text(measured) != digest:
			self._run_unchanged(binary, times)
			write_text(measured, digest)
		suites = json.loads(read_text(times))["testsuites"]
		costs = sorted((float(test["time"][:-1]), suite["name"] + "." + test["name"])
			for suite in suites for test in suite["testsuite"] if test.get("result") == "COMPLETED")
		batches = []
		for low, high in ((-1, 0.005), (0.005, 0.1), (0.1, 0.5), (0.5, 1e9)):
			batch = [(seconds, name) for seconds, name in costs if low < seconds <= high]
			if batch:
				batches.append((sum(seconds for seconds, _ in batch), [name for _, name in batch]))
		return batches

	def _run_unchanged(self, binary, times):
		show_progress("%s: running the tests without a change" % self.configuration.name)
		command = self.configuration.prefix + [binary, "--gtest_brief=1", "--gtest_output=json:" + times]
		if self.configuration.only:
			command.append("--gtest_filter=" + self.configuration.only)
		result = subprocess.run(
			command, capture_output=True, text=True, preexec_fn=limits_of(self.configuration), cwd=self.work)
		if result.returncode != 0:
			fail("the tests fail without a change:\n" + result.stdout[-4000:] + result.stderr[-4000:])

	def rebuilt(self, paths):
		"""The sources to build anew when these files of Runtime/ change."""
		names = {os.path.basename(path) for path in paths}
		sources = [source for source in self.runtime if source in paths or names & self.includes[source]]
		of_headers = {"Tests/%s.cpp" % source for name in names for source in SOURCES_OF_HEADER.get(name, [])}
		return sources + [source for source in self.tests if source in of_headers]


class Job:
	"""One tree that changed libraries are built in, one after the other."""

	killers = collections.defaultdict(list)  # by suite and files: the tests that failed last

	def __init__(self, work, base, number):
		self.directory = os.path.join(work, "job%d" % number)
		copy_tree(base, self.directory)

	def verdict(self, suite, texts):
		"""What the suite says to files of Runtime/ with other texts, and which test failed."""
		originals = {path: read_text(os.path.join(self.directory, path)) for path in texts}
		for path, text in texts.items():
			write_text(os.path.join(self.directory, path), text)
		try:
			return self._verdict(suite, list(texts))
		finally:
			for path, text in originals.items():
				write_text(os.path.join(self.directory, path), text)

	def _verdict(self, suite, paths):
		configuration = suite.configuration
		rebuilt = suite.rebuilt(paths)
		for source in rebuilt:
			built, _ = compile_object(configuration, self.directory, source, object_of(self.directory, source),
				suite.include_directories, cached=False)
			if not built:
				return "does not compile", None
		kept = [source for source in suite.runtime + suite.tests if source not in rebuilt]
		objects = [object_of(self.directory, source) for source in rebuilt]
		objects += [object_of(suite.directory, source) for source in kept]
		binary = os.path.join(self.directory, "tests")
		if link(configuration, objects, binary, suite.link_options).returncode != 0:
			return "does not compile", None

		key = (configuration.name, *paths)
		killers = Job.killers[key]
		batches = ([(1, killers)] if killers else []) + suite.batches
		for (seconds, tests), arguments in itertools.product(batches, configuration.runs):
			if arguments:
				tests = [test for test in tests if any(fnmatch.fnmatch(test, each) for each in suite.wide_tests)]
			if not tests:
				continue
			passed, failed = run_tests(configuration, binary, arguments, tests, 4 * seconds + 10, self.directory)
			if not passed:
				if "." in failed and failed not in killers:
					Job.killers[key] = [failed] + killers[:9]
				return "killed", failed
		return "survived", None
