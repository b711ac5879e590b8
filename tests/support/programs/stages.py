"""What ./demo.sh and ./bench.sh have in common: stages whose output goes to a log, and the programs that they run."""
import os
import shutil
import subprocess

from wine import ROOT

LOGS = os.path.join(ROOT, "build", "logs")
BUILD = os.path.join(ROOT, "build", "mingw-release")


class CannotBeSetUp(Exception):
    """With the reason, where nobody has told it yet."""


class Stages:
    """Of one script, whose name begins the names of the logs. environment() is what the commands get."""

    def __init__(self, script, environment=os.environ.copy):
        self.script = script
        self.environment = environment

    def run(self, name, log, *command, still=False):
        stage = [os.path.join(ROOT, "scripts", "stage"), *(["--still"] if still else []), name,
                 os.path.join(LOGS, f"{self.script}-{log}.txt")]
        if subprocess.run([*stage, *command], env=self.environment(), check=False).returncode != 0:
            raise CannotBeSetUp()

    def programs(self, packages, what, *targets):
        """The folder with the programs: KVHTTP_BIN, or where they are built now."""
        if os.environ.get("KVHTTP_BIN"):
            return os.path.abspath(os.environ["KVHTTP_BIN"])
        self.run("packages", "packages", os.path.join(ROOT, "scripts", "install-packages"), packages, still=True)
        os.chdir(ROOT)
        if shutil.which("ccache"):
            os.environ["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
        if not os.path.exists(os.path.join(BUILD, "build.ninja")):
            # Without the tests, whose framework need not be here. The next "cmake --preset" brings them back.
            self.run("configure", "configure", "cmake", "--preset", "mingw-release", "-D", "KVHTTP_BUILD_TESTS=OFF")
        self.run("build " + what, "build", "cmake", "--build", BUILD, "--target", *targets)
        return os.path.join(BUILD, "bin")
