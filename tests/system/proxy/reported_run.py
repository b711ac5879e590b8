"""Runs one test of the reported systems: reported_run.py WINE_TEST PROGRAM TEST VERSION. The platform is told to
report that version to a copy of the program with a name of its own, so that no other program sees it."""
import os
import shutil
import subprocess
import sys
import tempfile


def run(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", timeout=170, check=False)


def main(wine_test, program, test, version):
    name = f"reported_{version}_{os.getpid()}.exe"
    key = rf"HKCU\Software\Wine\AppDefaults\{name}"
    with tempfile.TemporaryDirectory(prefix="kvhttp-reported-") as folder:
        copy = shutil.copy(program, os.path.join(folder, name))
        setting = run(wine_test, "reg", "add", key, "/v", "Version", "/d", version, "/f")
        if setting.returncode != 0:
            sys.exit("reported_run: the version cannot be set:\n" + setting.stdout)
        try:
            result = run(wine_test, copy, "--gtest_filter=" + test)
        finally:
            run(wine_test, "reg", "delete", key, "/f")
    print(result.stdout, end="")
    if result.returncode != 0 or "[  PASSED  ] 1 test." not in result.stdout:
        sys.exit(f"reported_run: {test} has failed or does not exist (exit code {result.returncode})")


if len(sys.argv) != 5:
    sys.exit(__doc__)
main(*sys.argv[1:])
