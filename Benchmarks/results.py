"""Reads and writes results: the medians of every case on a processor, and the machine that they were measured on.

Each processor has a file in Benchmarks/results, written after a run of vexmoor_benchmarks. All tables and plots are
made from these files. A case is named stage/what/who/count.
"""

import argparse
import collections
import json
import os
import statistics
import subprocess
import sys

PACKAGES = [
	"libbenchmark-dev", "libboost-dev", "libhwy-dev", "libogre-1.12-dev", "libtbb-dev", "libstdc++-12-dev", "g++",
	"clang",
]
# Counters of which the least, the median and the most of all repetitions are kept.
COUNTERS = ("ratio", "plain_ns", "allocations", "worst_ratio", "worst_count", "uneven_steps")
# What runs a sort's jobs on two cores, and what the pages call it.
JOB_SYSTEMS = {"tbb": "oneTBB", "thread_pool": "a thread pool"}


class ArgumentParser(argparse.ArgumentParser):
	"""Says what is wrong in one sentence."""

	def error(self, message):
		self.exit(2, f"{self.prog}: {message}\n")


class Case:
	"""One case: nanoseconds of a call, half the range between the quartiles as a share of it, and the items of a call.

	A case whose two sides took turns has, in place of a time, the counters ratio (the other's time over the library's)
	and plain_ns (the library's time). A counter is the least, the median and the most of the repetitions.
	"""

	def __init__(self, items, ns=None, spread=None, counters=None):
		self.items = items
		self.ns = ns
		self.spread = spread
		self.counters = counters or {}

	def per_item(self):
		return self.ns / self.items

	def counter(self, name):
		return self.counters[name][1]


class Results:
	def __init__(self, machine, cases):
		self.machine = machine
		self.cases = cases

	def get(self, stage, what, who, size):
		return self.cases.get((stage, what, who, size))

	def values(self, index, **fixed):
		"""The different values of one part of the names, in order, where other parts are given."""
		places = {"stage": 0, "what": 1, "who": 2}
		found = []
		for key in self.cases:
			if all(key[places[part]] == value for part, value in fixed.items()) and key[index] not in found:
				found.append(key[index])
		return found

	def ratio(self, stage, what, peer, own, size):
		"""How many times as long as own the peer takes, or None."""
		peer, own = self.get(stage, what, peer, size), self.get(stage, what, own, size)
		return peer.ns / own.ns if peer and own else None

	def turns(self, stage, what, who, size):
		"""The median ratio of a case whose sides took turns, or None."""
		case = self.get(stage, what, who, size)
		return case.counter("ratio") if case else None

	def two_cores(self, what, size):
		"""Job system -> how many times as long as on two cores a sort takes on one."""
		ratios = {who: self.turns("jobs", what, who, size) for who in JOB_SYSTEMS}
		return {who: 1 / ratio for who, ratio in ratios.items() if ratio}


def spread_of(times):
	if len(times) < 4:
		return (max(times) - min(times)) / 2 / statistics.median(times)
	low, _, high = statistics.quantiles(times, n=4)
	return (high - low) / 2 / statistics.median(times)


def time_of(run):
	"""Nanoseconds of processor time, unless the benchmark says by which clock it goes."""
	by_clock = run["run_name"].endswith(("/manual_time", "/real_time"))
	return run["real_time"] if by_clock else run["cpu_time"]


def sum_up(runs):
	"""The cases of Google Benchmark's runs, and the names and messages of those that failed their check."""
	repetitions = collections.defaultdict(list)
	errors = {}
	# Runs come in shuffled order, tables in the order of registration.
	for run in sorted(runs, key=lambda run: run["family_index"]):
		if run["run_type"] != "iteration":
			continue
		stage, what, who, size = run["run_name"].split("/")[:4]
		if run.get("error_occurred"):
			errors[run["run_name"]] = run["error_message"]
		else:
			repetitions[(stage, what, who, int(size))].append(run)
	cases = {}
	for key, of_case in repetitions.items():
		counters = {}
		for counter in COUNTERS:
			if counter in of_case[0]:
				values = [run[counter] for run in of_case]
				counters[counter] = [min(values), statistics.median(values), max(values)]
		case = Case(int(of_case[0]["items"]), counters=counters)
		if "ratio" not in counters:
			times = [time_of(run) / run["calls"] for run in of_case]
			case.ns, case.spread = statistics.median(times), spread_of(times)
		cases[key] = case
	return cases, errors


