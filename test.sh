#!/usr/bin/env bash
# Builds everything and runs all tests: the one command of this repository's tests.
set -eu

usage()
{
  cat << 'END'
usage: ./test.sh [--filter REGEX] [--preset NAME]
Installs the packages that are missing (as root, or through sudo), builds everything with warnings as
errors, lets clang and clang-tidy read the product, and runs the tests under Wine. ctest's summary
comes last; the exit code is 0 only when all went well.
  --filter REGEX  run only the tests whose names match (ctest -R)
  --preset NAME   mingw-release (what ships, and the default), mingw-debug or mingw-coverage
END
}

cd "$(dirname "${BASH_SOURCE[0]}")"
preset=mingw-release
selection=()
while [ $# -gt 0 ]; do
  case $1 in
    --filter) selection=(-R "${2:?--filter needs a regular expression}"); shift 2 ;;
    --preset) preset=${2:?--preset needs a name}; shift 2 ;;
    --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done
case $preset in
  mingw-release | mingw-debug | mingw-coverage) ;;
  *) echo "test.sh: there are no tests to run in the preset '$preset'" >&2; exit 2 ;;
esac
exec < /dev/null

# stage NAME COMMAND...: runs the command, and says how long it took or what failed.
stage()
{
  local name=$1 start=$SECONDS
  shift
  echo "== $name"
  if ! "$@"; then
    echo "test.sh: failed: $name" >&2
    exit 1
  fi
  echo "== $name: $((SECONDS - start)) s"
}

configure()
{
  local log="build/configure-$1.log"
  mkdir -p build
  cmake --preset "$1" > "$log" 2>&1 || { cat "$log" >&2; return 1; }
}

stage "packages" scripts/install-packages test
if command -v ccache > /dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
stage "configure $preset" configure "$preset"
stage "build $preset" cmake --build --preset "$preset"
stage "configure mingw-clang" configure mingw-clang
stage "clang and clang-tidy on src" cmake --build --preset mingw-clang
stage "Wine prefix" scripts/wine-run

# Who finds the server alive shares it, and leaves it to the one who started it.
if scripts/wine-run --start; then
  trap 'scripts/wine-run --stop' EXIT
fi
echo "== tests"
ctest --test-dir "build/$preset" -j2 --output-on-failure --no-tests=error "${selection[@]}"
