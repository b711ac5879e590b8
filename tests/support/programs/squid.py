"""A real HTTP proxy on loopback that wants a password: Debian's squid, with all its files in one folder."""
import glob
import os
import re
import shutil
import subprocess

from program import Server

BINARY = "/usr/sbin/squid"  # not on every user's path
AUTHENTICATOR = "/usr/lib/squid/basic_ncsa_auth"
USER = "proxy"  # whom squid becomes when root starts it
SHARED_MEMORY = "/dev/shm"

# Nothing is kept, nothing is asked of the machine's name server, and each answer is noted at once.
CONFIGURATION = """\
http_port 127.0.0.1:{port}
visible_hostname kvhttpproxy
cache_effective_user {user}
pid_filename none
cache_log {folder}/log
logformat seen %>Hs %un %rm %ru
access_log stdio:{folder}/access seen
cache deny all
cache_mem 1 MB
memory_pools off
coredump_dir {folder}
pinger_enable off
netdb_filename none
hosts_file none
dns_nameservers 127.0.0.1
max_filedescriptors 1024
shutdown_lifetime 0 seconds
auth_param basic program {authenticator} {folder}/passwords
auth_param basic children 1 startup=1 idle=1
auth_param basic realm {realm}
acl known proxy_auth REQUIRED
http_access allow known
http_access deny all
"""


class Squid(Server):
    """squid in the foreground, for one user of its own. requests() tells what clients have sent."""

    def __init__(self, folder, user, password, realm="kvHttp test proxy"):
        self.name = ""
        self.own = os.path.join(folder, "squid")
        os.mkdir(self.own)
        self.write("passwords", f"{user}:{hashed(password)}\n")
        if os.geteuid() == 0:
            os.chmod(folder, 0o711)
            shutil.chown(self.own, USER)

        def command_for(port):
            settings = CONFIGURATION.format(port=port, folder=self.own, user=USER, realm=realm,
                                            authenticator=AUTHENTICATOR)
            # The name is that of its shared memory too, which no other squid of the machine must have.
            self.name = f"kvhttp{os.getpid()}x{port}"
            return [BINARY, "-N", "-n", self.name, "-f", self.write("squid.conf", settings)]

        super().__init__(self.own, command_for, os.path.join(self.own, "log"), "Accepting HTTP Socket connections")

    def write(self, name, text):
        path = os.path.join(self.own, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def stop(self):
        # Asked to end, squid takes a second and more. Its authenticator ends when squid has gone.
        self.process.kill()
        self.process.wait()
        for left in glob.glob(os.path.join(SHARED_MEMORY, self.name + "-*")):
            os.remove(left)

    def requests(self):
        """"STATUS USER METHOD ADDRESS" of each request that was answered, in order; "-" is no user. Without the
        connections that asked for nothing."""
        path = os.path.join(self.own, "access")
        if not os.path.exists(path):
            return []
        with open(path, encoding="utf-8", errors="replace") as file:
            return [line.rstrip("\n") for line in file if " error:" not in line]


def version():
    """The first number of squid's version."""
    printed = subprocess.run([BINARY, "-v"], stdout=subprocess.PIPE, text=True, check=True).stdout
    return int(re.search(r"Version (\d+)", printed)[1])


def hashed(password):
    """As Apache's password files have it."""
    return subprocess.run(["openssl", "passwd", "-apr1", "-stdin"], input=password + "\n", stdout=subprocess.PIPE,
                          text=True, check=True).stdout.strip()
