"""What README.md and docs/ name is there: files, links, commands with their options, presets, and the methods
and statuses of the public header."""
import json
import os
import re
import sys

import tree

CODE = re.compile(r"`([^`\n]+)`")
LINK = re.compile(r"\]\(([^)#\s]+)[^)]*\)")
PATH = re.compile(r"^(?:\./)?[\w.-]+(?:/[\w.-]*)+$")
COMMAND = re.compile(r"^(\./[\w.-]+|scripts/[\w-]+|\.ci/run)((?:\s+\S+)*)$")
MEDIA_TYPE = re.compile(r"^(?:text|application|image)/[a-z.+-]+$")
PRESET = re.compile(r"^(?:mingw-[a-z]+|msvc)$")
STATUS = re.compile(r"\b(?:(\d) )?(REQ_STATUS_\w+)")
METHOD = re.compile(r"^(\w+)\(")


class Checker:
    def __init__(self, root):
        self.root = root
        self.problems = []
        presets = json.loads(tree.read(root, "CMakePresets.json"))
        self.presets = {p["name"] for p in presets["configurePresets"] if not p.get("hidden")}
        header = tree.read(root, "include/kvHttp/HttpRaw.h").decode()
        self.statuses = dict(re.findall(r"(REQ_STATUS_\w+) = (\d+)", header))
        self.methods = set(re.findall(r"STDMETHODCALLTYPE (\w+)\(", header))

    def check_path(self, where, path):
        parts = os.path.normpath(path).split("/")
        if parts[0] == "build":
            # What a build makes may not be there yet; that there is such a build can be told.
            if len(parts) > 1 and parts[1] not in self.presets | {"coverage", "wineprefix"}:
                self.problems.append(f"{where}: {path}: there is no preset {parts[1]}")
        elif not os.path.exists(os.path.join(self.root, path)):
            self.problems.append(f"{where}: {path} does not exist")

    def check_command(self, where, command, arguments):
        path = os.path.join(self.root, command)
        if not os.access(path, os.X_OK):
            self.problems.append(f"{where}: {command} is no program")
            return
        text = tree.read(self.root, command).decode()
        # A command may leave its options to a program that it names.
        text += "".join(tree.read(self.root, path).decode() for path in re.findall(r'exec python3 "\$root/([^"]+)"', text))
        for word in arguments.split():
            option = word.split("=")[0]
            if option == "--help" and "import argparse" in text:
                continue
            if option.startswith("-") and not re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", text):
                self.problems.append(f"{where}: {command} knows no {option}")

    def check_code(self, where, code):
        command = COMMAND.match(code)
        if command:
            self.check_command(where, command[1], command[2])
        elif PATH.match(code) and not MEDIA_TYPE.match(code):
            self.check_path(where, code)
        elif PRESET.match(code) and code not in self.presets:
            self.problems.append(f"{where}: there is no preset {code}")

    def check_table_row(self, where, line):
        """In a table of the interface the first cell is a call."""
        first = CODE.search(line.split("|")[1])
        method = METHOD.match(first[1]) if first else None
        if method and method[1] not in self.methods:
            self.problems.append(f"{where}: IHttpRaw has no {method[1]}")

    def check_line(self, where, line, in_block):
        for code in [line.strip()] if in_block else CODE.findall(line):
            self.check_code(where, code.removeprefix("$ "))
        if not in_block:
            for link in LINK.findall(line):
                if "://" not in link:
                    self.check_path(where, os.path.join(os.path.dirname(where), link))
        if line.startswith("|"):
            self.check_table_row(where, line)
        for value, name in STATUS.findall(line.replace("`", "")):
            if name not in self.statuses or value and self.statuses[name] != value:
                self.problems.append(f"{where}: the public header has no {value} {name}")

    def check_document(self, path):
        in_block = False
        for line in tree.read(self.root, path).decode().splitlines():
            if line.startswith("```"):
                in_block = not in_block
            else:
                self.check_line(path, line, in_block)


def main(root):
    checker = Checker(root)
    documents = [p for p in tree.files(root) if p == "README.md" or p.startswith("docs/") and p.endswith(".md")]
    if "README.md" not in documents:
        checker.problems.append("README.md does not exist")
    for path in documents:
        checker.check_document(path)
    tree.report(checker.problems)


main(sys.argv[1])
