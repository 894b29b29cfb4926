#!/usr/bin/python3
"""Changes the library in one small place at a time, and sees whether the tests notice.

A mutant is Runtime/ with one small change: a comparison, a bound or a lane is another one, or a statement is dropped.
It is built in a copy of the tree under build/mutation. The whole suite runs on it, the cheapest tests first, until one
fails. If no test fails, the mutant survives: either a test is missing, or no result shows the change.

  ./Tools/mutate.py --count 200             tries 200 mutants of all of Runtime/, the same ones every time
  ./Tools/mutate.py --count 200 --seed 1    tries 200 other ones
  ./Tools/mutate.py --files kr_sort.h       tries mutants of one file
  ./Tools/mutate.py --matching '^VX_.* -> nothing'
                                            drops every report site: does a test miss each of them?
  ./Tools/mutate.py --list                  prints the mutants and stops
  ./Tools/mutate.py --resume                goes on where a run was stopped
  ./Tools/mutate.py --again                 tries the survivors of earlier runs with the tests of today

The verdicts are in build/mutation/verdicts.jsonl, and the report in build/mutation/report.md.
"""

import bisect
import collections
import concurrent.futures
import json
import os
import queue
import random
import re

from arguments import ArgumentParser
from trial_builds import ROOT, SUITE, Job, Suite, copy_tree, files_of_runtime, read_text, show_progress

WORK = os.path.join(ROOT, "build", "mutation")
BASE = os.path.join(WORK, "base")
VERDICTS = os.path.join(WORK, "verdicts.jsonl")
REPORT = os.path.join(WORK, "report.md")

# No test can see a fence or a prefetch go, nor the break that ends a switch.
UNSEEN = re.compile(r"WriteBarrier|_mm_sfence|_mm_prefetch|__builtin_prefetch|VX_PREFETCH_TO_WRITE|break;\s*}")

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
	text = read_text(os.path.join(tree, path))
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


def main():
	parser = ArgumentParser(__doc__)
	parser.add_argument("--count", type=int, help="how many mutants to draw, evenly from all; by default all of them")
	parser.add_argument("--seed", type=int, default=0, help="which mutants to draw: another number draws others")
	parser.add_argument("--jobs", type=int, default=1, help="how many mutants to try at a time")
	parser.add_argument("--files", nargs="+", help="only mutants of these files of Runtime/, named without folders")
	parser.add_argument("--matching", metavar="REGEX", help="only changes that match, as --list prints them")
	parser.add_argument("--list", action="store_true", help="print the mutants and stop")
	parser.add_argument("--resume", action="store_true", help="keep earlier verdicts, and try the other mutants")
	parser.add_argument("--again", action="store_true", help="keep earlier verdicts, and try the survivors again")
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
	suite = Suite(WORK, BASE, SUITE, arguments.jobs)
	jobs = queue.Queue()
	for number in range(arguments.jobs):
		jobs.put(Job(WORK, BASE, number))

	def judge(mutant):
		job = jobs.get()
		try:
			text = read_text(os.path.join(BASE, mutant.file))
			changed = text[:mutant.begin] + mutant.text + text[mutant.end:]
			return mutant, job.verdict(suite, {mutant.file: changed})
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
