"""What the component is to reach, and whether a measurement shows that it does."""
import os
import statistics

from results import COMPONENT, UNIT_TEXT, percentile

SMALL = ("answer of 0 bytes", "answer of 1 KB", "answer of 49,153 bytes", "form of 1 KB", "form of 64 KB")
SYSTEM = ("XMLHTTP", "ServerXMLHTTP", "WinHttpRequest")
CANNOT_TELL = "cannot be told"


def row(name, value, limit, form="{:.2f}", below=False):
    """What, at most, measured, verdict. A value of None is not known."""
    most = ("less than " if below else "") + form.format(limit)
    if value is None:
        return name, most, "n/a", CANNOT_TELL
    reached = value < limit if below else value <= limit
    return name, most, form.format(value), "reached" if reached else "not reached"


def ratio_row(name, ratio, limit):
    """One that means nothing by itself may still lie on one side of the limit with all its interval."""
    if not ratio or ratio.value is not None:
        return row(name, ratio.value if ratio else None, limit)
    verdict = "reached" if ratio.high <= limit else "not reached" if ratio.low > limit else CANNOT_TELL
    return name, f"{limit:.2f}", f"{ratio.low:.2f} to {ratio.high:.2f}", verdict


def all_rows(results, module):
    yield from exchange_rows(results)
    figures = results.figures
    first = [results.median("first exchange", client) for client in (COMPONENT, "unit")]
    yield row("first exchange of a fresh object, more than of a session", first[0] - first[1], 5, "{:.2f} ms")
    posts = figures["PostRequest"]
    yield row("`PostRequest`, 1 KB, median", statistics.median(posts), 0.3, "{:.3f} ms")
    yield row("`PostRequest`, 1 KB, 99th percentile", percentile(posts, 99), 1, "{:.3f} ms")
    yield row("an object created and released", 1000 * statistics.median(figures["create and release"]), 20, "{:.1f} µs")
    yield row("the module's size", os.path.getsize(module), 260000, "{:,.0f} bytes")
    yield row("the module loaded and unloaded", statistics.median(figures["load and unload"]), 5, "{:.2f} ms")
    for work in SMALL:
        yield ratio_row(f"{work}, with a trace library that does nothing",
                        results.time_ratio(work, "component, traced"), 1.15)


def exchange_rows(results):
    for work in SMALL:
        yield ratio_row(work, results.time_ratio(work, COMPONENT), 1.05)
        yield ratio_row(f"{work}, processor time", results.processor_ratio(work, COMPONENT), 1.05)
    yield from text_rows(results, "answer of 1 MB", 1.25)
    for client in SYSTEM:
        ratio = results.time_ratio("answer of 1 MB", COMPONENT, client)
        yield ratio_row(f"answer of 1 MB, beside {client}", ratio, 1)
    yield from text_rows(results, "form of 10 MB", 1.05)
    file = next(work for work in results.works if work.startswith("file of"))
    yield ratio_row(file, results.time_ratio(file, COMPONENT), 1.02)
    memory = [name for name in results.figures if name.startswith("file of")]
    if memory:
        growth = results.figures[memory[1]][-1] - results.figures[memory[0]][-1]
        sizes = " to ".join(name.split(",")[0].removeprefix("file of ") for name in memory)
        yield row(f"memory for a file, from {sizes}", growth, 1024, "{:,.0f} KB", below=True)
    yield ratio_row("16 objects at once", results.time_ratio("16 objects at once", COMPONENT), 1.05)


def text_rows(results, work, limit):
    """Where the conversion is most of the work, beside the unit that converts, too."""
    yield ratio_row(work, results.time_ratio(work, COMPONENT), limit)
    yield ratio_row(f"{work}, beside {UNIT_TEXT}", results.time_ratio(work, COMPONENT, UNIT_TEXT), limit)
