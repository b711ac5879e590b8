"""Builds the module and the sample host, registers the module in a Wine prefix of the build tree, and posts a form
with it. Without URL and DATA the form goes to a server of the demo's own on this machine, and a second exchange
fetches some megabytes from it into a file. With them the form data DATA is posted to URL, as it stands and in UTF-8,
and the answer is printed; a second exchange happens only with --file."""
import argparse
import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path.insert(0, os.path.join(ROOT, "tests", "support", "programs"))
from stages import LOGS, CannotBeSetUp, Stages  # pylint: disable=wrong-import-position
from wine import PREFIX, WINE_RUN, WINE_TEST, CannotStart, demo_server, windows_path  # pylint: disable=wrong-import-position

STAGES = Stages("demo")
TARGETS = ("kvHttp", "PostForm", "DemoServer", "qnztraceX64", "tracecat")
TRACE_LIBRARY = "qnztraceX64.dll"
DATA = "name=Ada+Lovelace&city=Z%C3%BCrich&note=ä€𝄞".encode()
CODES = """\
Exit code: 0 all went well; 1 an exchange failed, or its content is not the expected one; 2 the command line makes no
sense; 3 the demo could not be set up. KVHTTP_BIN names a folder with the built programs to use instead of building
them."""


def matching(pattern, what):
    def check(text):
        if not re.fullmatch(pattern, text):
            raise argparse.ArgumentTypeError(f"{text!r} is not {what}")
        return text
    return check


def parse_command_line():
    parser = argparse.ArgumentParser(prog="./demo.sh", usage="./demo.sh [options] [URL DATA]", description=__doc__,
                                     epilog=CODES, allow_abbrev=False)
    number = matching(r"[1-9][0-9]*", "a number")
    parser.add_argument("--file", metavar="PATH", help="post once more, and write that answer to the file PATH")
    parser.add_argument("--timeout", metavar="S", type=number, help="how many seconds each exchange may take (30)")
    parser.add_argument("--max-answer", metavar="N", type=number,
                        help="print at most N characters of the answer (2000)")
    parser.add_argument("--trace", action="store_true", help="show the trace records of the module")
    parser.add_argument("--browser", choices=("firefox", "system", "none"),
                        help="the user's default browser (as Wine has it)")
    parser.add_argument("--proxy", metavar="HOST:PORT", type=matching(r"[A-Za-z0-9.-]+:[0-9]+", "HOST:PORT"),
                        help="the proxy in that browser's settings (with system where no browser is named)")
    parser.add_argument("form", nargs=argparse.REMAINDER, metavar="URL DATA", help=argparse.SUPPRESS)
    given = parser.parse_args()
    if len(given.form) not in (0, 2) or not all(given.form):
        parser.error("give a URL and form data, or neither")
    if given.proxy and given.browser == "none":
        parser.error("a browser that is not known has no proxy settings")
    if given.file and not os.path.isdir(os.path.dirname(os.path.abspath(given.file))):
        parser.error(f"there is no folder for the file {given.file}")
    if given.proxy and not given.browser:
        given.browser = "system"
    return given


@contextlib.contextmanager
def placed_trace_library(programs):
    """The trace library beside the module, which uses it then. What it has written is shown at the end."""
    place = os.path.join(programs, TRACE_LIBRARY)
    if os.path.exists(place):
        raise CannotBeSetUp(f"a trace library is beside the module already: {place}")
    shutil.copy(os.path.join(programs, "..", "tracelib", TRACE_LIBRARY), place)
    trace = os.path.join(LOGS, f"demo-trace-{os.getpid()}.log")
    os.environ["QNZTRACE_FILE"] = windows_path(trace)
    try:
        yield
    finally:
        os.remove(place)
        if os.path.exists(trace):
            show_trace(programs, trace)
            os.remove(trace)


