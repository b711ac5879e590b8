"""A desktop of the tests' own: an X server without a screen, and a Wine prefix whose windows appear on it. Wine
keeps one desktop for a prefix, on the display of the program that came first: hence a prefix apart from that of
all other tests, for one test at a time of those that have the same lock in ctest."""
import fcntl
import os
import subprocess

from program import CannotStart, Program, await_true, plain_environment
from wine import ROOT, WINE_RUN

PREFIX = os.path.join(ROOT, "build", "wineprefix-" + os.environ.get("KVHTTP_LOCK", "desktop"))
# Wine keeps its own frame around windows that no window manager manages. Without this setting it waits two seconds
# for one, each time that a window goes.
UNMANAGED = ["reg", "add", r"HKCU\Software\Wine\X11 Driver", "/v", "Managed", "/d", "N", "/f"]


class Desktop:
    """with Desktop(folder) as desktop: programs run with desktop.environment appear on it, and the prefix's
    programs all end with it. Without a display, programs find no screen at all."""

    def __init__(self, folder, display=True):
        self.folder = folder
        self.display = display
        self.server = None
        self.lock = None
        self.environment = plain_environment(KVHTTP_WINEPREFIX=PREFIX)
        self.environment.pop("DISPLAY", None)

    def __enter__(self):
        os.makedirs(os.path.dirname(PREFIX), exist_ok=True)
        self.lock = open(PREFIX + ".desktop", "w", encoding="utf-8")
        fcntl.flock(self.lock, fcntl.LOCK_EX)
        try:
            # A prefix that is still to be made, or that a killed test has left running.
            self.run([WINE_RUN], check=True)
            self.run([WINE_RUN, "--stop"])
            self.make_unmanaged()
            if self.display:
                self.start_server()
        except BaseException:
            self.__exit__()
            raise
        return self

    def make_unmanaged(self):
        done = os.path.join(PREFIX, "unmanaged")
        if not os.path.exists(done):
            self.run([WINE_RUN, *UNMANAGED], check=True, stdout=subprocess.DEVNULL)
            self.run([WINE_RUN, "--stop"])
            with open(done, "w", encoding="ascii"):
                pass

    def start_server(self):
        number = os.path.join(self.folder, "display")
        self.server = Program(["sh", "-c", 'exec Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3> "$1"',
                               "sh", number], os.path.join(self.folder, "xvfb"))

        def has_number():
            return not self.server.runs() or (os.path.exists(number) and os.path.getsize(number) > 0)

        if not await_true(has_number) or not self.server.runs():
            raise CannotStart(self.server.printed())
        with open(number, encoding="ascii") as file:
            self.environment["DISPLAY"] = ":" + file.read().strip()

    def __exit__(self, *_):
        self.run([WINE_RUN, "--stop"])
        if self.server is not None:
            self.server.stop()
        self.lock.close()

    def run(self, command, **options):
        return subprocess.run(command, env=self.environment, stdin=subprocess.DEVNULL, check=options.pop("check", False),
                              **options)

    def screenshot(self, path):
        """The whole screen, as a PNG file."""
        self.run(["import", "-window", "root", path], check=True)
