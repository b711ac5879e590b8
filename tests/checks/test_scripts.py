"""test.sh and install-packages from the outside: what they refuse, what reaches ctest, and that nothing is asked
of the machine when nothing is missing."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = sys.argv.pop(1)
POLICY = "/usr/sbin/policy-rc.d"
INSTALL = os.path.join(ROOT, "scripts", "install-packages")


def run(*command, **environment):
    return subprocess.run(command, env={**os.environ, **environment}, stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60, check=False)


def put_program(folder, name, text):
    path = os.path.join(folder, name)
    with open(path, "w", encoding="utf-8") as file:
        file.write("#!/bin/bash\n" + text)
    os.chmod(path, 0o755)


class InstallPackagesTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="kvhttp scripts ")
        self.addCleanup(temporary.cleanup)
        self.bin = temporary.name
        self.log = os.path.join(self.bin, "log")
        for name in ("apt-get", "sudo", "tee", "chmod", "rm"):
            put_program(self.bin, name, f'echo {name} "$@" >> "{self.log}"\n')
        put_program(self.bin, "id", "echo 0\n")
        put_program(self.bin, "apt-cache", '[[ " ${KNOWN-} " == *" $2 "* ]]\n')

    def calls(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log, encoding="utf-8") as file:
            return file.read().splitlines()

    def hide_all_commands(self):
        """Leaves the machine bash, env and what stands here: every package is missing."""
        for name in ("bash", "env"):
            os.symlink(f"/usr/bin/{name}", os.path.join(self.bin, name))
        return self.bin

    def test_does_nothing_when_all_is_there(self):
        for group in ("run", "test"):
            result = run(INSTALL, group, PATH=self.bin + ":" + os.environ["PATH"])
            self.assertEqual((result.returncode, result.stdout), (0, ""))
        self.assertEqual(self.calls(), [])

    def test_installs_what_is_missing_after_one_update(self):
        result = run(INSTALL, "run", PATH=self.hide_all_commands())
        self.assertEqual(result.returncode, 0, result.stdout)
        update, install = (call for call in self.calls() if call.startswith("apt-get"))
        self.assertTrue(update.endswith(" update"), update)
        for word in ("install", "--no-install-recommends", "g++-mingw-w64-x86-64-win32", "cmake", "ninja-build", "wine"):
            self.assertIn(word, install.split())
        self.assertNotIn("shellcheck", install.split())

    def test_installs_the_one_version_of_clangs_tools_where_there_is_one(self):
        tools = ("clang-19", "clang-tidy-19", "clang-format-19")
        self.hide_all_commands()
        result = run(INSTALL, "test", PATH=self.bin, KNOWN="clang-19 clang-tidy-19 clang-format-19")
        self.assertEqual(result.returncode, 0, result.stdout)
        install = [call for call in self.calls() if " install " in call][0].split()
        for tool in tools:
            self.assertIn(tool, install)
        os.remove(self.log)
        result = run(INSTALL, "test", PATH=self.bin, KNOWN="clang-19")
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertIn("\nThis system has no package clang-tidy-19: what needs it is left out.\n", "\n" + result.stdout)
        install = [call for call in self.calls() if " install " in call][0].split()
        self.assertEqual([tool for tool in tools if tool in install], ["clang-19"])

    def test_asks_nothing_of_apt_for_tools_that_it_does_not_have(self):
        for name in ("x86_64-w64-mingw32-g++-win32", "x86_64-w64-mingw32-windres", "cmake", "ninja", "wine",
                     "wineserver", "regsvr32-stable", "python3", "shellcheck", "tinyproxy", "openssl", "Xvfb",
                     "x86_64-w64-mingw32-widl", "makensis"):
            put_program(self.bin, name, "")
        self.hide_all_commands()
        result = run(INSTALL, "test", PATH=self.bin, KNOWN="googletest")
        self.assertEqual((result.returncode, result.stdout, self.calls()), (0, "", []))

    def test_lets_no_server_start_as_a_service(self):
        result = run(INSTALL, "test", PATH=self.hide_all_commands())
        self.assertEqual(result.returncode, 0, result.stdout)
        calls = [call if POLICY in call else call.split()[0] for call in self.calls()]
        # A machine that forbids services by itself keeps its own way.
        forbid, allow = ([], []) if os.path.exists(POLICY) else ([f"tee {POLICY}", f"chmod 755 {POLICY}"],
                                                                 [f"rm -f {POLICY}"])
        self.assertEqual(calls, ["apt-get", *forbid, "apt-get", *allow])

    def test_uses_sudo_without_a_prompt_where_nobody_can_answer(self):
        put_program(self.bin, "id", "echo 1000\n")
        self.assertEqual(run(INSTALL, "run", PATH=self.hide_all_commands()).returncode, 0)
        for call in (call for call in self.calls() if "apt-get" in call):
            self.assertTrue(call.startswith("sudo -n env DEBIAN_FRONTEND=noninteractive apt-get "), call)

    def test_names_what_is_missing_when_it_cannot_install(self):
        put_program(self.bin, "id", "echo 1000\n")
        self.hide_all_commands()
        put_program(self.bin, "sudo", "exit 1\n")
        refused = run(INSTALL, "run", PATH=self.bin)
        os.remove(os.path.join(self.bin, "sudo"))
        missing = run(INSTALL, "run", PATH=self.bin)
        for result, text in ((refused, "sudo does not let this user; let root install: "),
                             (missing, "run as root, or install sudo, to get: ")):
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"install-packages: {text}g++-mingw-w64-x86-64-win32 ", result.stdout)
        self.assertEqual(self.calls(), [])

    def test_refuses_an_unknown_group(self):
        for arguments in ([], ["everything"]):
            self.assertEqual(run(INSTALL, *arguments).returncode, 2)


class CoverageTest(unittest.TestCase):
    def test_takes_no_arguments(self):
        coverage = os.path.join(ROOT, "scripts", "coverage")
        self.assertEqual(run(coverage, "--filter", "A").returncode, 2)
        self.assertIn("usage: scripts/coverage\n", run(coverage, "--help").stdout)


class CompileTest(unittest.TestCase):
    def test_warnings_are_errors_where_the_environment_says_so(self):
        for asked, expected in (("", "of a file\n"), ("1", "of a file -Werror\n")):
            result = run(os.path.join(ROOT, "cmake/compile"), "echo", "of a file", KVHTTP_WARNINGS_ARE_ERRORS=asked)
            self.assertEqual(result.stdout, expected)


class TestShTest(unittest.TestCase):
    def setUp(self):
        """A copy of test.sh among stand-ins that write down how they were called."""
        temporary = tempfile.TemporaryDirectory(prefix="kvhttp scripts ")
        self.addCleanup(temporary.cleanup)
        self.root = temporary.name
        self.log = os.path.join(self.root, "log")
        os.makedirs(os.path.join(self.root, "scripts"))
        for name in ("test.sh", "scripts/stage"):
            with open(os.path.join(ROOT, name), encoding="utf-8") as file:
                put_program(self.root, name, file.read())
        for name in ("cmake", "ctest", "clang-tidy-19", "scripts/install-packages", "scripts/wine-run"):
            put_program(self.root, name, f'''echo {name} "$@" >> "{self.log}"
if [ {name} = ctest ] && [ -n "${{FAILURES-}}" ]; then
  mkdir -p "$2/Testing/Temporary"
  echo "$FAILURES" > "$2/Testing/Temporary/LastTestsFailed.log"
fi
[ {name} != ctest ] || echo "80% tests passed, ${{FAILED-0}} tests failed out of 5"
[ -z "${{KVHTTP_SHARED_STARTS-}}" ] || echo shared >> "{self.log}"
[[ "{name} $*" != ${{FAIL-none}} ]]
''')
        put_program(self.root, "nproc", "echo 7\n")

    def run_script(self, *arguments, **environment):
        if os.path.exists(self.log):
            os.remove(self.log)
        result = run(os.path.join(self.root, "test.sh"), *arguments,
                     **{"PATH": self.root + ":" + os.environ["PATH"], "KVHTTP_SHARED_STARTS": "", **environment})
        with open(self.log, "a+", encoding="utf-8") as file:
            file.seek(0)
            return result.returncode, result.stdout, file.read().splitlines()

    def test_runs_every_stage_in_order(self):
        code, output, calls = self.run_script()
        self.assertEqual(code, 0)
        self.assertEqual(calls, [
            "scripts/install-packages test",
            "cmake --preset mingw-release",
            "cmake --build build/mingw-release",
            "cmake --preset mingw-clang -D CMAKE_COMPILE_WARNING_AS_ERROR=ON",
            "cmake --build build/mingw-clang",
            "scripts/wine-run",
            "scripts/wine-run --start",
            "ctest --test-dir build/mingw-release --output-on-failure --no-tests=error -j 21",
            "shared",
            "scripts/wine-run --stop",
            "shared",
        ])
        self.assertRegex(output, r"\n5 passed, 0 failed, 0 min \d s\n$")

    def test_filter_and_preset_reach_ctest(self):
        _, _, calls = self.run_script("--filter", "A b|C", "--preset", "mingw-debug")
        self.assertIn("ctest --test-dir build/mingw-debug --output-on-failure --no-tests=error -j 21 -R A b|C", calls)
        self.assertNotIn("shared", calls)

    def test_a_failing_stage_ends_it(self):
        for stage in ("scripts/install-packages*", "cmake --preset mingw-r*", "cmake --build build/mingw-r*",
                      "cmake --build build/mingw-clang", "scripts/wine-run "):
            with self.subTest(stage=stage):
                code, output, calls = self.run_script(FAIL=stage.replace(" ", "\\ "))
                self.assertEqual(code, 1)
                self.assertRegex(output, r": failed, exit code \d+; all that it printed: build/logs/[\w-]+\.txt\n$")
                self.assertFalse([call for call in calls if call.startswith("ctest")])

    def test_failing_tests_fail_it(self):
        code, output, calls = self.run_script(FAIL="ctest*", FAILED="2")
        self.assertEqual(code, 1)
        self.assertRegex(output, r"\n3 passed, 2 failed, 0 min \d s\n$")
        self.assertIn("scripts/wine-run --stop", calls)

    def test_one_or_two_tests_of_real_time_get_a_second_try(self):
        for failures, again in (("7:system.A", True), ("7:system.A\n8:system.B", True), ("7:unit.system.A", False),
                                ("7:system.A\n8:module.B", False), ("\n".join(["7:system.A"] * 3), False)):
            for option, code, count in (("*-j*", 0, "5 passed, 0"), ("*", 1, "4 passed, 1")):
                with self.subTest(failures=failures, option=option):
                    result, output, calls = self.run_script(FAIL="ctest" + option, FAILED="1", FAILURES=failures)
                    second = "ctest --test-dir build/mingw-release --output-on-failure --no-tests=error --rerun-failed"
                    self.assertEqual(second in calls, again)
                    if again:
                        self.assertEqual(calls[calls.index(second) + 1:], ["scripts/wine-run --stop"])
                    self.assertEqual(result, code if again else 1)
                    self.assertRegex(output, "\n" + (count if again else "4 passed, 1"))
                    self.assertEqual("== second try: system.A" in output, again)

    def test_says_that_it_skips_what_it_has_no_tool_for(self):
        os.remove(os.path.join(self.root, "clang-tidy-19"))
        for name in "bash env cat cut dirname grep head mkdir rm sed stat tail tr".split():
            os.symlink(shutil.which(name), os.path.join(self.root, name))
        code, output, calls = self.run_script(PATH=self.root)
        self.assertEqual(code, 0)
        self.assertIn("\n== clang and clang-tidy on src: skipped, since clang-tidy-19 is not here\n", output)
        self.assertFalse([call for call in calls if "clang" in call])

    def test_leaves_a_server_alone_that_another_started(self):
        _, _, calls = self.run_script(FAIL="scripts/wine-run\\ --start")
        self.assertNotIn("scripts/wine-run --stop", calls)

    def test_refuses_what_it_does_not_know(self):
        for arguments in (["--fast"], ["--preset", "msvc"], ["extra"]):
            self.assertEqual(self.run_script(*arguments)[0], 2)


unittest.main()
