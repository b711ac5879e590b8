"""tests/support/programs/shared-start: each test tells its own result and text, however few starts of Wine there
were, and whatever becomes of the processes. A stand-in plays Wine, another one the program."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SHARED_START = os.path.join(sys.argv.pop(1), "tests", "support", "programs", "shared-start")

WINE = """#!/bin/bash
exec "$@"
"""

# Four tests, of which GoogleTest's environment variables choose.
PROGRAM = r"""#!/usr/bin/env python3
import os, sys, time
with open(os.environ["LOG"], "a") as log:
    log.write("start\n")
tests = ["One.a", "One.b", "Two/One.c/0", "Two/One.c/1"]
chosen = [a.split("=")[1] for a in sys.argv if a.startswith("--gtest_filter=")]
count, index = int(os.environ.get("GTEST_TOTAL_SHARDS", 1)), int(os.environ.get("GTEST_SHARD_INDEX", 0))
run = [test for test in tests if not chosen or test in chosen][index::count]
failed = False
for test in run:
    act = os.environ.get(test.replace(".", "_").replace("/", "_"), "")
    sys.stdout.write(f"[ RUN      ] {test}\r\ntext of {test}\r\n")
    sys.stdout.flush()
    if act.startswith("exit"):
        os._exit(int(act[4:]))
    if act == "unended line":
        sys.stdout.write("no end")
    result = {"fail": "[  FAILED  ]", "skip": "[  SKIPPED ]"}.get(act, "[       OK ]")
    failed = failed or act == "fail"
    where = ", where GetParam() = 7" if act == "fail" and "/" in test else ""
    sys.stdout.write(f"{result} {test}{where} (3 ms)\r\n")
if os.environ.get("END"):
    print("died at the end")
    sys.stdout.flush()
    os._exit(int(os.environ["END"]))
print("[  PASSED  ] some tests.")
sys.exit(failed)
"""

TESTS = ["One.a", "One.b", "Two/One.c/0", "Two/One.c/1"]


class SharedStartTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kvhttp shared ")
        self.addCleanup(shutil.rmtree, self.folder)
        self.program = self.put_program("a program", PROGRAM)
        self.put_program("wine", WINE)
        prefix = os.path.join(self.folder, "prefix")
        os.mkdir(prefix)
        with open(os.path.join(prefix, "ready"), "wb"):
            pass
        self.environment = {**os.environ, "PATH": self.folder + ":" + os.environ["PATH"], "KVHTTP_WINEPREFIX": prefix,
                            "LOG": os.path.join(self.folder, "log"),
                            "KVHTTP_SHARED_STARTS": os.path.join(self.folder, "starts")}

    def put_program(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, 0o755)
        return path

    def start(self, *arguments, **more):
        return subprocess.Popen([SHARED_START, self.program, *arguments], env={**self.environment, **more},
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def run_test(self, test, **more):
        with self.start("--gtest_filter=" + test, "--gtest_also_run_disabled_tests", **more) as process:
            text = process.communicate(timeout=30)[0]
        return process.returncode, text

    def starts(self):
        with open(os.path.join(self.folder, "log"), encoding="utf-8") as file:
            return len(file.read().splitlines())

    def test_all_tests_take_two_starts_and_each_tells_its_own_text(self):
        for test in TESTS:
            self.assertEqual(self.run_test(test),
                             (0, f"[ RUN      ] {test}\ntext of {test}\n[       OK ] {test} (3 ms)\n"))
        self.assertEqual(self.starts(), 2)

    def test_tests_that_come_at_once_take_two_starts_too(self):
        processes = [self.start("--gtest_filter=" + test) for test in TESTS]
        for test, process in zip(TESTS, processes):
            text = process.communicate(timeout=30)[0]
            self.assertIn(f"[       OK ] {test}", text)
            self.assertEqual(process.returncode, 0)
        self.assertEqual(self.starts(), 2)

    def test_a_failure_is_that_tests_alone(self):
        for failing in ("One.b", "Two/One.c/1"):
            variable = failing.replace(".", "_").replace("/", "_")
            shutil.rmtree(self.environment["KVHTTP_SHARED_STARTS"], ignore_errors=True)
            for test in TESTS:
                code, text = self.run_test(test, **{variable: "fail"})
                self.assertEqual((code, "FAILED" in text), (1, True) if test == failing else (0, False), text)
                self.assertIn("text of " + test, text)

    def test_a_skipped_test_says_so(self):
        code, text = self.run_test("One.a", One_a="skip")
        self.assertEqual(code, 0)
        self.assertIn("[  SKIPPED ] One.a", text)

    def test_text_without_an_end_of_line_hides_no_result(self):
        self.assertEqual(self.run_test("One.a", One_a="unended line")[0], 0)

    def test_a_crash_is_told_with_its_text_and_the_tests_after_it_run_alone(self):
        code, text = self.run_test("One.a", One_a="exit98")
        self.assertEqual(code, 1)
        self.assertEqual(text, "[ RUN      ] One.a\ntext of One.a\n\nThe process ended in this test, with exit code 98.\n")
        self.assertEqual(self.run_test("One.b")[0], 0)
        self.assertEqual(self.starts(), 2)
        code, text = self.run_test("Two/One.c/0")
        self.assertEqual(code, 0)
        self.assertIn("text of Two/One.c/0", text)
        self.assertNotIn("text of One.a", text)
        self.assertEqual(self.starts(), 3)

    def test_a_process_that_ends_badly_after_its_tests_fails_the_last_one(self):
        for test, expected in zip(TESTS, (0, 0, 1, 1)):
            code, text = self.run_test(test, END="5")
            self.assertEqual(code, expected)
            self.assertEqual("died at the end\n\nThe process ended after this test, with exit code 5." in text, expected == 1)

    def test_outside_of_a_run_of_all_tests_each_has_its_own_process(self):
        for test in TESTS[:2]:
            code, text = self.run_test(test, KVHTTP_SHARED_STARTS="")
            self.assertEqual(code, 0)
            self.assertIn("text of " + test, text)
        self.assertEqual(self.starts(), 2)

    def test_what_is_no_single_test_goes_to_the_program(self):
        with self.start("--gtest_list_tests") as process:
            self.assertIn("PASSED", process.communicate(timeout=30)[0])
        self.assertFalse(os.path.exists(self.environment["KVHTTP_SHARED_STARTS"]))


unittest.main()
