"""A real HTTP proxy on loopback: Debian's tinyproxy."""
import os
import re

from program import Server

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


class Proxy(Server):
    """tinyproxy in the foreground, with all its files in the folder."""

    def __init__(self, folder):
        configuration, log = os.path.join(folder, "tinyproxy.conf"), os.path.join(folder, "log")

        def command_for(port):
            with open(configuration, "w", encoding="utf-8") as file:
                file.write(CONFIGURATION.format(port=port, log=log))
            return ["tinyproxy", "-d", "-c", configuration]

        super().__init__(folder, command_for, log, "Accepting connections")

    def requests(self):
        """The request lines that clients have sent."""
        return re.findall(r"Request \(file descriptor \d+\): (.*)", self.logged())
