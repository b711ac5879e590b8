#!/usr/bin/env bash
# Builds everything and runs all tests: the one command of this repository's tests.
set -eu

usage()
{
  cat << 'END'
usage: ./test.sh [--filter REGEX] [--preset NAME]
       ./test.sh --full [STAGE...]
Installs the packages that are missing (as root, or through sudo), builds everything with warnings as
errors, lets clang and clang-tidy read the product, and runs the tests under Wine. How many tests
passed comes last; the exit code is 0 only when all went well. What was printed meanwhile is in build/logs.
  --filter REGEX  run only the tests whose names match (ctest -R), each in a process of its own
  --preset NAME   mingw-release (what ships, and the default), mingw-debug, mingw-guarded or mingw-coverage
  --full          all of that and what takes longer: scripts/full --help
END
}

cd "$(dirname "${BASH_SOURCE[0]}")"
preset=mingw-release
selection=()
while [ $# -gt 0 ]; do
  case $1 in
    --filter) selection=(-R "${2:?--filter needs a regular expression}"); shift 2 ;;
    --preset) preset=${2:?--preset needs a name}; shift 2 ;;
    --full) shift; exec scripts/full "$@" ;;
    --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done
case $preset in
  mingw-release | mingw-debug | mingw-guarded | mingw-coverage) ;;
  *) echo "test.sh: there are no tests to run in the preset '$preset'" >&2; exit 2 ;;
esac
export KVHTTP_BEGAN=$EPOCHSECONDS

# Warnings are errors here, and only here: a person's own build is not to fail on one.
export KVHTTP_WARNINGS_ARE_ERRORS=1
configure()
{
  scripts/stage "configure $1" "build/logs/configure-$1.txt" cmake --preset "$@"
}

build()
{
  scripts/stage "$1" "build/logs/build-$2.txt" cmake --build "build/$2"
}

scripts/stage --still "packages" build/logs/packages.txt scripts/install-packages test
exec < /dev/null
if command -v ccache > /dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
configure "$preset"
build "build $preset" "$preset"
if command -v clang-tidy-19 > /dev/null; then
  configure mingw-clang -D CMAKE_COMPILE_WARNING_AS_ERROR=ON
  build "clang and clang-tidy on src" mingw-clang
else
  echo "== clang and clang-tidy on src: skipped, since clang-tidy-19 is not here"
fi
scripts/stage "Wine prefix" build/logs/wine.txt scripts/wine-run

# Who finds the server alive shares it, and leaves it to the one who started it.
if scripts/wine-run --start; then
  trap 'scripts/wine-run --stop' EXIT
fi
if [ ${#selection[@]} -eq 0 ]; then
  export KVHTTP_SHARED_STARTS=$PWD/build/shared-starts
  rm -rf "$KVHTTP_SHARED_STARTS"
fi
run_tests()
{
  scripts/stage --show "$1" "build/logs/$2.txt" \
    ctest --test-dir "build/$preset" --output-on-failure --no-tests=error "${@:3}"
}

# Three for each processor, since most of a test is waiting.
result=0
failures=build/$preset/Testing/Temporary/LastTestsFailed.log
rm -f "$failures"
run_tests "tests" tests -j $(($(nproc) * 3)) "${selection[@]}" || result=$?
# Tests with real servers and dialogs meet real time, which a busy machine can keep from them. One or two of them
# get a second try, alone, and are named. No others do: they depend on nothing but themselves.
if [ $result -ne 0 ] && [ -s "$failures" ] && [ "$(wc -l < "$failures")" -le 2 ] && ! grep -qv ':system\.' "$failures"; then
  result=0
  unset KVHTTP_SHARED_STARTS
  run_tests "second try: $(cut -d : -f 2- "$failures" | paste -s -d ' ')" tests-again --rerun-failed || result=$?
fi
# shellcheck disable=SC2016 # a pattern of sed
sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests failed out of ([0-9]+)$/\1 \2/p' build/logs/tests.txt |
  while read -r failed all; do
    [ $result -ne 0 ] || failed=0
    echo "$((all - failed)) passed, $failed failed, $(((EPOCHSECONDS - KVHTTP_BEGAN) / 60)) min $(((EPOCHSECONDS - KVHTTP_BEGAN) % 60)) s"
  done
exit $result
