"""What README.md, CONTRIBUTING.md and docs/ name is there: files, links, commands with their options, presets, tests,
and the methods, statuses and identifiers of the public header. The code in them compiles (document_code.py), and
manifests and Python are well-formed."""
import ast
import json
import os
import re
import sys
import xml.etree.ElementTree

import document_code
import tree

CODE = re.compile(r"`([^`\n]+)`")
LINK = re.compile(r"\]\(([^)#\s]+)[^)]*\)")
PATH = re.compile(r"^(?:\./)?[\w.-]+(?:/[\w.-]*)+$")
COMMAND = re.compile(r"^(\./[\w.-]+|scripts/[\w-]+|\.ci/run)((?:\s+\S+)*)$")
MEDIA_TYPE = re.compile(r"^(?:text|application|image)/[a-z.+-]+$")
PRESET = re.compile(r"^(?:mingw-[a-z]+|msvc)$")
STATUS = re.compile(r"\b(?:(\d) )?(REQ_STATUS_\w+)")
METHOD = re.compile(r"^(\w+)\(")
TEST = re.compile(r"^(\w+Test)\.(\w+)$")
TEST_BEGIN = re.compile(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", re.MULTILINE)
PRESET_OPTION = re.compile(r"--preset[ =](\S+)")
GUID = re.compile(r"\{([0-9A-Fa-f]{8}(?:-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12})\}")

PARSERS = {"xml": xml.etree.ElementTree.fromstring, "python": ast.parse}


class Checker:
    def __init__(self, root):
        self.root = root
        self.problems = []
        presets = json.loads(tree.read(root, "CMakePresets.json"))
        self.presets = {p["name"] for p in presets["configurePresets"] if not p.get("hidden")}
        header = tree.read(root, "include/kvHttp/HttpRaw.h").decode()
        self.statuses = dict(re.findall(r"(REQ_STATUS_\w+) = (\d+)", header))
        self.methods = set(re.findall(r"STDMETHODCALLTYPE (\w+)\(", header))
        guids = re.findall(r"= \{(0x\w+), (0x\w+), (0x\w+), \{([^}]*)\}", header)
        self.guids = {re.sub(r"0x|[, ]", "", "".join(parts)).upper() for parts in guids}
        sources = [p for p in tree.files(root) if p.startswith("tests/") and p.endswith(".cpp")]
        self.tests = {test for p in sources for test in TEST_BEGIN.findall(tree.read(root, p).decode())}

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
        for preset in PRESET_OPTION.findall(code) + PRESET.findall(code):
            if preset not in self.presets and preset != "NAME":
                self.problems.append(f"{where}: there is no preset {preset}")
        test = TEST.match(code)
        if test and (test[1], test[2]) not in self.tests:
            self.problems.append(f"{where}: there is no test {code}")

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
        if line.startswith("|") and not in_block:
            self.check_table_row(where, line)
        for guid in GUID.findall(line):
            if guid.replace("-", "").upper() not in self.guids:
                self.problems.append(f"{where}: the public header has no {guid}")
        for value, name in STATUS.findall(line.replace("`", "")):
            if name not in self.statuses or value and self.statuses[name] != value:
                self.problems.append(f"{where}: the public header has no {value} {name}")

    def check_document(self, path, text):
        in_block = False
        for line in text.splitlines():
            if line.startswith("```"):
                in_block = not in_block
            else:
                self.check_line(path, line, in_block)
        for language, _, line, code in document_code.blocks(path, text):
            parse = PARSERS.get(language, lambda _: None)
            try:
                parse(code)
            except (SyntaxError, xml.etree.ElementTree.ParseError) as error:
                self.problems.append(f"{path}:{line}: {error}")


def main(root):
    checker = Checker(root)
    documents = [(p, tree.read(root, p).decode()) for p in tree.files(root)
                 if p in ("README.md", "CONTRIBUTING.md") or p.startswith("docs/") and p.endswith(".md")]
    if "README.md" not in dict(documents):
        checker.problems.append("README.md does not exist")
    for path, text in documents:
        checker.check_document(path, text)
    tree.report(checker.problems + document_code.problems_of(root, documents))


main(sys.argv[1])
