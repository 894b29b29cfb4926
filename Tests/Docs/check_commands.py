#!/usr/bin/env python3
"""Checks the commands that documents name: that programs exist, and take the options and sections that stand behind
them. The argument is the repository's root.

A command is a line of a block of shell code, or stands between backticks and begins with a program. What a program
takes is what it says itself: with --help, or, if it has to be built first, in its source.
"""
import re
import subprocess
import sys
from pathlib import Path

BLOCK = re.compile(r"^ *```sh\n(.*?)^ *```", re.S | re.M)
FENCED = re.compile(r"^ *```.*?^ *```", re.S | re.M)
SPAN = re.compile(r"(?<!`)`([^`\n]+)`(?!`)")
SCRIPT = re.compile(r"(?:python3 )?(?:\./)?((?:Tools|Tests)/[\w/]+\.(?:sh|py))(?: (.*))?$")
# The viewer, which demo.sh builds and gives all of its options.
VIEWER = re.compile(r"(?:\./Tools/demo\.sh|particle_viewer)(?: (.*))?$")
VIEWER_SOURCE = "Samples/particle_viewer/app/arguments.cpp"
# These give options that they do not know to another program.
FORWARDING = {"Tools/demo.sh", "Tools/limits.sh", "Tools/install_packages.sh"}


def answer(root, script, *arguments):
    return subprocess.run([root / script, *arguments], capture_output=True, text=True, check=False, timeout=60)


def commands_of(text):
    """The commands of a document, without the comments behind them."""
    lines = [line for block in BLOCK.findall(text) for line in block.splitlines()]
    return [re.sub(r"\s+#.*", "", line).strip() for line in lines + SPAN.findall(FENCED.sub("", text))]


def options_of(words):
    return re.findall(r"(?<![\w-])--[a-z][\w-]*", words)


def problems_of(command, root, helps, sections):
    """What is wrong with a command."""
    viewer, script = VIEWER.match(command), SCRIPT.match(command)
    if viewer:
        known = options_of((root / VIEWER_SOURCE).read_text(encoding="utf-8")) + ["--help"]
        return [f"{option} of particle_viewer" for option in options_of(viewer[1] or "") if option not in known]
    if not script:
        return []
    path, words = script[1], script[2] or ""
    if path not in helps:
        return [] if (root / path).exists() else [path]
    missing = [f"{option} of {path}" for option in options_of(words) if option not in options_of(helps[path])]
    if path == "Tools/test.sh":
        missing += [f"section {word}" for word in words.split() if word[0] != "-" and word not in sections]
    return missing


def main():
    root, problems, count = Path(sys.argv[1]).resolve(), [], 0
    scripts = [f"Tools/{path.name}" for path in sorted((root / "Tools").iterdir())
        if path.suffix in (".sh", ".py") and path.read_bytes().startswith(b"#!")]
    helps = {}
    for script in scripts:
        if script == "Tools/demo.sh":
            continue
        helped = answer(root, script, "--help")
        helps[script] = helped.stdout
        if helped.returncode != 0 or script not in helped.stdout:
            problems.append(f"{script} --help: does not say how it is called")
        if script not in FORWARDING:
            refused = answer(root, script, "--no-such-option")
            if refused.returncode != 2 or len(refused.stderr.splitlines()) != 1:
                problems.append(f"{script}: does not refuse an unknown option with one sentence and exit code 2")
    sections = answer(root, "Tools/test.sh", "--list").stdout.split()
    folders = ("Benchmarks", "Docs", "Samples", "Tests", "Web")
    documents = [*root.glob("*.md"), *(path for folder in folders for path in (root / folder).rglob("*.md"))]
    for document in sorted(documents):
        for command in commands_of(document.read_text(encoding="utf-8")):
            count += bool(VIEWER.match(command) or SCRIPT.match(command))
            problems += [f"{document.relative_to(root)}: there is no {missing}"
                for missing in problems_of(command, root, helps, sections)]
    for problem in problems:
        print(problem)
    print(f"{count} commands in {len(documents)} documents, and {len(scripts)} scripts")
    sys.exit(bool(problems) or not count)


main()
