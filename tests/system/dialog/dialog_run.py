"""Runs one test of the dialogs' tests beside nginx with TLS, on a desktop of its own, and looks into nginx's log:
dialog_run.py WINE_TEST PROGRAM TEST CERTIFICATE[,twice][,no-display]. The test must pass, in two processes where
twice is said, and exactly the requests that it announces must have reached the server."""
import os
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support", "programs"))
from desktop import Desktop  # pylint: disable=wrong-import-position
from nginx import TlsServer  # pylint: disable=wrong-import-position


def run_test(desktop, wine_test, program, test):
    """What the test printed; ends the script when it has failed."""
    result = desktop.run([wine_test, program, "--gtest_filter=" + test], stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, errors="replace", timeout=170)
    print(result.stdout, end="")
    if result.returncode != 0 or "[  PASSED  ] 1 test." not in result.stdout:
        sys.exit(f"dialog_run: {test} has failed or does not exist (exit code {result.returncode})")
    return result.stdout


def main(wine_test, program, test, way):
    certificate, *options = way.split(",")
    with tempfile.TemporaryDirectory(prefix="kvhttp-dialog-") as folder:
        nginx_folder = os.path.join(folder, "nginx")
        os.mkdir(nginx_folder)
        with TlsServer(nginx_folder, certificate) as server, \
                Desktop(folder, display="no-display" not in options) as desktop:
            desktop.environment["KVHTTP_TLS_PORT"] = str(server.port)
            printed = "".join(run_test(desktop, wine_test, program, test)
                              for _ in range(2 if "twice" in options else 1))
        seen = server.requests()
    print("The server has seen:", *(seen or ["nothing"]), sep="\n  ")
    if seen != re.findall(r"^expected at the server: (.*?)\r?$", printed, re.MULTILINE):
        sys.exit("dialog_run: that is not what the test expects")


if len(sys.argv) != 5 or set(sys.argv[4].split(",")[1:]) - {"twice", "no-display"}:
    sys.exit(__doc__)
main(*sys.argv[1:])
