#!/usr/bin/env python3
"""Shows doxygen a header as its readers see it; called with the header, once for each.

The first comment of a header says what the file is for. In a contract, a line "/// name  what holds for it" is an entry
of a list, and what stands below its text belongs to it. Lines stay where they are, so that warnings name the right
ones.
"""
import re
import sys

ENTRY = re.compile(r"^(\s*/// )(\S+(?:[ ,] ?\S+)*?)(  +)(\S.*)$")


def with_file_comment(lines):
    start = next(i for i, line in enumerate(lines) if line.startswith("//"))
    lines[start - 1] = "/// @file"
    for i in range(start, len(lines)):
        if not lines[i].startswith("//"):
            return lines
        lines[i] = "/" + lines[i]
    return lines


def with_lists(lines):
    column = None  # of an entry's text
    for i, line in enumerate(lines):
        entry = ENTRY.match(line)
        if entry:
            opening, name, gap, text = entry.groups()
            column = len(opening + name + gap)
            lines[i] = f"{opening}- <b>{name}</b> {text}"
        elif column and re.match(rf"\s*/// {{2,}}\S", line):
            lines[i] = re.sub(r"/// +", "///   ", line, count=1)
        elif column and re.match(r"\s*/// \S", line):
            lines[i] = line.replace("/// ", "/// @after_list ", 1)
            column = None
        else:
            column = None
    return lines


with open(sys.argv[1], encoding="utf-8") as header:
    print("\n".join(with_lists(with_file_comment(header.read().split("\n")))), end="")
