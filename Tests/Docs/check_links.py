#!/usr/bin/env python3
"""Checks that the files, headings and tests exist that the documents name. The argument is the repository's root.

A test is named as GoogleTest names it, `Suite.Test`, in a document under Docs.
"""
import re
import sys
from pathlib import Path
from urllib.parse import unquote

FOLDERS = ("Benchmarks", "Docs", "Runtime", "Samples", "Tests", "Tools", "Web", "cmake")
CODE = re.compile(r"^```.*?^```", re.S | re.M)
# Behind a text in brackets, in a definition at the beginning of a line, or in an attribute.
LINK = re.compile(r"\]\(([^)\s]+)\)|^\[[^]]+\]: (\S+)|\b(?:src|href)=\"([^\"]+)\"", re.M)


def anchors_of(document):
    """The anchors of a document's headings."""
    anchors = set()
    for heading in re.findall(r"^#+ (.+)$", CODE.sub("", document.read_text(encoding="utf-8")), re.M):
        plain = re.sub(r"\[([^]]*)\]\([^)]*\)|`", r"\1", heading).lower()
        anchors.add(re.sub(r"[^\w\- ]", "", plain).strip().replace(" ", "-"))
    return anchors


def main():
    root, problems, count = Path(sys.argv[1]).resolve(), [], 0
    documents = [path for path in root.glob("*.md")]
    documents += [path for folder in FOLDERS for path in (root / folder).rglob("*.md")]
    tests = set()
    for source in (root / "Tests").glob("*_test.cpp"):
        cases = re.findall(r"\bTEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\)", source.read_text(encoding="utf-8"))
        tests |= {f"{suite}.{name}" for suite, name in cases}
    for document in sorted(documents):
        name = document.relative_to(root)
        text = CODE.sub("", document.read_text(encoding="utf-8"))
        links = [unquote("".join(link)) for link in LINK.findall(text)]
        links = [link for link in links if not re.match(r"[a-z]+:", link)]
        for link in links:
            path, _, anchor = link.partition("#")
            target = (document.parent / path).resolve() if path else document
            if not target.exists():
                problems.append(f"{name}: there is no {link}")
            elif anchor and anchor not in anchors_of(target):
                problems.append(f"{name}: there is no heading for {link}")
        mentioned = re.findall(r"`([A-Z]\w+\.[A-Z]\w*_\w+)`", text) if "Docs" in name.parts else []
        problems += [f"{name}: there is no test {test}" for test in mentioned if test not in tests]
        paths = re.findall(r"`(?:\./)?((?:%s)/[\w./-]+)`" % "|".join(FOLDERS), text)
        problems += [f"{name}: there is no {path}" for path in paths if not (root / path).exists()]
        count += len(links) + len(mentioned) + len(paths)
    for problem in problems:
        print(problem)
    print(f"{count} links, tests and paths in {len(documents)} documents")
    sys.exit(bool(problems) or not count)


main()
