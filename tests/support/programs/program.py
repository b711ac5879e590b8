"""Programs of the Unix host that tests start on loopback and end again."""
import os
import socket
import subprocess
import time

PATIENCE = 20
ATTEMPTS = 5


class CannotStart(Exception):
    """With what the program printed."""


class Program:
    """A running program whose output goes to a file. Ends with the block that it was made for."""

    def __init__(self, command, output):
        self.output = output
        with open(output, "wb") as file:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=file,
                                            stderr=subprocess.STDOUT)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def runs(self):
        return self.process.poll() is None

    def printed(self):
        return read_text(self.output)

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Server(Program):
    """A program that listens on a port of loopback that was free a moment ago, on another one when it is taken.
    command_for(port) prepares it and gives its command; log is the file in which it says ready_text once it
    listens itself, since another program may have got the port."""

    def __init__(self, folder, command_for, log, ready_text):
        self.log = log
        for _ in range(ATTEMPTS):
            self.port = free_port()
            super().__init__(command_for(self.port), os.path.join(folder, "output"))
            if self.accepts(ready_text):
                return
            self.stop()
        raise CannotStart(self.printed() + self.logged())

    def accepts(self, ready_text):
        return await_true(lambda: not self.runs() or (is_open(self.port) and ready_text in self.logged())) \
            and self.runs()

    def logged(self):
        return read_text(self.log)


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def is_open(port):
    try:
        socket.create_connection(("127.0.0.1", port), timeout=1).close()
        return True
    except OSError:
        return False


def await_true(condition):
    """Whether the condition came true in time."""
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() >= deadline:
            return False
        time.sleep(0.02)
    return True


def read_text(path):
    if not os.path.exists(path):
        return ""
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def plain_environment(**more):
    """Without the machine's own proxy, which the platform would use where the user has none."""
    kept = {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")}
    return {**kept, **more}
