"""Runs one test of the proxy tests beside a real proxy on loopback, and looks into the proxy's log:
proxy_run.py WINE_TEST PROGRAM TEST through|past. The test must pass, and the proxy must have seen the one POST, or
nothing."""
import os
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support", "programs"))
from program import plain_environment  # pylint: disable=wrong-import-position
from tinyproxy import Proxy  # pylint: disable=wrong-import-position


def main(wine_test, program, test, way):
    with tempfile.TemporaryDirectory(prefix="kvhttp-proxy-") as folder:
        with Proxy(folder) as proxy:
            result = subprocess.run([wine_test, program, "--gtest_filter=" + test],
                                    env=plain_environment(KVHTTP_PROXY_PORT=str(proxy.port)),
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                    text=True, errors="replace", timeout=170, check=False)
        seen = proxy.requests()
    print(result.stdout, end="")
    print("The proxy has seen:", *(seen or ["nothing"]), sep="\n  ")
    if result.returncode != 0 or "[  PASSED  ] 1 test." not in result.stdout:
        sys.exit(f"proxy_run: {test} has failed or does not exist (exit code {result.returncode})")
    if way == "past" and seen:
        sys.exit("proxy_run: the proxy should have seen nothing")
    if way == "through" and not (len(seen) == 1 and re.fullmatch(r"POST http://127\.0\.0\.1:\d+/form HTTP/1\.1",
                                                                 seen[0])):
        sys.exit("proxy_run: the proxy should have seen one POST of /form")


if len(sys.argv) != 5 or sys.argv[4] not in ("through", "past"):
    sys.exit(__doc__)
main(*sys.argv[1:])
