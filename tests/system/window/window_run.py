"""Runs the tests of the sample with a window on a desktop of their own, beside nginx with a certificate that nobody
knows: window_run.py WINE_TEST PROGRAM. First those that need the module not to be registered; then it is
registered, as a user does it."""
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support", "programs"))
from desktop import Desktop  # pylint: disable=wrong-import-position
from nginx import TlsServer  # pylint: disable=wrong-import-position
from wine import WINE_RUN, windows_path  # pylint: disable=wrong-import-position

UNREGISTERED = "UnregisteredWindowTest.*"


def run_tests(desktop, wine_test, program, selection):
    """Whether some have run and all have passed."""
    result = desktop.run([wine_test, program, "--gtest_filter=" + selection], stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, errors="replace", timeout=150)
    print(result.stdout, end="")
    return result.returncode == 0 and "[  PASSED  ]" in result.stdout and "[  PASSED  ] 0 tests" not in result.stdout


def register(desktop, module, *options):
    desktop.run([WINE_RUN, "regsvr32", "/s", *options, windows_path(module)], check=not options,
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def main(wine_test, program):
    module = os.path.join(os.path.dirname(os.path.abspath(program)), "kvHttp.dll")
    with tempfile.TemporaryDirectory(prefix="kvhttp-window-") as folder:
        nginx_folder = os.path.join(folder, "nginx")
        os.mkdir(nginx_folder)
        with TlsServer(nginx_folder, "self-signed") as server, Desktop(folder) as desktop:
            desktop.environment["KVHTTP_TLS_PORT"] = str(server.port)
            # The tests of one program take as long together as many programs do.
            desktop.environment["KVHTTP_START_PATIENCE"] = "140"
            # An earlier run may have been ended before it could do so.
            register(desktop, module, "/u")
            passed = run_tests(desktop, wine_test, program, UNREGISTERED)
            register(desktop, module)
            try:
                passed = run_tests(desktop, wine_test, program, "-" + UNREGISTERED) and passed
            finally:
                register(desktop, module, "/u")
    if not passed:
        sys.exit("window_run: tests have failed, or there were none")


if len(sys.argv) != 3:
    sys.exit(__doc__)
main(*sys.argv[1:])