def show_trace(programs, trace):
    for options in ([], ["--timeline"]):
        print(f"== tracecat {' '.join(options)}", flush=True)
        shown = subprocess.run([WINE_RUN, os.path.join(programs, "tracecat.exe"), *options, windows_path(trace)],
                               stdin=subprocess.DEVNULL, capture_output=True, check=False)
        sys.stdout.buffer.write(shown.stdout + shown.stderr)
        sys.stdout.buffer.flush()


@contextlib.contextmanager
def running_wine():
    """Wine's server, which is left alone where it ran before."""
    started = subprocess.run([WINE_RUN, "--start"], check=False).returncode == 0
    try:
        yield
    finally:
        if started:
            subprocess.run([WINE_RUN, "--stop"], check=False)


def post(programs, arguments):
    """The sample's exit code. Its streams go through pipes, so that Wine leaves the terminal alone."""
    command = [WINE_RUN, os.path.join(programs, "PostForm.exe"), *arguments]
    # A start that Wine gives up, with exit code 1 and no word, is tried again.
    for _ in range(3):
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              bufsize=0) as process:
            printed = False
            for piece in iter(lambda: process.stdout.read(4096), b""):  # pylint: disable=cell-var-from-loop
                printed = True
                sys.stdout.buffer.write(piece)
                sys.stdout.buffer.flush()
            errors = process.stderr.read()
        if process.returncode != 1 or printed or errors:
            break
    sys.stderr.buffer.write(errors)
    sys.stderr.buffer.flush()
    return process.returncode


def run(given, programs, stack):
    STAGES.run("make the Wine prefix", "prefix", WINE_RUN)
    stack.enter_context(running_wine())
    module = windows_path(os.path.join(programs, "kvHttp.dll"))
    STAGES.run("register the module: regsvr32 kvHttp.dll", "register", WINE_TEST, "regsvr32", module)
    if given.browser:
        named = given.browser + (f", with the proxy {given.proxy}" if given.proxy else "")
        STAGES.run(f"the default browser is now: {named}", "browser", os.path.join(ROOT, "scripts", "prepare-browser"),
                   given.browser, *([given.proxy] if given.proxy else []))
    if given.trace:
        stack.enter_context(placed_trace_library(programs))
    options, form, file = [], [os.fsencode(text) for text in given.form], given.file
    for name in ("timeout", "max_answer"):
        if getattr(given, name):
            options += ["--" + name.replace("_", "-"), getattr(given, name)]
    if not form:
        port, checksum = stack.enter_context(demo_server(programs))
        print(f"== the demo's own server listens on 127.0.0.1:{port}")
        file = file or os.path.join(LOGS, "report.bin")
        options += ["--file-url", f"http://127.0.0.1:{port}/report", "--expect-sha256", checksum, "--expect-text", DATA]
        form = [f"http://127.0.0.1:{port}/form", DATA]
    if file:
        options += ["--file", windows_path(file)]
    print(flush=True)
    code = post(programs, options + form)
    print("\nAll went well." if code == 0 else "")
    if code not in (0, 1, 2, 3):
        raise CannotBeSetUp(f"the sample host ended with exit code {code}")
    return code


def main():
    sys.stdout.reconfigure(line_buffering=True)
    given = parse_command_line()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    os.environ.setdefault("KVHTTP_BEGAN", str(int(time.time())))
    if given.browser:
        # Browser and proxy must not stay for other programs: they get a prefix of their own.
        os.environ["KVHTTP_WINEPREFIX"] = PREFIX + "-browser"
    if given.file:
        given.file = os.path.abspath(given.file)
    try:
        programs = STAGES.programs("run", "the module and the sample host", *TARGETS)
        with contextlib.ExitStack() as stack:
            return run(given, programs, stack)
    except (CannotBeSetUp, CannotStart, OSError) as reason:
        if str(reason):
            print(f"demo.sh: {reason}", file=sys.stderr)
        return 3
    except KeyboardInterrupt:
        return 130


sys.exit(main())
