#!/usr/bin/env bash
# Shows the component at work: builds it, registers it in a private Wine prefix, and lets the sample
# host post a form with it.
# shellcheck disable=SC2317 # functions that a trap or another function calls by name
set -u
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

usage()
{
  cat << 'END'
usage: ./demo.sh [options] [URL DATA]
Installs the packages that are missing (as root, or through sudo), builds the module and the sample
host, registers the module in a Wine prefix of the build tree, and posts a form with it.
Without URL and DATA the form goes to a server of the demo's own on this machine, and a second
exchange fetches some megabytes from it into a file. With them the form data DATA is posted to URL, as
it stands and in UTF-8, and the answer is printed; a second exchange happens only with --file.
  --file PATH       post once more, and write that answer to the file PATH
  --timeout S       how many seconds each exchange may take (30)
  --max-answer N    print at most N characters of the answer (2000)
  --trace           show the trace records of the module
  --browser NAME    the user's default browser: firefox, system or none (as Wine has it)
  --proxy HOST:PORT the proxy in that browser's settings (with system where no browser is named)
  --help            print this
Exit code: 0 all went well; 1 an exchange failed, or its content is not the expected one; 2 the command
line makes no sense; 3 the demo could not be set up.
KVHTTP_BIN names a folder with the built programs to use instead of building them.
END
}

# die CODE TEXT...: ends the demo with that exit code and, on the error stream, that text.
die()
{
  local code=$1
  shift
  echo "demo.sh: $*" >&2
  exit "$code"
}

trace=0
file=
browser=
proxy=
options=()
while [ $# -gt 0 ]; do
  case $1 in
    --help) usage; exit 0 ;;
    --trace) trace=1; shift ;;
    --browser)
      case ${2-} in
        firefox | system | none) browser=$2 ;;
        *) die 2 "$1 needs firefox, system or none; --help tells more" ;;
      esac
      shift 2
      ;;
    --proxy)
      [[ ${2-} =~ ^[A-Za-z0-9.-]+:[0-9]+$ ]] || die 2 "$1 needs HOST:PORT; --help tells more"
      proxy=$2
      shift 2
      ;;
    --file | --timeout | --max-answer)
      [ -n "${2-}" ] || die 2 "$1 needs a value; --help tells more"
      if [ "$1" = --file ]; then
        file=$2
      else
        [[ $2 =~ ^[1-9][0-9]*$ ]] || die 2 "$1 needs a number; --help tells more"
        options+=("$1" "$2")
      fi
      shift 2
      ;;
    -*) die 2 "there is no option $1; --help tells more" ;;
    *) break ;;
  esac
