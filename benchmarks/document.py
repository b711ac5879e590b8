"""docs/performance.md and its picture. What people have written stands in benchmarks/performance.md.in, with a line
{name} for each table."""
import os

import picture
import report
from results import CLIENTS

HERE = os.path.dirname(os.path.abspath(__file__))
TEMPLATE = os.path.join(HERE, "performance.md.in")
PICTURE = os.path.join("docs", "images", "performance.svg")


def write(root, results, machine, module):
    tables = {
        "machine": "\n".join(f"- {name}: {text}" for name, text in machine.items()),
        "clients": "\n".join(f"- *{name}*: {text}" for name, text in CLIENTS.items()),
        "targets": as_table(report.target_table(results, module)),
        "times": as_table(report.ratio_table(results, results.time_ratio)),
        "processor": as_table(report.ratio_table(results, results.processor_ratio)),
        "figures": as_table(report.figure_table(results)),
        "growth": as_table(report.growth_table(results)),
        "details": as_table(report.detail_table(results)),
    }
    with open(TEMPLATE, encoding="utf-8") as file:
        text = file.read()
    for name, table in tables.items():
        text = text.replace(f"{{{name}}}\n", table + "\n")
    write_text(os.path.join(root, "docs", "performance.md"), text)
    write_text(os.path.join(root, PICTURE), picture.draw(results))


def as_table(rows):
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join([lines[0], "|---" * len(rows[0]) + "|", *lines[1:]])


def write_text(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    print(f"written: {path}")
