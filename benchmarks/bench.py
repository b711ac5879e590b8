"""Measures the component beside what a host could use in its place: WinINet called by hand, and the system's classes
for the same purpose. All take turns in one process against nginx on loopback, and every answer is checked. The table
that comes out has ratios to WinINet called by hand on a thread for each exchange."""
import argparse
import os
import signal
import subprocess
import sys
import tempfile
import time

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path.insert(0, os.path.join(ROOT, "tests", "support", "programs"))
import document  # pylint: disable=wrong-import-position
import report  # pylint: disable=wrong-import-position
import results  # pylint: disable=wrong-import-position
from file_server import FileServer  # pylint: disable=wrong-import-position
from processor_clock import ProcessorClock  # pylint: disable=wrong-import-position
from program import CannotStart, plain_environment  # pylint: disable=wrong-import-position
from stages import CannotBeSetUp, Stages  # pylint: disable=wrong-import-position
from wine import WINE_RUN, windows_path  # pylint: disable=wrong-import-position

STAGES = Stages("bench", plain_environment)
MB = 1048576
# Of the answers in memory, the answer into a file, and the answers that show the memory; in MB. As Benchmark.cpp has
# them.
LENGTHS = {"smoke": (1, 2), "quick": (1, 4, 10, 64), "full": (1, 4, 16, 64, 100, 1024)}
EPILOG = """\
Exit code: 0 measured; 2 the command line makes no sense; 3 it could not be measured, or an answer was wrong. KVHTTP_BIN
names a folder with the built programs to use instead of building them."""


def parse_command_line():
    parser = argparse.ArgumentParser(prog="./bench.sh", description=__doc__, epilog=EPILOG, allow_abbrev=False)
    forms = parser.add_mutually_exclusive_group()
    forms.add_argument("--full", dest="form", action="store_const", const="full", default="quick",
                       help="measure for some minutes instead of less than one: what the targets are compared with")
    forms.add_argument("--smoke", dest="form", action="store_const", const="smoke",
                       help="only see that each client does its work once")
    parser.add_argument("--write", action="store_true", help="write docs/performance.md and its picture")
    return parser.parse_args()


def measure(form, programs):
    """The file with what the program has found out."""
    STAGES.run("make the Wine prefix", "prefix", WINE_RUN)
    records = os.path.join(ROOT, "build", f"benchmark-{form}.txt")
    sizes = {0, 1024, 49153, *(length * MB for length in LENGTHS[form])}
    # The program keeps the number of the shell that it takes the place of.
    command = ["sh", "-c", 'exec "$0" "$@" $$', WINE_RUN, os.path.join(programs, "Benchmark.exe")]
    # As a test it must not stop the server that others use.
    started = form != "smoke" and subprocess.run([WINE_RUN, "--start"], check=False).returncode == 0
    try:
        with tempfile.TemporaryDirectory(prefix="bench-", dir=os.path.join(ROOT, "build")) as folder, \
             FileServer(folder, sizes) as server, ProcessorClock() as clock:
            STAGES.run(f"measure, {form} form", form, *command, server.url(), form, windows_path(records),
                       str(clock.port))
    finally:
        if started:
            subprocess.run([WINE_RUN, "--stop"], check=False)
    return records


def main():
    sys.stdout.reconfigure(line_buffering=True)
    given = parse_command_line()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    os.environ.setdefault("KVHTTP_BEGAN", str(int(time.time())))
    try:
        programs = STAGES.programs("bench", "the module and the benchmark", "Benchmark")
        module = os.path.join(programs, "kvHttp.dll")
        load, stolen = os.getloadavg()[0], report.stolen_time()
        records = measure(given.form, programs)
        if given.form == "smoke":
            print("Each client has done its work.")
            return 0
        with open(records, encoding="utf-8") as file:
            found = results.Results(file)
        machine = report.describe_machine(load, stolen, module, found.lost)
        print("", *report.as_text(found, machine, module), sep="\n")
        if given.write:
            document.write(ROOT, found, machine, module)
        return 0
    except (CannotBeSetUp, CannotStart, OSError) as reason:
        if str(reason):
            print(f"bench.sh: {reason}", file=sys.stderr)
        return 3
    except KeyboardInterrupt:
        return 130


sys.exit(main())
