#!/usr/bin/env python3
"""Tests what Tools/check_text.py says of columns, spaces, words and commits. Called with the folder of Tools."""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, sys.argv.pop(1))
import check_text

WORD = "word " * 30  # 150 columns with its last blank


class Wrap(unittest.TestCase):
    def test_a_comment_goes_on_in_its_next_line(self):
        lines = check_text.wrapped("a.cpp", ["\t// " + WORD.strip(), "\t// end.", "\tint i;"])
        self.assertEqual(lines, ["\t// " + ("word " * 22).strip(), "\t// " + "word " * 8 + "end.", "\tint i;"])

    def test_an_item_goes_on_under_its_text(self):
        lines = check_text.wrapped("a.md", ["- " + WORD.strip(), "- next"])
        self.assertEqual(lines, ["- " + ("word " * 23).strip(), "  " + ("word " * 7).strip(), "- next"])

    def test_spans_of_code_stay_whole(self):
        (line,) = check_text.wrapped("a.md", ["- `" + WORD.strip() + "`"])
        self.assertEqual(list(check_text.columns("a.md", [line])), [])

    def test_code_and_tables_stay(self):
        lines = ["```sh", WORD.strip(), "```", "| " + WORD + "|"]
        self.assertEqual(check_text.wrapped("a.md", lines), lines)

    def test_what_was_wrapped_is_in_its_columns(self):
        for name, leader in (("a.cpp", "// "), ("a.sh", "# "), ("a.md", ""), ("a.rs", "/// ")):
            lines = check_text.wrapped(name, [leader + WORD * 10])
            self.assertEqual(list(check_text.columns(name, lines)), [], name)


class Look(unittest.TestCase):
    def found(self, name, text):
        lines = text.split("\n")
        found = [*check_text.columns(name, lines), *check_text.spaces(name, text, lines)]
        found += check_text.words(name, lines)
        return [sentence.split(": ", 1)[1] for sentence in found]

    def test_columns(self):
        self.assertEqual(self.found("a.py", "x" * 119 + " y\n"), ["121 columns, of 120"])
        self.assertEqual(self.found("a.sh", "\t" + "x" * 114 + " y\n"), [])
        self.assertEqual(self.found("a.sh", "\t" + "x" * 115 + " y\n"), ["121 columns, of 120"])
        self.assertEqual(self.found("a.cpp", "int x; // " + WORD.strip() + "\n"), ["159 columns, of 120"])

    def test_places_that_cannot_break(self):
        self.assertEqual(self.found("a.md", "| " + WORD + "|\n"), [])
        self.assertEqual(self.found("a.md", "[" + "x" * 150 + "](y)\n"), [])
        self.assertEqual(self.found("a.cpp", '\t{"' + WORD + '", 1}, // row\n'), [])
        self.assertEqual(self.found("a.html", '\ttitle="' + WORD + '"\n'), [])
        self.assertEqual(self.found("a.html", WORD.strip() + "\n"), ["149 columns, of 120"])

    def test_spaces(self):
        self.assertEqual(self.found("a.md", "a \n"), ["blanks at the end"])
        self.assertEqual(self.found("a.md", "a"), ["does not end with one line feed"])
        self.assertEqual(self.found("a.md", "a\n\n"), ["does not end with one line feed"])
        self.assertEqual(self.found("a.cpp", "int\ta;\n"), ["a tab behind text or a space"])
        self.assertEqual(self.found("a.sh", "    a\n"), ["indented by spaces"])
        self.assertEqual(self.found("a.sh", "cat <<END\n    a\nEND\n"), [])
        both = "if a:\n    b\nif c:\n\td\n"
        self.assertEqual(self.found("a.py", both), ["indented by a tab, and other lines by spaces"])

    def test_words(self):
        hint = "goals were " + "reached"
        self.assertEqual(self.found("a.md", f"All {hint}.\n"), [f'"{hint}"'])
        self.assertEqual(self.found("a.md", "A page is reached.\n"), [])


@unittest.skipUnless(shutil.which("git"), "there is no git")
class Commits(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root, check_text.ROOT = check_text.ROOT, pathlib.Path(self.folder.name, "tree")
        check_text.ROOT.mkdir()
        self.git("init", "--quiet")

    def tearDown(self):
        check_text.ROOT = self.root
        self.folder.cleanup()

    def git(self, *arguments):
        identity = ["-c", "user.name=Somebody", "-c", "user.email=somebody@example.com"]
        subprocess.run(["git", "-C", str(check_text.ROOT), *identity, *arguments], check=True, capture_output=True)

    def commit(self, message):
        self.git("commit", "--quiet", "--allow-empty", "--message", message)

    def test_a_subject_and_a_body(self):
        self.commit("area: Do something\n\nSince it is needed. A test shows it.")
        self.assertEqual(check_text.check_commits("")[0], [])

    def test_no_body(self):
        self.commit("area: Do something\n\nReviewed-by: Somebody <somebody@example.com>")
        (problem,) = check_text.check_commits("")[0]
        self.assertIn("has no body", problem)

    def test_no_area(self):
        self.commit("Did something.\n\nSince it is needed.")
        (problem,) = check_text.check_commits("")[0]
        self.assertIn("a subject is", problem)

    def test_since(self):
        self.commit("Did something.")
        self.commit("area: Do something\n\nSince it is needed.")
        self.assertEqual(check_text.check_commits("HEAD~1"), ([], "1 commits have a subject and a body"))

    def test_a_shallow_clone(self):
        self.commit("Did something.")
        self.commit("area: Do something\n\nSince it is needed.")
        clone = pathlib.Path(self.folder.name, "clone")
        subprocess.run(["git", "clone", "--quiet", "--depth", "1", f"file://{check_text.ROOT}", str(clone)], check=True,
            capture_output=True)
        check_text.ROOT = clone
        self.assertEqual(check_text.check_commits(""), ([], "1 commits have a subject and a body"))

    def test_no_repository(self):
        check_text.ROOT = pathlib.Path(self.folder.name, "none")
        check_text.ROOT.mkdir()
        self.assertEqual(check_text.check_commits(""), ([], "there are no commits to look at"))


unittest.main()
