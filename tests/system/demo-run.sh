#!/usr/bin/env bash
# Runs the demo and the sample host as people do, with the programs of one build: demo-run.sh FOLDER.
# In a Wine prefix of its own, since it registers the module, and on a copy, since it puts a trace
# library beside the module.
set -u
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
built=$(cd "$1" && pwd) || exit 1
export KVHTTP_WINEPREFIX="$built/../wineprefix-demo"
unset WINEPREFIX
wine_run=$root/scripts/wine-run
# The caller's locale must not matter.
export LC_ALL=POSIX LANG=C

work=$(mktemp -d)
server_in='' server_pid='' proxy_pid='' failures=0
clean_up()
{
  if [ -n "$server_pid" ]; then
    exec {server_in}>&-
    wait "$server_pid"
  fi
  [ -z "$proxy_pid" ] || kill "$proxy_pid"
  "$wine_run" --stop
  KVHTTP_WINEPREFIX=$KVHTTP_WINEPREFIX-browser "$wine_run" --stop
  rm -rf "$work"
}
trap clean_up EXIT
mkdir "$work/bin" "$work/trace"
cp "$built/kvHttp.dll" "$built/PostForm.exe" "$built/DemoServer.exe" "$work/bin/" || exit 1
cp "$built/../trace/qnztraceX64.dll" "$work/trace/" || exit 1
export KVHTTP_BIN=$work/bin
# Callers come from anywhere.
cd "$work" || exit 1
"$wine_run" || exit 1
"$wine_run" --stop
"$wine_run" --start

# run NAME CODE COMMAND...: runs the command and expects that exit code; its output is in $output.
run()
{
  local name=$1 expected=$2 code
  shift 2
  output=$("$@" 2>&1 < /dev/null)
  code=$?
  if [ $code -eq "$expected" ]; then
    echo "ok: $name"
  else
    echo "FAILED: $name: exit code $code instead of $expected; it printed:"
    echo "$output"
    failures=$((failures + 1))
  fi
}

# prints TEXT, lacks TEXT: the last run's output does, or does not, contain the text.
prints()
{
  [[ $output == *"$1"* ]] && return
  echo "FAILED: \"$1\" is missing in:"
  echo "$output"
  failures=$((failures + 1))
}

lacks()
{
  [[ $output != *"$1"* ]] && return
  echo "FAILED: \"$1\" should not stand in:"
  echo "$output"
  failures=$((failures + 1))
}

# expect TEXT COMMAND...: the command must succeed; the text says what it means.
expect()
{
  local what=$1
  shift
  "$@" && return
  echo "FAILED: $what"
  failures=$((failures + 1))
}

postform()
{
  "$wine_run" "$work/bin/PostForm.exe" "$@"
}

run "the sample explains itself" 0 postform --help
prints "usage: PostForm"
run "the sample needs arguments" 2 postform
prints "a URL and form data are needed"
run "the sample refuses empty form data" 2 postform http://127.0.0.1/ ""
run "the sample refuses an unknown option" 2 postform --nonsense x http://127.0.0.1/ a=1
run "the sample refuses a time-out that is none" 2 postform --timeout 0 http://127.0.0.1/ a=1
"$wine_run" regsvr32 /s /u "Z:$work/bin/kvHttp.dll" > /dev/null 2>&1
run "the sample says that the module is not registered" 3 postform http://127.0.0.1/ a=1
prints "regsvr32 kvHttp.dll"

run "the demo explains itself" 0 "$root/demo.sh" --help
prints "usage: ./demo.sh"
run "the demo refuses an unknown option" 2 "$root/demo.sh" --nonsense
run "the demo refuses a URL without data" 2 "$root/demo.sh" http://127.0.0.1/
run "the demo refuses an empty URL" 2 "$root/demo.sh" "" a=1
run "the demo refuses a time-out that is none" 2 "$root/demo.sh" --timeout soon
run "the demo refuses a file in no folder" 2 "$root/demo.sh" --file "$work/none/file"

run "the demo with its own server" 0 "$root/demo.sh" --file report.bin
prints "status 5  REQ_STATUS_SENDING"
prints "status 9  REQ_STATUS_DONE"
prints "note=ä€𝄞"
prints "bytes so far"
prints "That is the checksum that the server told."
prints "All went well."
lacks "[trace]"
read -r checksum _ < <(sha256sum report.bin)
prints "SHA-256 $checksum"
prints "$(stat -c %s report.bin) bytes"

