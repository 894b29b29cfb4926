#!/usr/bin/env python3
"""Checks in every text of the tree what an editor does not show: columns, tabs and spaces, ends of lines, and words.

  ./Tools/check_text.py            names every line that is not as it should be, and fails if there is one
  ./Tools/check_text.py --wrap     first moves words of comments and of documents that pass column 120 to the next line
  ./Tools/check_text.py --commits [SINCE]
                                   looks at the messages of commits instead: those after SINCE; by default those that
                                   the upstream of the branch does not have, or the last 30

Columns count a tab as four. What has no place to break may pass column 120: rows of tables, links, addresses, rows that
clang-format aligns, and what programs write.
"""

import re
import subprocess
import sys
from pathlib import Path

from arguments import ArgumentParser

ROOT = Path(__file__).resolve().parent.parent
COLUMNS, TAB = 120, 4

TEXTS = re.compile(
	r"\.(c|h|cpp|hpp|inl|py|sh|cmake|rs|js|mjs|ts|css|html|md|txt|in|vert|frag|gdb|natvis|json|map|dict)$"
	r"|(^|/)(run|Doxyfile|COPYRIGHT|\.clang-format|\.clang-tidy|\.editorconfig|\.gitignore)$")
# What programs write, and what they are compared with.
WRITTEN = re.compile(
	r"^(Benchmarks/results/|Tests/Fuzz/corpus/|Tests/Abi/recorded_|Tests/Debug/printers\.txt"
	r"|Tests/InstructionCounts/recorded_|Docs/Doxyfile)")
# Code in which a line is as long as it is: clang-format aligns rows of tables and breaks no string, JSON has none
# broken.
FORMATTED = re.compile(r"\.(c|h|cpp|json|natvis)$")
COMMENT = {
	"//": re.compile(r"^(\s*(?:///<|///|//!|//|\*) )(\s*)(\S.*)$"),
	"#": re.compile(r"^(\s*# )(\s*)(\S.*)$"),
}
COMMENT_OF = [
	(re.compile(r"\.(c|h|cpp|rs|js|mjs|ts|vert|frag)$"), "//"),
	(re.compile(r"\.(sh|cmake|py|gdb|txt|in)$|/run$|clang-tidy$"), "#"),
]

INDENTED_BY_TABS = re.compile(r"(\.sh|\.cmake|CMakeLists\.txt|/run)$")
LAST = 30
SUBJECT = re.compile(r"^[\w./-]+(, [\w./-]+)*: [A-Z]\S* .*[^.]$")

# Words of planning, which say nothing of the library: they belong in a tracker. The marks of unfinished work have a
# letter in brackets, so that a search of the tree for them does not find this line.
PLANNING = re.compile(
	r"\b(TO[D]O|FIX[M]E|X[X]X|HA[C]K|sprint|backlog|milestones?|deliverables?|user story|pull request|code review"
	r"|(goal|target|objective)s? (was|were|is|are|has been|have been)? ?(reached|met|achieved)"
	r"|(reach|reached|meet|met) (the|a|its|all|every|this|these|that) (goal|objective)s?"
	r"|(issue|ticket|task|requirement) #?\d+|as requested|acceptance criteri\w+)\b", re.I)


