"""Runs one test of the password tests on a desktop of its own beside a proxy that wants a password, and looks into
the proxy's log: squid_run.py WINE_TEST PROGRAM TEST SEEN. The test must pass, and the proxy must have answered what
SEEN tells in order: "1 x 407 - POST, 2 x 200 anna POST" are one that asked for the password, then two that went
through as anna's. Nothing of the password may be left behind."""
import os
import re
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support", "programs"))
from desktop import Desktop, PREFIX  # pylint: disable=wrong-import-position
from program import await_true  # pylint: disable=wrong-import-position
from squid import Squid, version  # pylint: disable=wrong-import-position

USER, PASSWORD = "anna", "a secret word"


def expected_lines(seen):
    lines = []
    for part in seen.split(","):
        count, line = part.split(" x ")
        lines += [line.strip()] * int(count)
    # From version 6 on squid does not note the method of a request that makes no sense to it.
    return [line.replace("400 - POST", "400 - -") if version() >= 6 else line for line in lines]


def run_test(folder, wine_test, program, test, count):
    """Its exit code and output, and the requests, of which the proxy may still have to note the last."""
    with Squid(folder, USER, PASSWORD) as squid, Desktop(folder) as desktop:
        desktop.environment.update(KVHTTP_PROXY_PORT=str(squid.port), KVHTTP_PROXY_USER=USER,
                                   KVHTTP_PROXY_PASSWORD=PASSWORD)
        output = os.path.join(folder, "test")
        with open(output, "wb") as file:
            result = desktop.run([wine_test, program, "--gtest_filter=" + test], stdout=file, stderr=file,
                                 timeout=170)
        await_true(lambda: len(squid.requests()) >= count or result.returncode != 0)
        requests = squid.requests()
    with open(output, encoding="utf-8", errors="replace") as file:
        return result.returncode, file.read(), requests


def left_behind():
    """The lines of the prefix's registry that tell of a password or of the proxy."""
    with open(os.path.join(PREFIX, "user.reg"), encoding="utf-8", errors="replace") as file:
        return [line for line in file if re.search(r"\\Mpr\]|\"ProxyServer\"=", line)]


def main(wine_test, program, test, seen):
    expected = expected_lines(seen)
    with tempfile.TemporaryDirectory(prefix="kvhttp-squid-") as folder:
        code, printed, requests = run_test(folder, wine_test, program, test, len(expected))
    print(printed, end="")
    print("The proxy has answered:", *(requests or ["nothing"]), sep="\n  ")
    if code != 0 or "[  PASSED  ] 1 test." not in printed:
        sys.exit(f"squid_run: {test} has failed or does not exist (exit code {code})")
    if [request.rsplit(" ", 1)[0] for request in requests] != expected:
        sys.exit("squid_run: the proxy should have answered:\n  " + "\n  ".join(expected))
    if left_behind():
        sys.exit("squid_run: in the prefix is left:\n" + "".join(left_behind()))


if len(sys.argv) != 5:
    sys.exit(__doc__)
main(*sys.argv[1:])
