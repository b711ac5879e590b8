"""Text files are UTF-8 with line feeds, a final newline, no tabs and no blanks at a line's end; no source
file is longer than a reader can keep in mind."""
import sys

import tree

LONGEST_TEST = 400
LONGEST_OTHER = 600
SOURCES = (".cpp", ".h", ".py", ".cmake")


def problems_of(path, data):
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError:
        return [f"{path}: not UTF-8"]
    problems = []
    if not text:
        return problems
    if text.startswith("\ufeff"):
        problems.append(f"{path}: begins with a byte order mark")
    if "\r" in text:
        problems.append(f"{path}: a carriage return; lines end with a line feed alone")
    if not text.endswith("\n") or text.endswith("\n\n"):
        problems.append(f"{path}: must end with exactly one newline")
    for number, line in enumerate(text.split("\n"), 1):
        line = line.rstrip("\r")
        if line != line.rstrip():
            problems.append(f"{path}:{number}: blanks at the end of the line")
        if "\t" in line:
            problems.append(f"{path}:{number}: a tab")
    limit = LONGEST_TEST if path.startswith("tests/") else LONGEST_OTHER
    lines = text.count("\n")
    if path.endswith(SOURCES) and lines > limit:
        problems.append(f"{path}: {lines} lines; at most {limit}")
    return problems


def main(root):
    found = []
    for path in tree.files(root):
        # Test data keeps the form in which it was found.
        if tree.is_text(path) and not path.startswith("tests/data/"):
            found += problems_of(path, tree.read(root, path))
    tree.report(found)


main(sys.argv[1])
