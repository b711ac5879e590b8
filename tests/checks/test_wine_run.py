"""scripts/wine-run and scripts/wine-test: streams, exit codes, the retry of a failed start, the prefix. A
stand-in plays Wine, since Wine itself fails a start far too seldom."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SCRIPTS = os.path.join(sys.argv.pop(1), "scripts")
WINE_RUN = os.path.join(SCRIPTS, "wine-run")
WINE_TEST = os.path.join(SCRIPTS, "wine-test")

# Counts its starts; fails the first FAIL of them without a word, as Wine does; then acts as the program.
WINE = r"""#!/bin/bash
if [ "$1" = wineboot ]; then
  echo boot >> "$LOG"
  sleep 0.3
  exit 0
fi
echo start >> "$LOG"
if [ "$(grep -c start "$LOG")" -le "${FAIL:-0}" ]; then exit 1; fi
eval "$ACT" """

SERVER = r"""#!/bin/bash
echo "server $*" >> "$LOG"
[ "$1" != -p ] || [ -z "$RUNNING" ]
"""


class WineRunTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kvhttp wine ")
        self.addCleanup(shutil.rmtree, self.folder)
        for name, text in (("wine", WINE), ("wineserver", SERVER)):
            self.put_program(name, text)
        self.prefix = os.path.join(self.folder, "the prefix")
        os.mkdir(self.prefix)
        self.mark_ready()

    def put_program(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(file.name, 0o755)

    def mark_ready(self):
        with open(os.path.join(self.prefix, "ready"), "wb"):
            pass

    def environment(self, **more):
        return {**os.environ, "PATH": self.folder + ":" + os.environ["PATH"], "KVHTTP_WINEPREFIX": self.prefix,
                "LOG": os.path.join(self.folder, "log"), **more}

    def run_script(self, *arguments, script=WINE_RUN, joined=False, text="", **environment):
        return subprocess.run([script, *arguments], input=text, text=True, stdout=subprocess.PIPE, check=False,
                              stderr=subprocess.STDOUT if joined else subprocess.PIPE, timeout=30,
                              env=self.environment(**environment))

    def log(self):
        with open(os.path.join(self.folder, "log"), encoding="utf-8") as file:
            return file.read().splitlines()

    def forget_starts(self):
        open(os.path.join(self.folder, "log"), "w", encoding="utf-8").close()

    def test_streams_and_exit_code_pass_through(self):
        act = 'printf "out:%s|" "$@"; printf err >&2; cat; exit 53'
        for script in (WINE_RUN, WINE_TEST):
            with self.subTest(script=script):
                self.forget_starts()
                result = self.run_script("a b", "*", "", script=script, ACT=act, text="from stdin\n")
                self.assertEqual(result.stdout, "out:a b|out:*|out:|from stdin\n")
                self.assertEqual(result.stderr, "err")
                self.assertEqual(result.returncode, 53)
                self.assertEqual(self.log(), ["start"])

    def test_joined_streams_keep_their_order(self):
        act = "for i in 1 2 3; do echo out$i; echo err$i >&2; done; exit 3"
        result = self.run_script("x", script=WINE_TEST, ACT=act, joined=True)
        self.assertEqual(result.stdout, "out1\nerr1\nout2\nerr2\nout3\nerr3\n")
        self.assertEqual(result.returncode, 3)

    def test_a_service_that_holds_the_streams_holds_up_no_test(self):
        result = self.run_script("x", script=WINE_TEST, ACT="sleep 60 & echo done; exit 0")
        self.assertEqual((result.stdout, result.returncode), ("done\n", 0))

    def test_output_comes_as_it_is_written(self):
        with subprocess.Popen([WINE_RUN, "x"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                              env=self.environment(ACT='echo ask; read -r answer; echo "got $answer"')) as process:
            self.assertEqual(process.stdout.readline(), "ask\n")
            process.stdin.write("yes\n")
            process.stdin.flush()
            self.assertEqual(process.stdout.readline(), "got yes\n")

    def test_chance_is_switched_off_for_the_program_where_the_kernel_lets_it(self):
        def start():
            result = self.run_script("x", ACT='echo "$(cat /proc/self/personality) $*"')
            self.assertEqual(result.returncode, 0)
            return result.stdout

        allowed = subprocess.run(["setarch", "-R", "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0
        self.assertEqual(start(), "00040000 x\n" if allowed else "00000000 x\n")
        self.put_program("setarch", "#!/bin/sh\nexit 1\n")
        self.assertEqual(start(), "00000000 x\n")

    def test_silent_failure_with_code_1_is_tried_again(self):
        for joined in (False, True):
            with self.subTest(joined=joined):
                self.forget_starts()
                result = self.run_script("x", script=WINE_TEST, ACT="cat; exit 7", FAIL="2", text="kept\n",
                                         joined=joined)
                self.assertEqual((result.stdout, result.returncode), ("kept\n", 7))
                self.assertEqual(self.log(), ["start"] * 3)

    def test_a_start_that_hangs_without_a_word_is_tried_again(self):
        act = '[ "$(grep -c start "$LOG")" -gt 1 ] || exec sleep 60; echo done; exit 4'
        result = self.run_script("x", script=WINE_TEST, ACT=act, KVHTTP_START_PATIENCE="1")
        self.assertEqual((result.stdout, result.returncode), ("done\n", 4))
        self.assertEqual(self.log(), ["start"] * 2)

    def test_gives_up_after_three_starts(self):
        self.assertEqual(self.run_script("x", script=WINE_TEST, FAIL="9", ACT="").returncode, 1)
        self.assertEqual(self.log(), ["start"] * 3)

    def test_other_failures_are_not_tried_again(self):
        for act, code in (("echo x; exit 1", 1), ("echo x >&2; exit 1", 1), ("exit 2", 2), ("exit 0", 0)):
            with self.subTest(act=act):
                self.forget_starts()
                self.assertEqual(self.run_script("x", script=WINE_TEST, ACT=act).returncode, code)
                self.assertEqual(self.log(), ["start"])

    def test_parallel_first_use_makes_one_prefix(self):
        shutil.rmtree(self.prefix)
        processes = [subprocess.Popen([WINE_RUN, "x"], env=self.environment(ACT="exit 0")) for _ in range(4)]
        self.assertEqual([process.wait(30) for process in processes], [0] * 4)
        self.assertEqual(self.log(), ["boot", "server -k", "server -w"] + ["start"] * 4)
        self.assertTrue(os.path.exists(os.path.join(self.prefix, "ready")))

    def test_start_tells_whether_the_server_was_alive(self):
        self.assertEqual(self.run_script("--start").returncode, 0)
        self.assertEqual(self.log(), ["server -p", "boot"])
        self.assertEqual(self.run_script("--start", RUNNING="1").returncode, 3)

    def test_a_new_prefix_leaves_no_server_that_would_not_stay(self):
        shutil.rmtree(self.prefix)
        self.assertEqual(self.run_script("--start").returncode, 0)
        self.assertEqual(self.log(), ["boot", "server -k", "server -w", "server -p", "boot"])

    def test_stop_ends_the_server_and_waits_for_it(self):
        shutil.rmtree(self.prefix)
        self.assertEqual(self.run_script("--stop").returncode, 0)
        self.assertEqual(self.log(), ["server -k", "server -w"])


unittest.main()
