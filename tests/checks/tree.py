"""The files of the repository that the checks read: all but git's own and what builds make."""
import os
import sys

TEXT_SUFFIXES = {
    "", ".c", ".clang-format", ".clang-tidy", ".cmake", ".conf", ".cpp", ".def", ".editorconfig", ".gitignore",
    ".cs", ".h", ".idl", ".in", ".js", ".json", ".manifest", ".md", ".py", ".rc", ".sh", ".txt", ".yml",
}


def files(root):
    """Paths relative to root, in a fixed order."""
    found = []
    for folder, folders, names in os.walk(root):
        top = os.path.relpath(folder, root) == "."
        folders[:] = sorted(f for f in folders if f != "__pycache__" and not (top and f in (".git", "build")))
        found += [os.path.relpath(os.path.join(folder, n), root) for n in names]
    return sorted(f for f in found if f != ".git")


def is_text(path):
    name = os.path.basename(path)
    return (name if name.startswith(".") else os.path.splitext(name)[1]) in TEXT_SUFFIXES


def read(root, path):
    with open(os.path.join(root, path), "rb") as file:
        return file.read()


def report(problems):
    """Prints the problems and ends the check."""
    for problem in problems:
        print(problem)
    sys.exit(1 if problems else 0)
