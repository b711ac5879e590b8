#!/usr/bin/env bash
# Makes what is given to hosts: a ZIP and an installer.
set -eu

usage()
{
  cat << 'END'
usage: ./package.sh
Installs the packages that are missing (as root, or through sudo), builds the module, and makes
build/package/kvHttp-VERSION-win64.zip and .exe. The ZIP's bytes depend on the sources only: its files have the time of
SOURCE_DATE_EPOCH (seconds, as date +%s has them), or of the last commit.
END
}

case ${1-} in
  "") ;;
  --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac
cd "$(dirname "${BASH_SOURCE[0]}")"
export KVHTTP_BEGAN=$EPOCHSECONDS
if [ -z "${SOURCE_DATE_EPOCH-}" ]; then
  SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2> /dev/null || echo 0)
fi
export SOURCE_DATE_EPOCH

scripts/stage --still "packages" build/logs/package-packages.txt scripts/install-packages package
exec < /dev/null
if command -v ccache > /dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
build=build/mingw-release
if [ ! -e $build/build.ninja ]; then
  # Without the tests, whose framework need not be here. The next "cmake --preset" brings them back.
  scripts/stage "configure" build/logs/package-configure.txt cmake --preset mingw-release -D KVHTTP_BUILD_TESTS=OFF
fi
scripts/stage "build the module" build/logs/package-build.txt \
  cmake --build $build --target kvHttp kvHttpTypeLibrary
rm -rf build/package
for generator in ZIP NSIS; do
  scripts/stage "package $generator" "build/logs/package-$generator.txt" \
    cpack --config $build/CPackConfig.cmake -G $generator -B build/package
done
rm -rf build/package/_CPack_Packages
python3 packaging/normalise_zip.py build/package/*.zip
sha256sum build/package/*
