"""nginx on loopback with prepared files, for the benchmark: /N answers a POST with N bytes of the prepared text,
/form with the length of the form that came."""
import os

from nginx import NginxServer

HTTP = """\
  charset utf-8;
  client_max_body_size 0;
  keepalive_requests 1000000;
  keepalive_timeout 600;
  sendfile on;
  tcp_nopush on;
  server {{
    listen 127.0.0.1:{port};
    root "{folder}/files";
    # A file answers no POST by itself.
    error_page 405 =200 $uri;
    location = /form {{
      return 200 "$content_length";
    }}
  }}
"""

BLOCK = "".join(f"{line:015}\n" for line in range(65536)).encode()


class FileServer(NginxServer):
    """With files of these sizes in the folder."""

    def __init__(self, folder, sizes):
        files = os.path.join(folder, "files")
        os.mkdir(files)
        for size in sizes:
            prepare_file(os.path.join(files, str(size)), size)
        super().__init__(folder, HTTP)

    def url(self):
        return f"http://127.0.0.1:{self.port}"


def prepare_file(path, size):
    """The same numbered lines again and again, cut off at the size."""
    with open(path, "wb") as file:
        while file.tell() < size:
            file.write(BLOCK)
        file.truncate(size)
