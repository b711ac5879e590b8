"""The bytes of the module, and of the file with its names, depend on its sources only: built again from a copy in
another folder, at another time, with no repository around it, they are the same files."""
import os
import shutil
import subprocess
import sys
import tempfile

ROOT, MODULE, PRESET = sys.argv[1:4]


def run(*command, folder):
    # No compiler cache: what it kept from the first build would prove nothing.
    environment = {**os.environ, "CCACHE_DISABLE": "1", "SOURCE_DATE_EPOCH": "1", "LC_ALL": "C"}
    result = subprocess.run(command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if result.returncode != 0:
        sys.exit(f"{' '.join(command)} failed:\n{result.stdout}")


def compare(path, again):
    with open(path, "rb") as file:
        first = file.read()
    with open(again, "rb") as file:
        second = file.read()
    if first != second:
        places = [i for i, (a, b) in enumerate(zip(first, second)) if a != b]
        sys.exit(f"{path}: {len(first)} and {len(second)} bytes; {len(places)} differ"
                 + (f", the first at {places[0]:#x}" if places else ""))


def main():
    with tempfile.TemporaryDirectory(prefix="kvhttp elsewhere ") as folder:
        copy = os.path.join(folder, "a much longer name of the checkout")
        shutil.copytree(ROOT, copy, ignore=lambda path, names: {".git", "build"} if path == ROOT else set())
        run("cmake", "--preset", PRESET, "-DKVHTTP_BUILD_TESTS=OFF", folder=copy)
        run("cmake", "--build", "--preset", PRESET, "--target", "kvHttp", "-j2", folder=copy)
        again = os.path.join(copy, "build", PRESET, "bin", os.path.basename(MODULE))
        for suffix in ("", ".debug"):
            compare(MODULE + suffix, again + suffix)


main()
