"""The watchdog of the test programs ends a test that hangs and names the places where its threads are; a test
that ends in time is left alone."""
import os
import re
import subprocess
import sys
import unittest

ROOT, PROGRAM = sys.argv[1:3]
del sys.argv[1:3]
EXIT_CODE = 99
CRASH_EXIT_CODE = 98


class WatchdogTest(unittest.TestCase):
    def run_program(self, test, seconds):
        return subprocess.run([os.path.join(ROOT, "scripts", "wine-test"), PROGRAM, "--gtest_filter=*." + test],
                              env={**os.environ, "KVHTTP_WATCHDOG_SECONDS": seconds}, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=40, check=False)

    def test_ends_a_hung_test_and_says_where(self):
        result = self.run_program("NeverEnds", "1")
        self.assertEqual(result.returncode, EXIT_CODE, result.stdout)
        self.assertIn("Watchdog: HangingProgram.NeverEnds still runs after 1 s.", result.stdout)
        self.assertIn("(runs the test)\n", result.stdout)
        places = re.findall(r"^  (HangingProgram\.exe\+0x[0-9a-f]+)$", result.stdout, re.MULTILINE)
        where = [os.path.join(ROOT, "scripts", "where"), "--in", os.path.dirname(PROGRAM)]
        named = subprocess.run(where + places, stdout=subprocess.PIPE, text=True, check=True).stdout
        for function in (" WaitForever(", "HangingProgram_NeverEnds_Test::TestBody()", " main", " SleepForever("):
            self.assertIn(function, named)

    def test_ends_a_crash_and_says_where(self):
        result = self.run_program("Crashes", "30")
        self.assertEqual(result.returncode, CRASH_EXIT_CODE, result.stdout)
        self.assertIn("Crash in Crashes: exception 0xc0000005, innermost place first:\n  HangingProgram.exe+0x",
                      result.stdout)

    def test_leaves_a_test_alone_that_ends_in_time(self):
        for seconds in ("30", "0"):
            result = self.run_program("EndsInTime", seconds)
            self.assertEqual(result.returncode, 0, result.stdout)
            self.assertNotIn("Watchdog", result.stdout)


unittest.main()
