"""nginx on loopback. NginxServer(folder, http) serves what http says. TlsServer(folder, kind), for tests, does it with
TLS. Its certificate is made by openssl on the spot; nobody knows who has signed it. Paths: /form answers "answer",
/echo answers with the body of the POST, /stall takes the request and never answers."""
import os
import re
import socket
import subprocess
import time

from program import Server

ANSWER = "answer"

# Of each kind of certificate: the host that it is for, and in how many days it ends. It began a month ago.
CERTIFICATES = {"self-signed": ("localhost", 30), "wrong-name": ("elsewhere.test", 30), "expired": ("localhost", -1)}

AUTHORITY = """\
[ca]
default_ca = test
[test]
database = {folder}/certificates
new_certs_dir = {folder}
rand_serial = yes
default_md = sha256
policy = any
[any]
commonName = supplied
"""

CONFIGURATION = """\
daemon off;
master_process off;
pid "{folder}/pid";
error_log "{folder}/errors" info;
events {{
}}
http {{
  access_log off;
  client_body_temp_path "{folder}/client";
  proxy_temp_path "{folder}/proxy";
  fastcgi_temp_path "{folder}/fastcgi";
  uwsgi_temp_path "{folder}/uwsgi";
  scgi_temp_path "{folder}/scgi";
  default_type text/plain;
"""

TLS = """\
  log_format request '$status $request_method $request_uri "$request_body"';
  server {{
    listen 127.0.0.1:{port} ssl;
    keepalive_timeout 0;
    ssl_certificate "{folder}/certificate";
    ssl_certificate_key "{folder}/key";
    access_log "{folder}/requests" request;
    proxy_set_header X-Body $request_body;
    location = /form {{
      proxy_pass http://unix:{folder}/inner:/form;
    }}
    location = /echo {{
      proxy_pass http://unix:{folder}/inner:/echo;
    }}
    location = /stall {{
      proxy_pass http://unix:{folder}/stall;
    }}
  }}
  # A body is taken from the client only on its way to somewhere.
  server {{
    listen unix:{folder}/inner;
    location = /form {{
      return 200 "{answer}";
    }}
    location = /echo {{
      return 200 "$http_x_body";
    }}
  }}
"""


class NginxServer(Server):
    """nginx in the foreground, with all its files in the folder. In http its braces stand twice, and {folder}, {port}
    and the names of the texts for these."""

    def __init__(self, folder, http, **texts):
        errors = os.path.join(folder, "errors")

        def command_for(port):
            configuration = os.path.join(folder, "nginx.conf")
            with open(configuration, "w", encoding="utf-8") as file:
                file.write((CONFIGURATION + http + "}}\n").format(folder=folder, port=port, **texts))
            return ["/usr/sbin/nginx", "-p", folder, "-e", errors, "-c", configuration]

        super().__init__(folder, command_for, errors, "getrlimit(RLIMIT_NOFILE)")


class TlsServer(NginxServer):
    def __init__(self, folder, kind):
        self.folder = folder
        make_certificate(folder, *CERTIFICATES[kind])
        # Connections to it wait to be accepted for ever.
        self.stalling = socket.socket(socket.AF_UNIX)
        self.stalling.bind(os.path.join(folder, "stall"))
        self.stalling.listen(100)
        super().__init__(folder, TLS, answer=ANSWER)

    def stop(self):
        super().stop()
        # A server that was killed would leave it, and the next one could not listen there.
        inner = os.path.join(self.folder, "inner")
        if os.path.exists(inner):
            os.remove(inner)

    def __exit__(self, *arguments):
        super().__exit__(*arguments)
        self.stalling.close()

    def url(self, host="localhost"):
        return f"https://{host}:{self.port}"

    def requests(self):
        """The requests that have come to their end, each as 'status method path "body"'. A client that has gone
        before the answer gives status 499. A connection without a request leaves none."""
        path = os.path.join(self.folder, "requests")
        with open(path, encoding="utf-8") as file:
            return re.findall(r"(.+)\n", file.read())


def make_certificate(folder, host, days):
    """Signed with its own key."""
    key, request, authority = (os.path.join(folder, name) for name in ("key", "request.pem", "authority.conf"))
    with open(authority, "w", encoding="utf-8") as file:
        file.write(AUTHORITY.format(folder=folder))
    with open(os.path.join(folder, "certificates"), "w", encoding="utf-8"):
        pass
    openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", key,
            "-subj", "/CN=" + host, "-out", request)
    openssl("ca", "-batch", "-selfsign", "-notext", "-config", authority, "-keyfile", key, "-in", request,
            "-startdate", days_from_now(-30), "-enddate", days_from_now(days),
            "-out", os.path.join(folder, "certificate"))


def days_from_now(days):
    return time.strftime("%Y%m%d%H%M%SZ", time.gmtime(time.time() + days * 24 * 60 * 60))


def openssl(*arguments):
    result = subprocess.run(["openssl", *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"openssl {arguments[0]} has failed:\n{result.stdout}")
