#!/usr/bin/env python3
"""Compares instruction counts with recorded ones. A rise of more than 3 % fails; a fall of more than 3 % is pointed
out.

compare.py RECORDED COUNTED

Each file has a line "compiler VERSION" and a line per case, its name and its count. Compilers count differently, so
counts of another version are not compared, and that passes. Cases ending in _avx2 are missing where the processor has
no such lanes.
"""

import sys

TOLERANCE_IN_PERCENT = 3
RECORD = "./Tools/instruction_counts.sh --record"


def read(path):
    """The compiler's version and the count of each case."""
    compiler = None
    counts = {}
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            words = line.split()
            if len(words) == 2 and words[0] == "compiler":
                compiler = words[1]
            elif len(words) == 2 and words[1].isdecimal() and int(words[1]) > 0:
                counts[words[0]] = int(words[1])
            else:
                sys.exit(f"compare.py: {path}:{number}: not a case's name and its count: {line.strip()}")
    if compiler is None or not counts:
        sys.exit(f"compare.py: {path}: no compiler or no count in it")
    return compiler, counts


def complaints(recorded, counted):
    """A sentence for each case that fails. What else there is to say of a case is printed."""
    for case in sorted(recorded.keys() - counted.keys()):
        if case.endswith("_avx2"):
            print(f"{case}: not counted, this processor has no AVX2")
        else:
            yield f"{case}: recorded, but not counted; if it is gone on purpose, record anew: {RECORD}"
    for case, count in counted.items():
        if case not in recorded:
            yield f"{case}: {count} instructions, and no count to compare with; record one: {RECORD}"
            continue
        change = 100 * (count - recorded[case]) / recorded[case]
        print(f"{case:<40} {count:>8} recorded {recorded[case]:>8} {change:>+6.1f} %")
        if change > TOLERANCE_IN_PERCENT:
            yield (
                f"{case}: {count} instructions are {change:.1f} % more than the {recorded[case]} recorded; "
                f"if they are worth it, say why in the commit and record them: {RECORD}"
            )
        elif change < -TOLERANCE_IN_PERCENT:
            print(f"{case}: {-change:.1f} % fewer instructions; to keep it so, record them: {RECORD}")


def main():
    if len(sys.argv) != 3:
        sys.exit("compare.py: it takes two files: compare.py RECORDED COUNTED")
    recorded_with, recorded = read(sys.argv[1])
    counted_with, counted = read(sys.argv[2])
    if recorded_with != counted_with:
        print(
            f"not compared: the counts are recorded with g++ {recorded_with}, and this is g++ {counted_with}; "
            f"to compare with this one from now on: {RECORD}"
        )
        return
    failures = list(complaints(recorded, counted))
    if failures:
        sys.exit("\n".join(failures))
    print(f"no case takes over {TOLERANCE_IN_PERCENT} % more instructions than recorded")


main()
