#!/usr/bin/env python3
"""Looks up every name that a document mentions between backticks: types, functions, members, macros, targets, options.
Each occurs in some file of the tree that is no document. Called with the repository's root.
"""
import re
import subprocess
import sys
from pathlib import Path

# Names of others: of graphics APIs, compilers and CMake.
FOREIGN = re.compile(r"^(gl[A-Z]|GL_|vk[A-Z]|VK_|D3D|IASet|MTL|__|_mm|CMAKE_|MinSizeRel$)")
GRAPHICS = set(
    "vertexOffset BaseVertexLocation DrawIndexed baseVertex drawIndexedPrimitives HOST_VISIBLE HOST_COHERENT"
    " DEVICE_LOCAL nonCoherentAtomSize ExecuteCommandLists didModifyRange minMemoryMapAlignment BufferLocation"
    " indexBufferOffset".split()
)
# What stands for any name, and what the changelog says is gone.
PLACEHOLDERS = {"Condition_Outcome"}
GONE = {"CHANGELOG.md": {"vx_sse2"}}

SPAN = re.compile(r"(?<!`)`([^`\n]+)`(?!`)")
# Names and options; not parts of names, which have a star or an ellipsis beside them.
NAME = re.compile(r"(?<![\w*…-])(?:--[a-z][\w-]*|[A-Za-z_]\w*)(?![\w*…])")


def is_name(word):
    """Whether a word is a name that only code has: an option, or one with an underscore, or a capital behind its first
    letter. Others are words of prose too."""
    ours = word not in GRAPHICS | PLACEHOLDERS and not FOREIGN.match(word)
    return ours and bool(re.search(r"^--|_|\w*[a-z]\w*[A-Z]|^[CST][A-Z][a-z]", word))


def is_part(word, known):
    """Whether a word is how names begin, such as `kr_`, or end, such as `_tri`."""
    begins = word.endswith("_") and any(name.startswith(word) for name in known)
    return begins or word.startswith("_") and any(name.endswith(word) for name in known)


def texts_of(root):
    """Every text of the tree, by git, or where there is none by looking."""
    command = ["git", "-C", str(root), "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    listed = subprocess.run(command, capture_output=True, text=True, check=False)
    if listed.returncode == 0:
        names = [name for name in listed.stdout.split("\0") if name]
    else:
        names = [str(path.relative_to(root)) for path in root.rglob("*") if path.is_file()]
    return [root / name for name in names if not name.startswith(("build/", "out/", ".git/"))]


def main():
    root = Path(sys.argv[1]).resolve()
    known, prefixes, documents = set(), set(), []
    for path in texts_of(root):
        if path.suffix == ".md":
            documents.append(path)
        elif path.is_file() and path != Path(__file__).resolve():
            text = path.name + "\n" + path.read_text(encoding="utf-8", errors="ignore")
            known |= set(re.findall(r"--[a-z][\w-]*|\w+", text))
            prefixes |= set(re.findall(r"\b(\w+_)\$\{", text)) if path.name == "CMakeLists.txt" else set()
    problems, count = [], 0
    for document in sorted(documents):
        name = str(document.relative_to(root))
        text = document.read_text(encoding="utf-8")
        words = [word for span in SPAN.findall(text) for word in NAME.findall(span) if is_name(word)]
        count += len(words)
        unknown = sorted(
            word for word in set(words) - known - GONE.get(name, set())
            if not is_part(word, known) and not word.startswith(tuple(prefixes))
        )
        problems += [f"{name}: there is no {word}" for word in unknown]
    for problem in problems:
        print(problem)
    print(f"{count} names in {len(documents)} documents")
    sys.exit(bool(problems) or not count)


main()
