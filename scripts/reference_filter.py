"""Shows a header's plain comments to Doxygen as documentation: reference_filter.py FILE, to the standard output.
What stands in front of a declaration becomes its text, what stands behind one on its line too, and the first comment
becomes the file's. Other comments, with an empty line behind them, stay as they are. Drawings, indented by three blanks
or more, keep their form."""
import os
import re
import sys

OWN_LINE = re.compile(r"^(\s*)//(?!/) ?(.*)$")
BEHIND = re.compile(r"^(.*\S)\s+// (.*)$")
SPECIAL = re.compile(r"([\\@<>#%&$\"])|::")


def escape(text):
    return SPECIAL.sub(lambda match: "\\" + match[0], text)


def block(lines):
    """lines: (indentation, text) of one comment, or none."""
    result, drawing = [], False
    for indentation, text in lines:
        marks = ""
        if text and text.startswith("  ") != drawing:
            drawing = not drawing
            marks = r"\verbatim " if drawing else r"\endverbatim "
        result.append(f"{indentation}/// {marks}{text if drawing else escape(text)}".rstrip())
    if drawing:
        result[-1] += r" \endverbatim"
    return result


def main(path):
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    if not path.endswith(".h"):
        print("\n".join(lines))
        return
    result, comment = [], []

    def flush(line):
        nonlocal comment
        if comment and not result:
            result.append("/// \\file " + os.path.abspath(path))
        elif comment and not line:
            result.extend(f"{indentation}// {text}" for indentation, text in comment)
            comment = []
        result.extend(block(comment))
        comment = []

    for line in lines:
        own = OWN_LINE.match(line)
        behind = BEHIND.match(line)
        if own:
            comment.append((own[1], own[2]))
            continue
        flush(line)
        if behind and '"' not in behind[1] and not behind[1].lstrip().startswith("#"):
            line = f"{behind[1]}  ///< {escape(behind[2])}"
        result.append(line)
    flush("")
    print("\n".join(result))


main(sys.argv[1])
