#!/usr/bin/python3
"""Builds bugs of meaning into the library, one at a time, and sees whether the tests notice.

The bugs are written by hand, in Tests/Bugs: they are what a colleague might get wrong. (mutate.py makes the changes
that a machine can find.) A bug is a paragraph:

    page-numbers-cut-to-16-bits                           its name
    A draw call of more than 65,536 pages draws those...  what it breaks
    tried by: threads                                     what tries it, if not the suite; see --list
    survives: no test can see a fence                     why no test can tell, if none can
    mesh_triangle_sorter.cpp                              the file
    - pageId = 0;                                         the text that the file has, once, with any white space,
    + pageId = 0; pageId = u16(pageId);                   and the text with the bug; lines with neither sign stay

Each bug is built in a copy of the tree under build/bugs. The tests run, the cheapest first, until one fails.

  ./Tools/bugs.py                        tries all bugs
  ./Tools/bugs.py --only NAME...         tries these bugs
  ./Tools/bugs.py --in radix_sort        tries the bugs of one file of Tests/Bugs
  ./Tools/bugs.py --resume               skips bugs that earlier runs caught, unless the bug or the tests have changed
  ./Tools/bugs.py --short                tries five bugs, on few tests
  ./Tools/bugs.py --check                checks that each bug applies, and stops
  ./Tools/bugs.py --list                 prints the bugs and stops

build/bugs/verdicts.jsonl says what became of each bug, and which test caught it. The exit code is 1 if a bug survives
without an explanation, does not apply, or does not compile.
"""

import collections
import concurrent.futures
import glob
import hashlib
import json
import os
import queue
import re
import sys
import threading
import time

from arguments import ArgumentParser
from trial_builds import (CONFIGURATIONS, ROOT, SUITE, Job, Suite, copy_tree, files_of_runtime, read_text,
	show_progress)

WORK = os.path.join(ROOT, "build", "bugs")
BASE = os.path.join(WORK, "base")
VERDICTS = os.path.join(WORK, "verdicts.jsonl")
BUGS = os.path.join(ROOT, "Tests", "Bugs")

# A bug, and its edits as (file name, old text, new text).
Bug = collections.namedtuple("Bug", "name group breaks tried_by survives edits text")

# Enough to see that the command works: bugs that the tests of a few files catch, so that no other file is built.
SHORT = [
	"expand-u32-x6-second-record-first", "expand-three-words-base-in-low-half-alone",
	"expand-u16-x3-offset-without-odd",
	"sums-inclusive-sse2", "ranks-include-equal-keys-sse2",
]
SHORT_TESTS = ["expand_vector_test", "expand_scalar_test", "wide_lanes_test"]


class Malformed(Exception):
	pass


# Bugs.

def parse_bug(group, paragraph):
	lines = paragraph.split("\n")
	if len(lines) < 4 or not re.fullmatch(r"[a-z0-9-]+", lines[0]):
		raise Malformed("%s: a bug has a name, a sentence, a file and a change, unlike:\n%s" % (group, paragraph))
	name, breaks = lines[:2]
	tried_by, survives = [SUITE.name], None
	edits = []
	for line in lines[2:]:
		word = re.match(r"(tried by|survives): (.*)", line)
		if word and word.group(1) == "tried by":
			tried_by = word.group(2).split(", ")
		elif word:
			survives = word.group(2)
		elif re.fullmatch(r"\w+\.(h|cpp)", line):
			edits.append((line, [], []))
		elif edits and line[:1] in "-+ \t":
			_, old, new = edits[-1]
			if line[0] != "+":
				old.append(line[1:])
			if line[0] != "-":
				new.append(line[1:])
		else:
			raise Malformed("%s: %s: what is this line?\n%s" % (group, name, line))
	for configuration in tried_by:
		if configuration not in CONFIGURATIONS:
			raise Malformed("%s: %s: there is no configuration %s" % (group, name, configuration))
	if not edits or any(old == new or not old for _, old, new in edits):
		raise Malformed("%s: %s: a change has an old text and a new one" % (group, name))
	edits = [(file, "\n".join(old), "\n".join(new)) for file, old, new in edits]
	return Bug(name, group, breaks, tried_by, survives, edits, paragraph)