done
[ $# -eq 0 ] || [ $# -eq 2 ] || die 2 "give a URL and form data, or neither; --help tells more"
if [ $# -eq 2 ] && { [ -z "$1" ] || [ -z "$2" ]; }; then
  die 2 "neither the URL nor the form data may be empty"
fi

[ -z "$proxy" ] || browser=${browser:-system}
[ -z "$proxy" ] || [ "$browser" != none ] || die 2 "a browser that is not known has no proxy settings"
# Browser and proxy must not stay for other programs: they get a prefix of their own.
if [ -n "$browser" ]; then
  export KVHTTP_WINEPREFIX=${KVHTTP_WINEPREFIX:-$root/build/wineprefix}-browser
fi

logs=$root/build/demo
mkdir -p "$logs" || die 3 "cannot write to $logs"
cache=
started_wine=0
placed_trace=
server_pid=

clean_up()
{
  # The choice to leave out the tests must not stay: the next build of everything would lack them.
  [ ! -f "$cache" ] || sed -i 's/^KVHTTP_BUILD_TESTS:BOOL=OFF$/KVHTTP_BUILD_TESTS:BOOL=ON/' "$cache"
  [ -z "$placed_trace" ] || rm -f "$placed_trace"
  if [ -n "$server_pid" ]; then
    # The server ends when its input does.
    exec {server_in}>&-
    wait "$server_pid" 2> /dev/null
  fi
  [ "$started_wine" -eq 0 ] || "$root/scripts/wine-run" --stop
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# quietly NAME COMMAND...: runs the command, and shows what it printed only when it fails.
quietly()
{
  local name=$1 log="$logs/log.txt"
  shift
  "$@" > "$log" 2>&1 < /dev/null && return
  cat "$log" >&2
  die 3 "$name failed; its output stands above"
}

# Without the tests, whose framework need not be here.
configure()
{
  cache=$root/build/mingw-release/CMakeCache.txt
  cmake --preset mingw-release -DKVHTTP_BUILD_TESTS=OFF
}

# Starts the demo's server, which tells its port and the checksum of its report.
start_server()
{
  [ -z "$server_pid" ] || { kill "$server_pid"; wait "$server_pid"; } 2> /dev/null
  coproc SERVER { exec "$root/scripts/wine-run" "$bin/DemoServer.exe" 2> "$logs/server.txt"; }
  # shellcheck disable=SC2153 # the shell sets it
  server_pid=$SERVER_PID server_in=${SERVER[1]}
  local server_out=${SERVER[0]}
  read -r -t 30 -u "$server_out" port checksum
}

# windows_path PATH: as Wine's programs see the file, whose folder must exist.
windows_path()
{
  local folder
  folder=$(cd "$(dirname "$1")" 2> /dev/null && pwd) || return 1
  folder=Z:${folder%/}/$(basename "$1")
  printf '%s' "${folder//\//\\}"
}

if [ -n "$file" ]; then
  windows_file=$(windows_path "$file") || die 2 "there is no folder for the file $file"
fi

if [ -n "${KVHTTP_BIN-}" ]; then
  bin=$(cd "$KVHTTP_BIN" && pwd) || die 3 "there is no folder $KVHTTP_BIN"
else
  bin=$root/build/mingw-release/bin
  "$root/scripts/install-packages" run || die 3 "packages are missing"
  echo "Building the module and the sample host ..."
  cd "$root" || exit 3
  if command -v ccache > /dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
  fi
  quietly "configuring" configure
  quietly "building" cmake --build --preset mingw-release \
    --target kvHttp PostForm DemoServer qnztraceX64
fi

echo "Preparing Wine ..."
quietly "making the Wine prefix" "$root/scripts/wine-run"
"$root/scripts/wine-run" --start && started_wine=1
echo "Registering the module: regsvr32 $(basename "$bin")/kvHttp.dll"
quietly "registering the module" \
  "$root/scripts/wine-test" regsvr32 /s "$(windows_path "$bin/kvHttp.dll")"

if [ -n "$browser" ]; then
  echo "The default browser is now: $browser${proxy:+, with the proxy $proxy}"
  quietly "preparing the browser" "$root/scripts/prepare-browser" "$browser" ${proxy:+"$proxy"}
fi

if [ $trace -eq 1 ]; then
  [ ! -e "$bin/qnztraceX64.dll" ] || die 3 "a trace library is beside the module already: $bin/qnztraceX64.dll"
  placed_trace=$bin/qnztraceX64.dll
  cp "$bin/../trace/qnztraceX64.dll" "$placed_trace" || die 3 "the printing trace library is missing"
fi

if [ $# -eq 0 ]; then
  start_server || start_server || { cat "$logs/server.txt" >&2; die 3 "the server did not start"; }
  checksum=${checksum%$'\r'}
  echo "The demo's own server listens on 127.0.0.1:$port."
  if [ -z "$file" ]; then
    windows_file=$(windows_path "$logs/report.bin")
  fi
  data='name=Ada+Lovelace&city=Z%C3%BCrich&note=ä€𝄞'
  options+=(--file-url "http://127.0.0.1:$port/report" --expect-sha256 "$checksum" --expect-text "$data")
  set -- "http://127.0.0.1:$port/form" "$data"
fi
[ -z "${windows_file-}" ] || options+=(--file "$windows_file")

echo
# A start that Wine gives up, with exit code 1 and no word, is tried again.
for _ in 1 2 3; do
  # Through a pipe, so that Wine leaves the terminal alone.
  "$root/scripts/wine-run" "$bin/PostForm.exe" "${options[@]}" "$@" 2> "$logs/errors.txt" < /dev/null | tee "$logs/output.txt"
  code=${PIPESTATUS[0]}
  if [ "$code" -ne 1 ] || [ -s "$logs/output.txt" ] || [ -s "$logs/errors.txt" ]; then
    break
  fi
done
cat "$logs/errors.txt" >&2
echo
case $code in
  0) echo "All went well." ;;
  1 | 2 | 3) ;;
  *) die 3 "the sample host ended with exit code $code" ;;
esac
exit "$code"
