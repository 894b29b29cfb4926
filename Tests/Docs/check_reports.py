#!/usr/bin/env python3
"""Compares Docs/reports.md with the sources: every text that the library can report has one entry, under its kind
and the file that reports it, and every entry has a text. The argument is the repository's root.

An entry is "- `text`, `detail`, ...: what it means and what to do". The text is an assertion's condition, or its
message with the condition as detail; a warning with its sites; a sentence of the validation. Numbers in formatted texts
are written N, other insertions "…".
"""
import re
import sys
from collections import defaultdict
from pathlib import Path

CONDITIONS = {"VX_ASSERT", "VX_VERIFY"}
NAMED_CONDITIONS = {"VX_ASSERT_AS"}
MESSAGES = {"VX_ASSERT_MESSAGE", "VX_ASSERT_NOT_REACHED"}
WARNINGS = {"VX_WARN_AT_SITE", "WarnAtSite", "StreamOrWarn"}
SENTENCES = {"_Violation": "Violations", "_Advice": "Advice"}
REPORTS = CONDITIONS | NAMED_CONDITIONS | MESSAGES | WARNINGS | SENTENCES.keys()

# What StreamOrWarn hands on. Its callers' texts are read where they call it.
HANDED_ON = ["siteKey", "text"]

# What these end in. Whoever else calls it speaks past this check.
SERVICES = {
    "EvalAssert": {"vx_assert.h", "assert.cpp"},
    "EvalAssertFormat": {"vx_assert.h", "assert.cpp"},
    "VerifyAssertFalse_Breaks": {"vx_assert.h", "assert.cpp"},
    "Touch": {"kr_log_unique.h", "log_unique.cpp"},
    "WarnOnce": {"kr_log_unique.h", "log_unique.cpp"},
    "VX_WARN_ONCE": set(),
    "_Tell": {"sort_validation.cpp"},
}
MACROS = CONDITIONS | NAMED_CONDITIONS | MESSAGES | {"VX_WARN_AT_SITE", "VX_WARN_ONCE", "VX_ASSERT_SITE"}

TOKEN = re.compile(
    r"""
    //[^\n]* | /\*.*?\*/                          # comments
    | ^[^\S\n]* \# (?:\\.|[^\n\\])*            # a preprocessor line and those that continue it
    | "(?:\\.|[^"\\\n])*" | '(?:\\.|[^'\\\n])*'
    | \w+ | :: | [^\S\n]+ | .
    """,
    re.S | re.M | re.X,
)


def tokens_of(path, problems):
    """The tokens of a source, comments and preprocessor lines blanked."""
    tokens = []
    for token in TOKEN.findall(path.read_text(encoding="utf-8")):
        if token.lstrip().startswith("#"):
            macro = re.match(r"\s*#\s*define\s+(\w+)", token)
            if macro and macro[1] not in MACROS and re.search(r"\b(%s)\b" % "|".join(REPORTS | set(SERVICES)), token):
                problems.append(f"{path.name}: the macro {macro[1]} hides what its callers report")
        tokens.append(" " if token.startswith(("//", "/*")) or token.lstrip().startswith("#") else token)
    return tokens


def arguments_at(tokens, opening):
    """The arguments, as lists of tokens, of the call whose bracket opens there."""
    depth, arguments = 1, [[]]
    for token in tokens[opening + 1 :]:
        depth += (token in "([{") - (token in ")]}")
        if depth == 0:
            break
        if token == "," and depth == 1:
            arguments.append([])
        else:
            arguments[-1].append(token)
    return arguments


def bracket_behind(tokens, name):
    """Where the bracket of a call opens: behind its name, or behind its template arguments."""
    opening, depth = name + 1, 0
    while tokens[opening] == "<" or depth:
        depth += (tokens[opening] == "<") - (tokens[opening] == ">")
        opening += 1
    return opening


def as_written(tokens):
    return re.sub(r"\s+", " ", "".join(tokens)).strip()


def literal(tokens):
    """What adjacent string literals say, with N and … for what printf puts in; None of anything else."""
    text = ""
    for token in tokens:
        if token.startswith('"'):
            text += re.sub(r"\\(.)", r"\1", token[1:-1])
        elif token == "PRIu64":
            text += "u"
        elif not token.isspace():
            return None
    return re.sub(r"%[a-z]", "…", re.sub(r"%[du]", "N", text)) or None