def all_bugs():
	bugs = []
	for path in sorted(glob.glob(os.path.join(BUGS, "*.txt"))):
		group = os.path.splitext(os.path.basename(path))[0]
		for paragraph in re.split(r"\n\s*\n", read_text(path).strip()):
			if not paragraph.startswith("#"):
				bugs.append(parse_bug(group, paragraph))
	names = collections.Counter(bug.name for bug in bugs)
	for name, count in names.items():
		if count > 1:
			raise Malformed("%d bugs are called %s" % (count, name))
	return bugs


def pattern_of(old):
	"""Finds the text whatever the white space: a formatter may break the lines elsewhere."""
	tokens = re.findall(r"\w+|[^\w\s]", old)
	pattern = re.escape(tokens[0])
	for before, token in zip(tokens, tokens[1:]):
		are_words = re.match(r"\w", before[-1]) and re.match(r"\w", token[0])
		pattern += (r"\s+" if are_words else r"\s*") + re.escape(token)
	first = r"(?<!\w)" if re.match(r"\w", tokens[0]) else ""
	last = r"(?!\w)" if re.match(r"\w", tokens[-1]) else ""
	return first + pattern + last


def applied(bug, tree, paths):
	"""The texts of the files that the bug changes, by path; raises where it does not apply."""
	texts = {}
	for file, old, new in bug.edits:
		if file not in paths:
			raise Malformed("%s: Runtime/ has no file %s" % (bug.name, file))
		path = paths[file]
		text = texts.get(path) or read_text(os.path.join(tree, path))
		found = list(re.finditer(pattern_of(old), text))
		if len(found) != 1:
			raise Malformed("%s: %s has this text %d times instead of once:\n%s" % (bug.name, file, len(found), old))
		texts[path] = text[:found[0].start()] + new.strip("\n") + text[found[0].end():]
	return texts


# Verdicts.

def fingerprint(bug, texts, tests):
	return hashlib.sha256("\0".join([bug.text, *sorted(texts.values()), tests]).encode()).hexdigest()


def text_of_tests(tree):
	paths = sorted(path for path in glob.glob(tree + "/Tests/**/*", recursive=True) if path.endswith((".h", ".cpp")))
	return "".join(map(read_text, paths))


def read_verdicts():
	if not os.path.exists(VERDICTS):
		return {}
	return {verdict["bug"]: verdict for verdict in map(json.loads, read_text(VERDICTS).splitlines())}


def say(text):
	show_progress("")
	print(text, flush=True)


def summary(verdicts):
	"""The closing line, and whether all is well."""
	counts = collections.Counter(verdict["verdict"] for verdict in verdicts)
	explained = sum(verdict["verdict"] == "survived" and verdict["survives"] is not None for verdict in verdicts)
	tried = counts["caught"] + counts["survived"]
	share = 100 * counts["caught"] / tried if tried else 0
	line = "%d bugs: %d caught (%.1f %%), %d survived, %d of these explained" % (
		len(verdicts), counts["caught"], share, counts["survived"], explained)
	for verdict in ("does not apply", "does not compile"):
		if counts[verdict]:
			line += ", %d %s" % (counts[verdict], verdict)
	return line, counts["caught"] + explained == len(verdicts)