def read_text(path):
	try:
		with open(path, encoding="utf-8") as file:
			return file.read().strip()
	except OSError:
		return ""


def run_command(command):
	try:
		return subprocess.run(command, capture_output=True, text=True, check=False).stdout
	except OSError:
		return ""


def describe_machine(context, repetitions):
	"""What the tables say about the machine that this runs on, and about the benchmarks' context."""
	cpu = dict(
		(part.strip() for part in line.split(":", 1)) for line in run_command(["lscpu"]).splitlines() if ":" in line
	)
	flags = cpu.get("Flags", "").split()
	wide = [name for flag, name in (("avx2", "AVX2"), ("avx512f", "AVX-512")) if flag in flags]
	memory = next((line.split()[1] for line in read_text("/proc/meminfo").splitlines() if "MemTotal" in line), "0")
	versions = run_command(["dpkg-query", "-W", "-f", "${Package} ${Version}\\n", *PACKAGES])
	return {
		"vendor": cpu.get("Vendor ID", "unknown"),
		"model_name": cpu.get("Model name", "unknown").replace("(R)", "").replace("(TM)", ""),
		"family": cpu.get("CPU family", "0"),
		"model": cpu.get("Model", "0"),
		"registers": " and ".join(wide) or "SSE2 only",
		"cores": context["num_cpus"],
		"virtual": cpu.get("Hypervisor vendor", ""),
		"caches": ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KiB" for c in context["caches"]),
		"memory": f"{int(memory) / 1048576:.0f} GiB",
		"kernel": os.uname().release,
		"compiler": f"{context['compiler']}, {context['flags'].strip()}",
		"vqsort": f"{context['vqsort_best_target']} at its best, {context['vqsort_avx2_target']} where held to AVX2",
		"packages": ", ".join(sorted(line for line in versions.splitlines() if " " in line)),
		"load": f"{max(context['load_avg'], default=0):.1f}",
		"date": context["date"][:10],
		"repetitions": repetitions,
	}


def processor_name(machine):
	"""As in "Intel Xeon Processor, family 6, model 143"."""
	return f"{machine['model_name']}, family {machine['family']}, model {machine['model']}"


def file_name(machine):
	"""A processor's file in Benchmarks/results, as in "intel-6-143"."""
	vendor = {"GenuineIntel": "intel", "AuthenticAMD": "amd"}.get(machine["vendor"], machine["vendor"].lower())
	return f"{vendor}-{machine['family']}-{machine['model']}"


def rounded(value):
	return float(f"{value:.4g}")


def save(results, path):
	"""One line for all counts of a competitor, so that a difference between two runs can be read."""
	lines = collections.defaultdict(dict)
	for (stage, what, who, size), case in results.cases.items():
		entry = {}
		if case.ns is not None:
			entry["ns"], entry["spread"] = rounded(case.ns), rounded(case.spread)
		if case.items != size:
			entry["items"] = case.items
		for counter, values in case.counters.items():
			entry[counter] = [rounded(value) for value in values]
		lines["/".join((stage, what, who))][str(size)] = entry
	with open(path, "w", encoding="utf-8") as file:
		file.write('{\n"machine": ' + json.dumps(results.machine, indent="\t") + ',\n"cases": {\n')
		file.write(",\n".join(f"{json.dumps(name)}: {json.dumps(counts)}" for name, counts in lines.items()))
		file.write("\n}\n}\n")


def read_json(path):
	"""What Web/bench has measured stays as it is in its file."""
	with open(path, encoding="utf-8") as file:
		data = json.load(file)
	if not isinstance(data, dict) or not {"machine", "cases"} <= data.keys():
		raise ValueError("it lacks a machine or cases")
	return data


def load(path):
	data = read_json(path)
	cases = {}
	for name, counts in data["cases"].items():
		for size, entry in counts.items():
			counters = {counter: entry[counter] for counter in COUNTERS if counter in entry}
			cases[(*name.split("/"), int(size))] = Case(
				entry.get("items", int(size)), entry.get("ns"), entry.get("spread"), counters)
	return Results(data["machine"], cases)


def load_all(paths, load_one=load):
	"""The results of each file; a file of something else ends the program with a sentence and 2."""
	found = []
	for path in sorted(paths):
		try:
			found.append(load_one(path))
		except (OSError, ValueError) as error:
			print(f"{os.path.basename(sys.argv[0])}: {path} is no file of results: {error}", file=sys.stderr)
			sys.exit(2)
	return found
