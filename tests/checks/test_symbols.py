"""The module that ships has no names in it, and the file beside it has those of the same build: each export's
address in the module leads to its function and line."""
import re
import subprocess
import sys

ROOT, MODULE = sys.argv[1:3]
EXPORTS = ("DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer")


def run(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False).stdout


def main():
    problems = []
    names = run("x86_64-w64-mingw32-nm", MODULE)
    if "no symbols" not in names:
        problems.append(f"names in the module:\n{names}")
    # The table of the exports is in the order of their names.
    offsets = re.findall(r"\+base\[ *\d+\] ([0-9a-f]+) Export RVA", run("x86_64-w64-mingw32-objdump", "-p", MODULE))
    if len(offsets) != len(EXPORTS):
        sys.exit(f"expected {len(EXPORTS)} exports, got {offsets}")
    folder, name = MODULE.rsplit("/", 1)
    for export, offset in zip(EXPORTS, offsets):
        place = run(f"{ROOT}/scripts/where", "--in", folder, f"{name}+0x{offset}").strip()
        if not re.search(rf": +{export} at .*src/server/Module\.cpp:\d+$", place):
            problems.append(f"expected {export} and its line in src/server/Module.cpp, got: {place}")
    sys.exit("\n".join(problems) or 0)


main()
