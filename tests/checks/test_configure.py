"""What configuring decides by the machine: where GoogleTest comes from, and which tests are left out."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = sys.argv.pop(1)
# As sources and as a package; both are GoogleTest enough for configuring.
SOURCES = "add_library(gmock INTERFACE)\nadd_library(GTest::gmock ALIAS gmock)\n"
PACKAGE = "add_library(GTest::gmock INTERFACE IMPORTED)\n"


class ConfigureTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="kvhttp configure ")
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name

    def write(self, path, text):
        path = os.path.join(self.folder, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def configure(self, text, *options):
        self.write("project/CMakeLists.txt", f"""
cmake_minimum_required(VERSION 3.25)
project(Trial LANGUAGES NONE)
enable_testing()
list(APPEND CMAKE_MODULE_PATH "{ROOT}/cmake")
{text}""")
        result = subprocess.run(
            ["cmake", "-S", "project", "-B", "build", "-G", "Ninja", *options], cwd=self.folder,
            stdin=subprocess.DEVNULL, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return result.returncode, " ".join(result.stdout.split())

    def find_googletest(self, folder):
        """Without what this machine has installed."""
        return self.configure("include(TestFramework)\nget_target_property(type GTest::gmock TYPE)\n",
                              "-DKVHTTP_GOOGLETEST_DIR=" + os.path.join(self.folder, folder),
                              "-DCMAKE_PREFIX_PATH=" + os.path.join(self.folder, "prefix"),
                              "-DCMAKE_MAKE_PROGRAM=" + shutil.which("ninja"),
                              "-DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF",
                              "-DCMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH=OFF")

    def test_takes_sources_before_a_package(self):
        self.write("sources/CMakeLists.txt", SOURCES)
        self.write("prefix/lib/cmake/GTest/GTestConfig.cmake", PACKAGE)
        code, output = self.find_googletest("sources")
        self.assertEqual(code, 0, output)
        self.assertIn(f"GoogleTest: the sources in {self.folder}/sources", output)

    def test_takes_a_package_where_there_are_no_sources(self):
        self.write("prefix/lib/cmake/GTest/GTestConfig.cmake", PACKAGE)
        code, output = self.find_googletest("none")
        self.assertEqual(code, 0, output)
        self.assertIn(f"GoogleTest: the package in {self.folder}/prefix/lib/cmake/GTest", output)

    def test_says_what_to_do_without_either(self):
        code, output = self.find_googletest("none")
        self.assertNotEqual(code, 0)
        self.assertIn("-DKVHTTP_GOOGLETEST_DIR=", output)

    def test_does_not_take_a_package_without_googlemock(self):
        self.write("prefix/lib/cmake/GTest/GTestConfig.cmake", "")
        self.assertNotEqual(self.find_googletest("none")[0], 0)

    def add_tests(self, answer):
        code, output = self.configure("""
include(UnixTest)
foreach(name IN ITEMS one two)
  kvhttp_add_unix_test(checks.${name} LABEL checks TIMEOUT 5 COMMAND true)
endforeach()
kvhttp_name_left_out_tests()""", "-DKVHTTP_UNIX_TESTS=" + answer)
        self.assertEqual(code, 0, output)
        tests = subprocess.run(["ctest", "-N"], cwd=os.path.join(self.folder, "build"), text=True,
                               stdout=subprocess.PIPE, check=True).stdout
        return output, tests

    def test_names_the_tests_that_a_host_leaves_out(self):
        output, tests = self.add_tests("OFF")
        self.assertIn("Debian's programs: checks.one checks.two", output)
        self.assertIn("Total Tests: 0", tests)

    def test_leaves_none_out_on_this_host(self):
        output, tests = self.add_tests("ON")
        self.assertNotIn("Left out", output)
        self.assertIn("Total Tests: 2", tests)


unittest.main()
