"""Runs one test of the proxy tests beside a real proxy on loopback, and looks into the proxy's log:
proxy_run.py WINE_TEST PROGRAM TEST through|past. The test must pass, and the proxy must have seen the one POST, or
nothing."""
import os
import re
import socket
import subprocess
import sys
import tempfile
import time

PATIENCE = 20

CONFIGURATION = """\
Port {port}
Listen 127.0.0.1
Allow 127.0.0.1
Timeout 30
MaxClients 10
LogFile "{log}"
LogLevel Info
ViaProxyName "kvhttpproxy"
"""


class Proxy:
    """tinyproxy in the foreground, on a port that was free a moment ago: another one when it is taken."""

    def __init__(self, folder):
        self.folder = folder
        self.log = os.path.join(folder, "log")
        for _ in range(5):
            self.port = free_port()
            configuration = os.path.join(folder, "tinyproxy.conf")
            with open(configuration, "w", encoding="utf-8") as file:
                file.write(CONFIGURATION.format(port=self.port, log=self.log))
            with open(os.path.join(folder, "output"), "wb") as output:
                self.process = subprocess.Popen(["tinyproxy", "-d", "-c", configuration], stdin=subprocess.DEVNULL,
                                                stdout=output, stderr=subprocess.STDOUT)
            if self.accepts():
                return
            self.stop()
        with open(os.path.join(folder, "output"), encoding="utf-8") as file:
            sys.exit("proxy_run: the proxy does not start:\n" + file.read())

    def accepts(self):
        """Its own log must say so too: another program may have got the port."""
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline and self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                if "Accepting connections" in self.read_log():
                    return True
            except OSError:
                pass
            time.sleep(0.02)
        return False

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def requests(self):
        """The request lines that clients have sent."""
        return re.findall(r"Request \(file descriptor \d+\): (.*)", self.read_log())

    def read_log(self):
        if not os.path.exists(self.log):
            return ""
        with open(self.log, encoding="utf-8", errors="replace") as file:
            return file.read()


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def environment(port):
    """Without the machine's own proxy, which the platform would use where the user has none."""
    kept = {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")}
    return {**kept, "KVHTTP_PROXY_PORT": str(port)}


def main(wine_test, program, test, way):
    with tempfile.TemporaryDirectory(prefix="kvhttp-proxy-") as folder:
        proxy = Proxy(folder)
        try:
            result = subprocess.run([wine_test, program, "--gtest_filter=" + test], env=environment(proxy.port),
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                    text=True, errors="replace", timeout=170, check=False)
        finally:
            proxy.stop()
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
