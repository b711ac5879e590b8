"""A file of src/ includes only files of its own library and of those that its library names as DEPENDS in
its kvhttp_add_library; no two libraries depend on each other. docs/architecture.md, where there is one, names the same
libraries."""
import os
import re
import sys

import tree

CALL = re.compile(r"^kvhttp_add_library\(\s*(\w+)\s([^)]*)\)", re.MULTILINE)
ROW = re.compile(r"^\| `src/(\w+)/` \| (\w+) \| ([^|]*) \|", re.MULTILINE)
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


class Library:
    def __init__(self, name, folder, arguments):
        self.name = name
        self.folder = folder
        lists = {"SOURCES": [], "DEPENDS": [], "SYSTEM": []}
        current = None
        for word in arguments.split():
            current = word if word in lists else current
            if word not in lists:
                lists[current].append(word)
        self.stems = {os.path.splitext(source)[0] for source in lists["SOURCES"]}
        self.depends = lists["DEPENDS"]


def read_libraries(root, problems):
    libraries = {}
    for path in tree.files(os.path.join(root, "src")):
        if os.path.basename(path) == "CMakeLists.txt":
            text = tree.read(root, "src/" + path).decode()
            calls = CALL.findall(text)
            if len(calls) != text.count("kvhttp_add_library("):
                problems.append(f"src/{path}: a kvhttp_add_library that this check cannot read")
            for name, arguments in calls:
                libraries[name] = Library(name, os.path.dirname(path), arguments)
    return libraries


def library_of(libraries, path):
    """The one with a source of that name; otherwise the folder's own."""
    folder, name = os.path.split(path)
    stem = os.path.splitext(name)[0]
    for library in libraries.values():
        if library.folder == folder and stem in library.stems:
            return library
    return libraries.get(folder)


def find_cycle(libraries):
    """Takes away what depends on nothing that is left, until nothing is left or all depend on one another."""
    left = {library.name: set(library.depends) for library in libraries.values()}
    while left:
        free = [name for name, depends in left.items() if not depends & left.keys()]
        if not free:
            return sorted(left)
        for name in free:
            del left[name]
    return []


def compare_with_document(root, libraries, problems):
    path = "docs/architecture.md"
    if not os.path.exists(os.path.join(root, path)):
        return
    rows = {name: (folder, depends) for folder, name, depends in ROW.findall(tree.read(root, path).decode())}
    for library in libraries.values():
        expected = (library.folder, ", ".join(library.depends) or "nothing")
        if rows.get(library.name) != expected:
            problems.append(f"{path}: the row of {library.name} should have {expected}, not {rows.get(library.name)}")


def main(root):
    problems = []
    libraries = read_libraries(root, problems)
    if not libraries:
        problems.append("src: no kvhttp_add_library found")
    for library in libraries.values():
        problems += [f"src/{library.folder}: DEPENDS names {name}, which is no library of src/"
                     for name in library.depends if name not in libraries]
    cycle = find_cycle(libraries)
    if cycle:
        problems.append("src: these libraries depend on each other: " + ", ".join(cycle))
    compare_with_document(root, libraries, problems)
    for path in tree.files(os.path.join(root, "src")):
        if not path.endswith((".cpp", ".h")):
            continue
        own = library_of(libraries, path)
        if own is None:
            problems.append(f"src/{path}: belongs to no library")
            continue
        for name in INCLUDE.findall(tree.read(root, "src/" + path).decode()):
            if os.path.exists(os.path.join(root, "include", name)):
                continue  # the public header, which all may use
            other = library_of(libraries, name)
            if other is None or not os.path.exists(os.path.join(root, "src", name)):
                problems.append(f'src/{path}: "{name}" is no file of src/ or include/')
            elif other is not own and other.name not in own.depends:
                problems.append(f'src/{path}: includes "{name}" of {other.name}, '
                                f"which DEPENDS of {own.name} does not name")
    tree.report(problems)


main(sys.argv[1])
