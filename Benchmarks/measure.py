#!/usr/bin/python3
"""Runs vexmoor_benchmarks in chunks of at most two minutes, and writes their results to one file.

With --lock, the file is locked while a chunk runs, so that others can measure on the same machine in between. All
competitors of a case are in one chunk.
"""

import collections
import contextlib
import fcntl
import json
import os
import subprocess
import sys
import tempfile
import time

import results

MOST_RUNS = 1200  # in a chunk, unless one stage/what has more: about a minute
COUNT_OF_A_RUN_MORE = 500000  # particles that take as long to make, sort and check as anything takes at the least


def chunks(names, repetitions):
	"""The names in lists, in which no stage/what is torn apart."""
	groups = collections.defaultdict(list)
	for name in names:
		groups["/".join(name.split("/")[:2])].append(name)
	found, runs = [], MOST_RUNS
	for of_what in groups.values():
		more = sum(1 + int(name.split("/")[3]) / COUNT_OF_A_RUN_MORE for name in of_what) * repetitions
		if runs + more <= MOST_RUNS:
			found[-1].extend(of_what)
			runs += more
		else:
			found.append(list(of_what))
			runs = more
	return found


def fail(message):
	print(f"measure.py: {message}", file=sys.stderr)
	sys.exit(2)


def list_names(program, name_filter):
	command = [program, "--benchmark_list_tests", f"--benchmark_filter={name_filter}"]
	try:
		listed = subprocess.run(command, capture_output=True, text=True, check=False)
	except OSError as error:
		fail(f"{program} does not run: {error.strerror}")
	names = [line for line in listed.stdout.splitlines() if line.count("/") >= 3]
	if not names:
		fail(f'no benchmark has a name that matches "{name_filter}"')
	return names


@contextlib.contextmanager
def locked(path):
	if not path:
		yield
		return
	try:
		file = open(path, "a", encoding="utf-8")
	except OSError as error:
		fail(f"{path} cannot be locked: {error.strerror}")
	with file:
		fcntl.flock(file, fcntl.LOCK_EX)
		yield  # closing the file unlocks it


def run_chunk(program, names, options):
	"""The context and the runs of some benchmarks."""
	with tempfile.NamedTemporaryFile(suffix=".json") as out:
		command = [program, f"--benchmark_filter=^({'|'.join(names)})$", "--benchmark_enable_random_interleaving=true",
			f"--benchmark_out={out.name}", "--benchmark_out_format=json", *options]
		done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
		if done.returncode != 0:
			fail(f"{os.path.basename(program)} ended with {done.returncode}: {done.stderr.strip()}")
		data = json.load(out)
	return data["context"], data["benchmarks"]


class Progress:
	"""A line that is written over again on a terminal, and nothing in a pipe."""

	def __init__(self, chunk_count):
		self.chunk_count = chunk_count
		self.start = time.monotonic()
		self.visible = sys.stderr.isatty()

	def show(self, done, names):
		if not self.visible:
			return
		passed = time.monotonic() - self.start
		left = f", some {passed / done * (self.chunk_count - done) / 60:.0f} minutes left" if done else ""
		line = f"measuring {names[0].split('/')[0]}, {done + 1} of {self.chunk_count}{left}"
		print(f"\r{line:70}", end="", file=sys.stderr, flush=True)

	def finish(self):
		if self.visible:
			print(f"\r{'':70}\r", end="", file=sys.stderr, flush=True)


def main():
	arguments = results.ArgumentParser(description=__doc__.splitlines()[0])
	arguments.add_argument("program", help="vexmoor_benchmarks")
	arguments.add_argument("out", help="the file to write, or a folder, in which the file is named after the processor")
	arguments.add_argument("--filter", default="", help="a regular expression: benchmarks whose names match are run")
	arguments.add_argument("--repetitions", type=int, default=11, help="how many repetitions a median is of")
	arguments.add_argument("--min-time", type=float, default=0.02, help="the least seconds that a repetition takes")
	arguments.add_argument("--lock", help="a file to hold locked while a chunk runs")
	options = arguments.parse_args()

	if not os.path.isdir(os.path.dirname(os.path.abspath(options.out))):
		fail(f"there is no folder for {options.out}")
	passed_on = [f"--benchmark_repetitions={options.repetitions}", f"--benchmark_min_time={options.min_time}"]
	names_of_chunks = chunks(list_names(options.program, options.filter), options.repetitions)
	progress = Progress(len(names_of_chunks))
	cases, errors, loads = {}, {}, []
	for done, names in enumerate(names_of_chunks):
		progress.show(done, names)
		with locked(options.lock):
			context, runs = run_chunk(options.program, names, passed_on)
		chunk_cases, chunk_errors = results.sum_up(runs)
		cases.update(chunk_cases)
		loads += context["load_avg"]
		errors.update(chunk_errors)
	progress.finish()

	measured = results.Results(results.describe_machine({**context, "load_avg": loads}, options.repetitions), cases)
	path = options.out
	if os.path.isdir(path):
		path = os.path.join(path, results.file_name(measured.machine) + ".json")
	results.save(measured, path)
	print(path)
	if errors:
		sys.exit(f"measure.py: {len(errors)} benchmarks failed their check: "
			+ "; ".join(f"{name}: {message}" for name, message in errors.items()))


if __name__ == "__main__":
	main()