run "the demo with trace records" 0 "$root/demo.sh" --trace
prints "[trace] Http Send request,"
prints "[trace] --> CHttpRequest::SendRequest"
prints "%6E%61%6D%65%3D%41%64%61"
prints "[trace, error] download file [%s] is finished"
expect "the trace library is still beside the module" test ! -e "$work/bin/qnztraceX64.dll"
touch "$work/bin/qnztraceX64.dll"
run "the demo leaves a trace library of others alone" 3 "$root/demo.sh" --trace
expect "the trace library of others has gone" test -e "$work/bin/qnztraceX64.dll"
rm "$work/bin/qnztraceX64.dll"

# proxy_port: a port that is free now.
proxy_port()
{
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

run "the demo refuses an unknown browser" 2 "$root/demo.sh" --browser other
run "the demo refuses a proxy without a port" 2 "$root/demo.sh" --proxy host
run "the demo refuses a proxy for no browser" 2 "$root/demo.sh" --browser none --proxy 127.0.0.1:1
port=$(proxy_port)
printf 'Port %s\nListen 127.0.0.1\nTimeout 60\nLogFile "%s"\nLogLevel Connect\nMaxClients 10\nAllow 127.0.0.1\nViaProxyName "demoproxy"\n' \
  "$port" "$work/proxy.log" > "$work/proxy.conf"
tinyproxy -d -c "$work/proxy.conf" > /dev/null 2>&1 &
proxy_pid=$!
for ((i = 0; i < 100; ++i)); do
  (exec 3<> "/dev/tcp/127.0.0.1/$port") 2> /dev/null && break
  sleep 0.1
done
KVHTTP_WINEPREFIX=$KVHTTP_WINEPREFIX-browser "$wine_run" --start
for browser in firefox system; do
  : > "$work/proxy.log"
  run "the demo through a proxy: $browser" 0 "$root/demo.sh" --trace --browser "$browser" --proxy "127.0.0.1:$port"
  prints "through the proxy 1.1 demoproxy"
  prints "[trace] CHttpRequest::CheckInternetConnection: Use Proxy to connect to server."
  expect "the proxy has not seen the POST" grep -q "POST http://127.0.0.1:[0-9]*/form" "$work/proxy.log"
done
prints "CProxyInfo::GetProxyInfo: Default Browser is IE."
run "the demo with Firefox and no proxy" 0 "$root/demo.sh" --trace --browser firefox
prints "CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8."
lacks "through the proxy"
run "the demo with no known browser" 0 "$root/demo.sh" --trace --browser none
prints "CProxyInfo::GetProxyInfo: Default Browser is Other!"
lacks "Use Proxy to connect"
kill "$proxy_pid"
wait "$proxy_pid" 2> /dev/null
proxy_pid=

coproc SERVER { exec "$wine_run" "$work/bin/DemoServer.exe"; }
# shellcheck disable=SC2153 # the shell sets it
server_pid=$SERVER_PID server_in=${SERVER[1]}
read -r -t 30 -u "${SERVER[0]}" port checksum || exit 1
url=http://127.0.0.1:$port
run "the demo with a server of the caller's" 0 "$root/demo.sh" "$url/form" 't=ä€𝄞 "q" \ %'
prints 't=ä€𝄞 "q" \ %'
lacks "SHA-256"
run "a second exchange where a file is named" 0 "$root/demo.sh" --file answer.txt "$url/form" 'ä=1'
prints "SHA-256"
expect "the file is not the answer" grep -qx 'ä=1' answer.txt
run "no more of the answer than asked for" 0 "$root/demo.sh" --max-answer 5 "$url/form" a=1
prints $'\nThank\n('
lacks "a=1"
run "a page that is not there" 1 "$root/demo.sh" "$url/none" a=1
prints "status 0, REQ_STATUS_HTTP_ERROR. The server answered 400, 401, 404 or 405."
lacks "All went well."
run "a server that is not there" 1 "$root/demo.sh" http://127.0.0.1:1/ a=1
prints "status 2, REQ_STATUS_FAILED."
run "a file that cannot be made" 1 postform --timeout 1 --file 'Z:\no\such\file' "$url/form" a=1
prints "status 7, REQ_STATUS_TIMEOUT."
run "another checksum than expected" 1 postform --file x.bin --expect-sha256 00 "$url/form" a=1
prints "the checksum should be 00"
run "another answer than expected" 1 postform --expect-text "good bye" "$url/form" a=1
prints "does not contain \"good bye\""

echo "$failures failures"
[ $failures -eq 0 ]