def files():
	"""The files of the tree, by git, or where there is none by looking."""
	command = ["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
	listed = subprocess.run(command, capture_output=True, text=True, check=False)
	if listed.returncode == 0:
		names = [name for name in listed.stdout.split("\0") if name]
	else:
		names = [str(path.relative_to(ROOT)) for path in ROOT.rglob("*") if path.is_file()]
		names = [name for name in names if not name.startswith(("build/", "out/", ".git/"))]
	return sorted(name for name in set(names) if TEXTS.search(name) and (ROOT / name).is_file())


def width(line):
	return len(line.expandtabs(TAB))


def comment_of(name):
	return next((COMMENT[kind] for pattern, kind in COMMENT_OF if pattern.search(name)), None)


MARKER = re.compile(r"^([-*+]|\d+\.) ")
NO_PARAGRAPH = re.compile(r"^([-*+] |\d+\. |[|#>]|```|!\[|@|\\|\"\"\")")


def split(text, room):
	"""The text up to the last space at which it may be broken within the room, and the rest."""
	marker = MARKER.match(text)
	inCode, inLink, first, last = False, 0, marker.end() if marker else 0, None
	for at, character in enumerate(text):
		inCode ^= character == "`"
		inLink += (text[at - 1:at + 1] == "](") - (character == ")" and inLink > 0)
		if character == " " and at >= first and at <= room and not inCode and not inLink and \
				not NO_PARAGRAPH.match(text[at + 1:]):
			last = at
	return (text, "") if last is None else (text[:last], text[last + 1:])


def is_table(text):
	"""Whether a text has columns of its own, as in a list of options."""
	return re.search(r"\S {3,}\S", text) is not None


def parts(kind, pattern, line):
	"""Leader, indentation and text of a line of prose or of a comment, or None."""
	if is_table(line):
		return None
	if kind == "prose":
		match = re.match(r"^()(\s*)(\S.*)$", line)
		return match.groups() if match and not re.match(r"[|#>]|```|!\[|<", match[3]) else None
	match = pattern.match(line) if pattern and kind == "code" else None
	return match.groups() if match else None


def kinds(name, lines):
	"""For each line, whether it is prose, code with its comments, or neither."""
	inside, result = False, []
	for line in lines:
		document = re.search(r"<<-?\s*['\"]?(\w+)", line) if name.endswith(".sh") and not inside else None
		if name.endswith(".md"):
			fence = line.lstrip().startswith("```")
			result.append("fenced" if fence or inside else "prose")
			inside ^= fence
		elif name.endswith(".py"):
			result.append("prose" if inside or line.lstrip().startswith('"""') else "code")
			inside ^= line.count('"""') % 2 == 1
		elif name.endswith(".sh"):
			inside = inside if inside and line.strip() != inside else False
			result.append("fenced" if inside else "code")
			inside = document[1] if document else inside
		else:
			result.append("code")
	return result


def breakable(name, kind, line):
	"""Leader, indentation, the words of a line that fit, and those that do not, or None where it has no place to
	break."""
	found = parts(kind, comment_of(name), line)
	if not found:
		return None
	leader, indentation, text = found
	head, rest = split(text, COLUMNS - width(leader + indentation))
	return (leader, indentation, head, rest) if rest else None


def wrapped(name, lines):
	"""The lines, where words beyond the last column have moved to the next line of their paragraph."""
	pattern, result = comment_of(name), []
	lines = list(zip(kinds(name, lines), lines))
	while lines:
		kind, line = lines.pop(0)
		found = breakable(name, kind, line) if width(line) > COLUMNS else None
		if not found:
			result.append(line)
			continue
		leader, indentation, head, rest = found
		result.append(leader + indentation + head)
		marker = MARKER.match(head)
		indentation += " " * (marker.end() if marker else 0)
		following = parts(*lines[0][:1], pattern, lines[0][1]) if lines else None
		if following and following[:2] == (leader, indentation) and not NO_PARAGRAPH.match(following[2]):
			rest += " " + following[2]
			lines.pop(0)
		lines.insert(0, (kind, leader + indentation + rest))
	return result


def wrap():
	for name in files():
		if WRITTEN.search(name) or name.startswith("Tests/Bugs/"):
			continue
		text = (ROOT / name).read_text(encoding="utf-8")
		changed = "\n".join(wrapped(name, text.split("\n")))
		if changed != text:
			(ROOT / name).write_text(changed, encoding="utf-8")
			print(f"{name}: wrapped")


def columns(name, lines):
	"""Complaints of lines that are too long and need not be."""
	for number, (kind, line) in enumerate(zip(kinds(name, lines), lines), 1):
		if width(line) <= COLUMNS:
			continue
		isCode = kind == "fenced" or kind == "code" and not parts(kind, comment_of(name), line)
		hasSpace = " " in line.strip()
		withoutStrings = re.sub(r'"(\\.|[^"\\])*"', '""', line)
		if isCode and FORMATTED.search(name):
			hasSpace = not line.lstrip().startswith("{") and re.search(r"//.* ", withoutStrings) is not None
		elif name.endswith(".html"):
			hasSpace = " " in withoutStrings.strip()
		if isCode and hasSpace or not isCode and breakable(name, kind, line):
			yield f"{name}:{number}: {width(line)} columns, of {COLUMNS}"


def spaces(name, text, lines):
	"""Complaints of tabs, spaces and ends of lines."""
	if "\r" in text:
		yield f"{name}: ends of lines are more than a line feed"
	if text and not text.endswith("\n") or text.endswith("\n\n"):
		yield f"{name}: does not end with one line feed"
	bySpaces = name.endswith(".py") and any(
		kind == "code" and line.startswith("    ") for kind, line in zip(kinds(name, lines), lines))
	for number, (kind, line) in enumerate(zip(kinds(name, lines), lines), 1):
		if line != line.rstrip():
			yield f"{name}:{number}: blanks at the end"
		if re.search(r"[^\t]\t", line) and not name.startswith("Tests/Bugs/"):
			yield f"{name}:{number}: a tab behind text or a space"
		if INDENTED_BY_TABS.search(name) and re.match(r"\t* {4}", line) and kind == "code":
			yield f"{name}:{number}: indented by spaces"
		if bySpaces and kind == "code" and line.startswith("\t"):
			yield f"{name}:{number}: indented by a tab, and other lines by spaces"


def words(name, lines):
	"""Complaints of words of planning."""
	for number, line in enumerate(lines, 1):
		if name != "Tools/check_text.py":
			yield from (f"{name}:{number}: \"{match[0].strip()}\"" for match in PLANNING.finditer(line))


def check_files():
	problems, count = [], 0
	for name in files():
		text = (ROOT / name).read_text(encoding="utf-8")
		lines = text.split("\n")
		problems += words(name, lines)
		if not WRITTEN.search(name):
			problems += [*columns(name, lines), *spaces(name, text, lines)]
		count += 1
	return problems, f"{count} texts keep to {COLUMNS} columns, to tabs and spaces, and to what they are about"


def git(*arguments):
	result = subprocess.run(["git", "-C", str(ROOT), *arguments], capture_output=True, text=True, check=False)
	return result.stdout.strip() if result.returncode == 0 else None


def check_commits(since):
	"""Complaints of messages. A shallow clone has fewer commits to look at, and an unpacked archive none."""
	base = since or git("merge-base", "@{upstream}", "HEAD")
	form = ["log", "--no-merges", "--format=%h%x00%s%x00%b%x01"]
	log = git(*form, f"{base}..HEAD") if base else ""
	if log == "" and not since:
		log = git(*form, "-n", str(LAST))
	if log is None:
		return ([f"there is no commit {since}"] if since else []), "there are no commits to look at"
	problems, commits = [], [commit.strip("\n").split("\0") for commit in log.split("\1") if commit.strip()]
	for short, subject, body in commits:
		if not SUBJECT.match(subject):
			problems.append(f"{short}: a subject is `area: Imperative`, and this is: {subject}")
		if not re.sub(r"(?m)^[A-Z][\w-]+: .*$", "", body).strip():
			problems.append(f"{short}: has no body that says why, and what shows it: {subject}")
		problems += [f"{short}: \"{match[0].strip()}\"" for match in PLANNING.finditer(subject + "\n" + body)]
	return problems, f"{len(commits)} commits have a subject and a body"


def main():
	parser = ArgumentParser(__doc__)
	parser.add_argument("--wrap", action="store_true", help="first move words beyond column 120 to the next line")
	parser.add_argument("--commits", nargs="?", const="", metavar="SINCE",
		help="look at the messages of commits instead")
	arguments = parser.parse_args()
	if arguments.wrap:
		wrap()
	problems, sentence = check_files() if arguments.commits is None else check_commits(arguments.commits)
	for problem in problems:
		print(problem)
	if not problems:
		print(sentence)
	sys.exit(bool(problems))


if __name__ == "__main__":
	main()
