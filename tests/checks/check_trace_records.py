"""docs/tracing.md lists every trace record that src/ writes, with its level, and no other; and every option of the
viewer and every setting of the trace library."""
import re
import sys

import tree

DOCUMENT = "docs/tracing.md"
LEVELS = {"kTraceProgress": "2", "kTraceError": "8"}
STRING = r'(?:\s*L?"(?:[^"\\]|\\.)*")+'
CALL = re.compile(r"(?<!void )\b(TraceText|TraceTextVar|CAutoFunTrace trace)\(")
# Texts that a function hands on: the parameter, and the function that takes it.
HANDED_ON = {"pszReason": "KillThread"}
FORMATS = {"%s": "T", "%d": "N", "%x": "N"}
ROW = re.compile(r"^\| (?:`([^`]+)`|(\*[^*]+\*)) \| ([^|]+) \|")
OPTION = re.compile(r"(?<![\w-])--[a-z]+")
VARIABLE = re.compile(r"\bQNZTRACE_[A-Z]+")
VALUE = "a text that is no fixed one"


def unquoted(literal):
    """The text of a C++ string, or of several in a row."""
    text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literal))
    return re.sub(r"\\(.)", lambda match: {"n": "\n"}.get(match[1], match[1]), text)


def arguments_behind(text, begin):
    """Those of the call whose parenthesis was opened just before begin."""
    arguments, depth, current = [], 0, ""
    for token in re.finditer(r'"(?:[^"\\]|\\.)*"|.', text[begin:], re.DOTALL):
        part = token[0]
        if part == ")" and depth == 0:
            return arguments + [current.strip()]
        depth += {"(": 1, ")": -1}.get(part, 0)
        if part == "," and depth == 0:
            arguments.append(current.strip())
            current = ""
        else:
            current += part
    return arguments


def constant(text, name):
    found = re.search(rf"\b{name}\[\] =({STRING})", text)
    return unquoted(found[1]) if found else None


def texts_of(argument, text):
    """What may stand for an argument of a trace call; None for a value."""
    if re.fullmatch(STRING, argument):
        return [unquoted(argument)]
    name = argument.removesuffix(".c_str()")
    formatted = re.search(rf"\b{re.escape(name)}\.Format\(({STRING})", text)
    if formatted:
        return [re.sub(r"%[sdx]", lambda match: FORMATS[match[0]], unquoted(formatted[1]))]
    if name in HANDED_ON:
        calls = [arguments_behind(text, match.end()) for match in re.finditer(rf"\b{HANDED_ON[name]}\(", text)]
        handed = {arguments[-1] for arguments in calls if not arguments[-1].endswith(name)}
        return [unquoted(last) if '"' in last else constant(text, last) for last in sorted(handed)]
    return None


def shown(record):
    """As it stands in a line of a trace file."""
    return record.rstrip(" \n").replace("\n", "\u240A")


def records_of(text):
    """Pairs of the level and the record; functions have no level. A value behind a name is "?"."""
    for call in CALL.finditer(text):
        arguments = arguments_behind(text, call.end())
        if call[1] == "CAutoFunTrace trace":
            yield "", shown(unquoted(arguments[0]))
            continue
        level = LEVELS.get(arguments[0], arguments[0])
        ending = ","
        if call[1] == "TraceTextVar":
            ending = ("" if arguments[1] == "nullptr" else ",") + unquoted(arguments[2]) + "=?,"
            arguments[1] = '""' if arguments[1] == "nullptr" else arguments[1]
        for record in texts_of(arguments[1], text) or [None]:
            yield level, VALUE if record is None else shown(record + ending)


def listed_records(document):
    for line in document.splitlines():
        row = ROW.match(line)
        if row and row[3].strip() in LEVELS.values():
            yield row[3].strip(), VALUE if row[2] else re.sub(r"=[NPT],$", "=?,", row[1])
        elif row and row[1] and row[3].strip() in ("host", "worker", "both"):
            yield "", row[1]


def compare(what, written, listed, problems):
    for entry in sorted(set(written) - set(listed)):
        problems.append(f"{DOCUMENT} does not list {what} {entry}")
    for entry in sorted(set(listed) - set(written)):
        problems.append(f"{DOCUMENT} lists {what} {entry}, which is not there")


def main(root):
    problems = []
    document = tree.read(root, DOCUMENT).decode()
    written = []
    for path in tree.files(root):
        if path.startswith("src/") and not path.startswith("src/trace/") and path.endswith((".cpp", ".h")):
            written += records_of(tree.read(root, path).decode())
    listed = list(listed_records(document))
    compare("the record", [f"{level} {record}" for level, record in written],
            [f"{level} {record}" for level, record in listed], problems)
    values = [sum(record == VALUE for _, record in records) for records in (written, listed)]
    if values[0] != values[1]:
        problems.append(f"{DOCUMENT} lists {values[1]} records without a fixed text, src/ writes {values[0]}")
    compare("the option", OPTION.findall(tree.read(root, "tools/tracecat/Options.cpp").decode()),
            OPTION.findall(document.split("\n## The viewer\n")[1].split("\n`./demo.sh")[0]), problems)
    compare("the setting", VARIABLE.findall(tree.read(root, "tools/tracelib/TraceSettings.cpp").decode()),
            VARIABLE.findall(document), problems)
    tree.report(problems)


main(sys.argv[1])
