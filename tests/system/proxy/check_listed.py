"""The tests that a program has are those that ctest was told of: check_listed.py WINE_TEST PROGRAM TEST..."""
import subprocess
import sys

wine_test, program = sys.argv[1:3]
listing = subprocess.run([wine_test, program, "--gtest_list_tests"], stdin=subprocess.DEVNULL,
                         stdout=subprocess.PIPE, text=True, timeout=170, check=True).stdout
suite, found = "", set()
for line in listing.splitlines():
    if line.startswith("  "):
        found.add(suite + line.strip())
    else:
        suite = line.strip()
listed = set(sys.argv[3:])
print("not listed:", *sorted(found - listed))
print("listed, but not there:", *sorted(listed - found))
sys.exit(found != listed)