def reports_of(path, problems):
    """What a source reports: by kind, the details of every text."""
    tokens = tokens_of(path, problems)
    reports, sites, formatted = defaultdict(lambda: defaultdict(set)), defaultdict(set), None
    names = ["", ""]  # the last two tokens that are no blanks
    aliases = defaultdict(set)  # other names of sites
    for alias, site in re.findall(r"(\w+) = Site::(\w+);", "".join(tokens)):
        aliases[alias].add(site)
    for i, name in enumerate(tokens):
        previous, names = names, [names[1], name] if not name.isspace() else names
        if name in SERVICES and path.name not in SERVICES[name]:
            problems.append(f"{path.name}: it calls {name} by itself")
        declared = previous[1] == "void" or (name in SENTENCES and previous[1] == "::")
        if declared or name not in REPORTS | {"Format", "VX_SITE_KEY"}:
            continue
        opening = bracket_behind(tokens, i)
        if tokens[opening] != "(":
            problems.append(f"{path.name}: a {name} without its bracket")
            continue
        arguments = arguments_at(tokens, opening)
        if name == "Format":
            formatted = literal(arguments[0])
        elif name == "VX_SITE_KEY":
            sites[previous[0]].add(literal(arguments[0]))
        elif name in CONDITIONS:
            reports["Assertions"][", ".join(map(as_written, arguments))]
        elif name in NAMED_CONDITIONS:
            reports["Assertions"][literal(arguments[0])]
        elif name == "VX_ASSERT_NOT_REACHED":
            reports["Assertions"][literal(arguments[0])].add("false")
        elif name == "VX_ASSERT_MESSAGE":
            reports["Assertions"][literal(arguments[1])].add(as_written(arguments[0]))
        elif name in SENTENCES:
            reports[SENTENCES[name]][literal(arguments[0])]
        elif list(map(as_written, arguments)) != HANDED_ON:
            text = formatted if as_written(arguments[1]) == "message.Data()" else literal(arguments[1])
            site = literal(arguments[0])
            # A name, a name of a name, or a choice of names.
            written = set(re.findall(r"\w+", as_written(arguments[0])))
            known = written.union(*(aliases[each] for each in written)) & sites.keys()
            reports["Warnings"][text] |= {site} if site else set().union(*(sites[each] for each in known))
    if any(None in texts for texts in reports.values()):
        problems.append(f"{path.name}: it reports a text that does not stand beside the report")
    return reports


def entries_of(document, problems):
    """What the document explains: by kind and file, the details of every text."""
    entries, section = defaultdict(dict), None
    for block in re.split(r"\n(?=- |#+ )|\n\n", document.read_text(encoding="utf-8")):
        block = " ".join(block.split())
        if heading := re.match(r"#+ (\w+) of `([\w.]+)`$", block):
            section = heading.groups()
        elif block.startswith("#"):
            section = None
        elif section and block.startswith("- "):
            entry = re.match(r"- (`[^`]+`(?:, `[^`]+`)*): \S", block)
            text, *details = re.findall(r"`([^`]+)`", entry[1]) if entry else [block]
            if not entry or text in entries[section]:
                problems.append(f"no entry, or its second one: {text}")
            entries[section][text] = set(details)
    return entries


def main():
    root, problems, reports = Path(sys.argv[1]), [], {}
    for path in sorted((root / "Runtime").rglob("*")):
        if path.suffix in (".h", ".cpp"):
            reports |= {(kind, path.name): texts for kind, texts in reports_of(path, problems).items()}
    entries = entries_of(root / "Docs/reports.md", problems)
    for section in sorted(reports.keys() | entries.keys()):
        where = "%s of %s" % section
        reported, explained = reports.get(section, {}), entries.get(section, {})
        problems += [f"{where}: nothing explains: {text}" for text in reported.keys() - explained.keys()]
        problems += [f"{where}: nothing reports: {text}" for text in explained.keys() - reported.keys()]
        problems += [
            f"{where}: under {sorted(reported[text])}, not {sorted(explained[text])}: {text}"
            for text in reported.keys() & explained.keys()
            if reported[text] != explained[text]
        ]
    for problem in problems:
        print(problem)
    print(f"{sum(map(len, reports.values()))} texts, {sum(map(len, entries.values()))} entries")
    sys.exit(bool(problems) or not reports)


main()
