"""Runs all tests of a GoogleTest program in few processes: shared_start.py FOLDER PROGRAM. GoogleTest deals the tests
out to the processes. Who calls first runs the first process, who calls meanwhile the next one; all return when all
have ended. What each test printed is in FOLDER/TEST.passed or FOLDER/TEST.failed then; a test that its process has
not come to has neither. No process runs twice: one that has hung would hang again."""
import fcntl
import os
import re
import subprocess
import sys

PROCESSES = 2
# Less than ctest gives to the test that runs them.
PATIENCE = "170"
WINE_TEST = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "scripts", "wine-test")

BEGIN = re.compile(r"^\[ RUN      \] (\S+)$")
END = re.compile(r"\[ *(OK|FAILED|SKIPPED) *\] ([^\s,]+)(?:, where .*)? \(\d+ ms\)$")


def write_result(folder, test, passed, lines):
    path = os.path.join(folder, test + (".passed" if passed else ".failed"))
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path + ".new", "w", encoding="utf-8") as file:
        file.writelines(lines)
    # All of it at once, since others look for it.
    os.rename(path + ".new", path)


def keep_results(folder, lines, code):
    """Takes the output apart. What a process prints after its last test, or in a test that it did not end, and an
    exit code that the tests do not explain, are a failure of the test before."""
    test, text, last, failed = None, [], None, False
    for line in lines:
        begin, end = BEGIN.search(line.rstrip()), END.search(line.rstrip())
        if begin:
            test, text = begin[1], []
        text.append(line)
        if end and end[2] == test:
            failed = failed or end[1] == "FAILED"
            write_result(folder, test, end[1] != "FAILED", text)
            test, text, last = None, [], (test, end[1] != "FAILED", text)
    if test is not None:
        write_result(folder, test, False, text + [f"\nThe process ended in this test, with exit code {code}.\n"])
    elif last is not None and code != int(failed):
        name, passed, before = last
        write_result(folder, name, False, before + text + [f"\nThe process ended after this test, with exit code {code}.\n"])
        if passed:
            os.remove(os.path.join(folder, name + ".passed"))


def run_process(folder, program, number):
    output = os.path.join(folder, f"process{number}")
    environment = {**os.environ, "GTEST_TOTAL_SHARDS": str(PROCESSES), "GTEST_SHARD_INDEX": str(number),
                   "KVHTTP_START_PATIENCE": PATIENCE}
    with open(output, "wb") as file:
        code = subprocess.run([WINE_TEST, program, "--gtest_also_run_disabled_tests"], stdin=subprocess.DEVNULL,
                              stdout=file, stderr=file, env=environment, check=False).returncode
    with open(output, encoding="utf-8", errors="replace", newline="") as file:
        keep_results(folder, [line.replace("\r\n", "\n") for line in file], code)


def main(folder, program):
    os.makedirs(folder, exist_ok=True)
    for number in range(PROCESSES):
        # Opened for good: whoever ends, however it ends, lets go of it.
        lock = open(os.path.join(folder, f"lock{number}"), "a+", encoding="ascii")  # pylint: disable=consider-using-with
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            continue
        if os.fstat(lock.fileno()).st_size == 0:
            lock.write("begun\n")
            lock.flush()
            run_process(folder, program, number)
        lock.close()
    for number in range(PROCESSES):
        with open(os.path.join(folder, f"lock{number}"), encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_SH)


if len(sys.argv) != 3:
    sys.exit(__doc__)
main(*sys.argv[1:])
