"""Prints how much of src/ and include/ the tests run, and the lines that they do not: uncovered.py GCOVR.JSON. The exit
code is 1 below 98 % of the lines or 88 % of the branches, and for a line without its reason in
tests/data/coverage/uncovered.txt: the file, a colon, the line's text, " -- " and the reason."""
import json
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
REASONS = os.path.join(ROOT, "tests", "data", "coverage", "uncovered.txt")
LEAST_LINES, LEAST_BRANCHES = 98.0, 88.0


def read_reasons():
    if not os.path.exists(REASONS):
        return {}
    with open(REASONS, encoding="utf-8") as file:
        lines = [line.strip() for line in file if " -- " in line and not line.startswith("#")]
    return dict(line.split(" -- ", 1) for line in lines)


def percent(part, whole):
    return 100 * part / whole if whole else 100.0


def main(path):
    with open(path, encoding="utf-8") as file:
        report = json.load(file)
    reasons = read_reasons()
    lines = covered = branches = taken = 0
    unexplained = []
    for entry in report["files"]:
        with open(os.path.join(ROOT, entry["file"]), encoding="utf-8") as file:
            source = file.read().split("\n")
        for line in entry["lines"]:
            if line.get("gcovr/noncode"):
                continue
            lines += 1
            covered += line["count"] > 0
            branches += len(line["branches"])
            taken += sum(branch["count"] > 0 for branch in line["branches"])
            if line["count"] == 0:
                key = f"{entry['file']}: {source[line['line_number'] - 1].strip()}"
                print(f"{entry['file']}:{line['line_number']}: {reasons.get(key, 'no reason is given')}")
                if key not in reasons:
                    unexplained.append(key)
    print(f"lines: {covered} of {lines}, {percent(covered, lines):.1f} %; "
          f"branches: {taken} of {branches}, {percent(taken, branches):.1f} %")
    good = percent(covered, lines) >= LEAST_LINES and percent(taken, branches) >= LEAST_BRANCHES and not unexplained
    sys.exit(0 if good else 1)


if len(sys.argv) != 2:
    sys.exit(__doc__)
main(sys.argv[1])
