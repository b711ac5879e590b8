"""What Wine's programs are for tests, scripts and the demo."""
import contextlib
import os
import select
import subprocess

from program import CannotStart

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
WINE_RUN = os.path.join(ROOT, "scripts", "wine-run")
WINE_TEST = os.path.join(ROOT, "scripts", "wine-test")
PREFIX = os.environ.get("KVHTTP_WINEPREFIX") or os.path.join(ROOT, "build", "wineprefix")
PATIENCE = 30


def windows_path(path):
    """As Wine's programs see the file or folder."""
    return "Z:" + os.path.abspath(path).replace("/", "\\")


@contextlib.contextmanager
def demo_server(programs, environment=None):
    """The demo's server, of that folder; gives its port and the checksum of its report. It ends when its input
    does."""
    # A start that Wine gives up says nothing.
    for _ in range(2):
        with subprocess.Popen([WINE_RUN, os.path.join(programs, "DemoServer.exe")], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=environment, text=True) as process:
            if select.select([process.stdout], [], [], PATIENCE)[0] and (line := process.stdout.readline()):
                try:
                    port, checksum = line.split()
                    yield int(port), checksum
                finally:
                    process.stdin.close()
                return
            process.kill()
    raise CannotStart("the demo's server has not started")
