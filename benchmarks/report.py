"""The results as lines of text, and tables for the document."""
import os
import platform
import statistics
import subprocess
import time

from results import CLIENTS, UNIT, percentile
from targets import all_rows
from wine import WINE_RUN


def stolen_time():
    """Of all processors since the start, in ticks: (all of it, what the host of a virtual machine has taken away)."""
    with open("/proc/stat", encoding="utf-8") as file:
        ticks = [int(number) for number in file.readline().split()[1:9]]
    return sum(ticks), ticks[7]


def describe_machine(load, stolen, module, lost):
    """What the figures are of: (name, text) each."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = [line.split(":")[1].strip() for line in file if line.startswith("model name")]
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    all_ticks, taken = (after - before for after, before in zip(stolen_time(), stolen))
    version = subprocess.run([WINE_RUN, "--version"], stdout=subprocess.PIPE, text=True, check=False).stdout.strip()
    return {
        "Date": time.strftime("%Y-%m-%d"),
        "Machine": f"{os.cpu_count()} processors, {models[0] if models else platform.machine()}; {system}, "
                   f"Linux {platform.release()}",
        "Wine": version,
        "Load": f"{load:.2f} before, {os.getloadavg()[0]:.2f} after (processes that wanted a processor, last minute)",
        "Taken away": f"{100 * taken / all_ticks:.1f} % of the processors' time, by the host of the virtual machine",
        "Exchanges repeated": f"{lost} (docs/limits.md: a quick end can be overwritten)",
        "Module": f"{os.path.getsize(module):,} bytes",
    }


def cell(ratio):
    """n/a where the client cannot do the work; what lies between where a ratio means nothing."""
    if ratio is None:
        return "n/a"
    if ratio.value is None:
        return f"({ratio.low:.1f} to {ratio.high:.1f})"
    return f"{ratio.value:.2f}"


def ratio_table(results, ratio_of):
    rows = [["work", *CLIENTS]]
    for work in results.works:
        rows.append([work, *(cell(ratio_of(work, client)) for client in CLIENTS)])
    return rows


def detail_table(results):
    rows = [["work", "client", "median, ms", "99th percentile, ms", "processor time, ms", "memory, KB",
             "threads and handles left"]]
    for work in results.works:
        for client in CLIENTS:
            if not results.has(work, client):
                rows.append([work, client, results.none.get((work, client), "n/a"), "", "", "", ""])
                continue
            times = results.all_times(work, client)
            left = results.left.get((work, client))
            memory = results.memory.get((work, client))
            rows.append([work, client, f"{statistics.median(times):.2f}", f"{percentile(times, 99):.2f}",
                         f"{results.processor_time(work, client):.1f}",
                         "n/a" if memory is None else f"{memory:,.0f}",
                         "n/a" if left is None else f"{left[0]}, {left[1]}"])
    return rows


def figure_table(results):
    rows = [["measured apart", "median, ms", "99th percentile, ms"]]
    for name, values in results.figures.items():
        if "," not in name:
            rows.append([name, f"{statistics.median(values):.4g}", f"{percentile(values, 99):.4g}"])
    return rows


def growth_table(results):
    rows = [["answer in memory", f"{UNIT}, ms", "component, ms", f"{UNIT}, KB", "component, KB"]]
    for name in results.figures:
        if name.startswith("component, ") and name.endswith(", ms"):
            size = name.split(",")[1].strip()
            values = [results.figures.get(f"{client}, {size}, {unit}")
                      for unit in ("ms", "KB") for client in (UNIT, "component")]
            rows.append([size.removeprefix("text of "), *(f"{value[-1]:,.0f}" if value else "n/a" for value in values)])
    return rows


def target_table(results, module):
    return [["what", "at most", "measured", ""], *all_rows(results, module)]


def lay_out(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip() for row in rows]


def as_text(results, machine, module):
    yield from (f"{name}: {text}" for name, text in machine.items())
    yield from ("", "Time, as a ratio to the unit (n/a: cannot do it; in brackets: too uneven to mean anything):", "")
    yield from lay_out(ratio_table(results, results.time_ratio))
    yield from ("", "Processor time, likewise:", "")
    yield from lay_out(ratio_table(results, results.processor_ratio))
    yield ""
    yield from lay_out(figure_table(results))
    yield ""
    yield from lay_out(growth_table(results))
    yield ""
    yield from lay_out([[text.replace("`", "") for text in row] for row in target_table(results, module)])