def main():
	parser = ArgumentParser(__doc__)
	parser.add_argument("--only", metavar="NAME", nargs="+", help="try these bugs only")
	parser.add_argument("--in", metavar="FILE", nargs="+", dest="groups",
		help="try the bugs of these files of Tests/Bugs only")
	parser.add_argument("--short", action="store_true",
		help="try %d bugs on few tests, to see that this script works" % len(SHORT))
	parser.add_argument("--jobs", type=int, default=1, help="how many bugs to try at a time")
	parser.add_argument("--resume", action="store_true", help="skip bugs that earlier runs caught")
	parser.add_argument("--check", action="store_true", help="check that each bug applies, and stop")
	parser.add_argument("--list", action="store_true", help="print the bugs and stop")
	arguments = parser.parse_args()
	if arguments.jobs < 1:
		parser.error("--jobs is at least 1")

	try:
		bugs = all_bugs()
	except Malformed as malformed:
		sys.exit("bugs.py: %s" % malformed)
	if arguments.short:
		arguments.only = SHORT
	for name in arguments.only or []:
		if all(bug.name != name for bug in bugs):
			parser.error("Tests/Bugs has no bug %s" % name)
	for name in arguments.groups or []:
		if all(bug.group != name for bug in bugs):
			parser.error("Tests/Bugs has no file %s.txt" % name)
	if arguments.only:
		bugs = [bug for bug in bugs if bug.name in arguments.only]
	if arguments.groups:
		bugs = [bug for bug in bugs if bug.group in arguments.groups]

	if arguments.list:
		for bug in bugs:
			tried_by = "" if bug.tried_by == [SUITE.name] else " (%s)" % ", ".join(bug.tried_by)
			print("%s: %s: %s%s" % (bug.group, bug.name, bug.breaks, tried_by))
		return

	tree = ROOT
	if not arguments.check:
		os.makedirs(WORK, exist_ok=True)
		copy_tree(ROOT, BASE)  # the checkout may change meanwhile
		tree = BASE
	paths = {os.path.basename(path): path for path in files_of_runtime(tree, ".h") + files_of_runtime(tree, ".cpp")}
	changed = {}
	verdicts = read_verdicts()
	tried = []  # this run's verdicts
	for bug in bugs:
		try:
			changed[bug.name] = applied(bug, tree, paths)
		except Malformed as malformed:
			say("does not apply: %s" % malformed)
			tried.append({"bug": bug.name, "survives": bug.survives, "verdict": "does not apply"})
	if arguments.check:
		say("%d of %d bugs apply" % (len(changed), len(bugs)))
		sys.exit(1 if tried else 0)

	tests = text_of_tests(tree)
	prints = {bug.name: fingerprint(bug, changed[bug.name], tests) for bug in bugs if bug.name in changed}
	waiting = []
	for bug in bugs:
		kept = verdicts.get(bug.name, {})
		if arguments.resume and kept.get("verdict") == "caught" and kept["print"] == prints.get(bug.name):
			tried.append(kept)
		elif bug.name in changed:
			waiting.append(bug)

	waiting.sort(key=lambda bug: bug.tried_by != [SUITE.name])  # what is built for a few bugs alone comes last
	suites = {}
	building = threading.Lock()

	def suite_of(name):
		with building:
			if name not in suites:
				test_files = SHORT_TESTS if arguments.short else None
				suites[name] = Suite(WORK, BASE, CONFIGURATIONS[name], arguments.jobs, test_files)
			return suites[name]

	jobs = queue.Queue()
	for number in range(arguments.jobs if waiting else 0):
		jobs.put(Job(WORK, BASE, number))

	def judge(bug):
		job = jobs.get()
		begin = time.monotonic()
		entry = {"bug": bug.name, "survives": bug.survives, "print": prints[bug.name]}
		try:
			for name in bug.tried_by:
				verdict, test = job.verdict(suite_of(name), changed[bug.name])
				entry.update(verdict="caught" if verdict == "killed" else verdict, test=test, tried_by=name)
				if verdict != "survived":
					break
		finally:
			jobs.put(job)
		entry["seconds"] = round(time.monotonic() - begin, 1)
		return entry

	def note(entry):
		tried.append(entry)
		verdicts[entry["bug"]] = entry
		with open(VERDICTS + ".new", "w", encoding="utf-8") as file:
			file.writelines(json.dumps(verdicts[name]) + "\n" for name in sorted(verdicts))
		os.replace(VERDICTS + ".new", VERDICTS)
		if entry["verdict"] == "survived":
			say("survived: %s: %s" % (entry["bug"], entry["survives"] or "unexplained"))
		elif entry["verdict"] != "caught":
			say("%s: %s" % (entry["verdict"], entry["bug"]))

	with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
		futures = [pool.submit(judge, bug) for bug in waiting]
		try:
			for done, future in enumerate(concurrent.futures.as_completed(futures), 1):
				note(future.result())
				show_progress("%d of %d bugs" % (done, len(waiting)))
		except BaseException:  # tests that fail without a bug, or a key that ends the run: nothing more is tried
			pool.shutdown(wait=False, cancel_futures=True)
			raise
	line, good = summary(tried)
	say(line)
	sys.exit(0 if good else 1)


if __name__ == "__main__":
	main()
