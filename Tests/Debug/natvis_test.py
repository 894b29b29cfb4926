# Reads the natvis file as XML and looks up every type, member and constant that it names in the public headers, and
# whether the gdb printers know the same types.
#
#   natvis_test.py NATVIS GDB_PRINTERS RUNTIME_FOLDER
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree


def constants_and_members(text):
    """Names of ours in an expression: members, and what begins with a capital letter but is no template argument."""
    return set(re.findall(r"\bm_\w+|\b(?:Sort|Geometry|IndexType)[A-Z]\w*", text))


def main():
    natvis, printers, runtime = map(pathlib.Path, sys.argv[1:])
    headers = "\n".join(header.read_text() for header in sorted(runtime.glob("**/include/**/*.h")))
    root = ElementTree.parse(natvis).getroot()
    space = root.tag[: root.tag.index("}") + 1]
    wrong = []
    names = set()

    for kind in root.findall(space + "Type"):
        name = re.sub("<.*", "", kind.get("Name"))
        short = name.replace("Vexmoor::", "", 1)
        names.add(short)
        if not re.search(r"\b(?:class|struct) (?:VX_(?:GEOMETRICS_)?API(?:_INLINE)? )?%s\b" % short, headers):
            wrong.append("no header has %s" % name)
        for element in kind.iter():
            if element.tag == space + "DisplayString":
                text = " ".join(re.findall("{([^}]*)}", element.text))
            else:
                text = element.text or ""
            text += " " + (element.get("Condition") or "") + " " + (element.get("Expression") or "")
            for used in constants_and_members(text):
                if not re.search(r"\b%s\b" % used, headers):
                    wrong.append("no header has %s, which is used for %s" % (used, name))

    for used in constants_and_members(printers.read_text()):
        if used.startswith("m_") and not re.search(r"\b%s\b" % used, headers):
            wrong.append("no header has %s, which gdb is to print" % used)
    for_gdb = set(re.findall(r'^    \("(\w+)', printers.read_text(), re.MULTILINE))
    if names != for_gdb:
        wrong.append("natvis and gdb know different types: %s" % ", ".join(sorted(names ^ for_gdb)))
    if len(names) < 5:
        wrong.append("the natvis file has hardly a type")
    print("\n".join(wrong) or "%d types, every name is there" % len(names))
    sys.exit(1 if wrong else 0)


main()
