"""The tests that one suite of a program has are those that ctest was told of:
check_listed.py WINE_TEST PROGRAM SUITE TEST..."""
import subprocess
import sys

wine_test, program, wanted = sys.argv[1:4]
listing = subprocess.run([wine_test, program, "--gtest_list_tests"], stdin=subprocess.DEVNULL,
                         stdout=subprocess.PIPE, text=True, timeout=170, check=True).stdout
suite, found = "", set()
for line in listing.splitlines():
    if not line.startswith("  "):
        suite = line.strip()
    elif suite == wanted + ".":
        found.add(suite + line.strip())
listed = set(sys.argv[4:])
print("not listed:", *sorted(found - listed))
print("listed, but not there:", *sorted(listed - found))
sys.exit(found != listed)
