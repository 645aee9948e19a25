# SPDX-License-Identifier: Apache-2.0
"""One veltra-serve in a folder of its own, on a port that was free, and a game."""
import json
import pathlib
import re
import socket
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from tool.harness import WAIT_S, require  # noqa: E402


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Game:
    """A process that has reported a game, and is subscribed to events."""

    def __init__(self, system, name):
        self.process = subprocess.Popen(["/usr/bin/python3", pathlib.Path(__file__).with_name("game.py"), name],
                                        env=system.env, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __enter__(self):
        self.next()  # the first event comes with the subscription
        return self

    def __exit__(self, *_):
        self.process.communicate(timeout=WAIT_S)

    def next(self):
        line = self.process.stdout.readline()
        require(line, "the game has ended")
        return json.loads(line)


class Server:
    def __init__(self, system, *options, listen="127.0.0.1", port=None):
        self.port = port or free_port()
        self.host = f"127.0.0.1:{self.port}"
        self.errors = system.folder / f"serve-{self.port}.log"
        with self.errors.open("w") as log:
            self.process = subprocess.Popen(
                system.command("veltra-serve", "--listen", f"{listen}:{self.port}", *options),
                env=system.env, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log)
        self.address = self.process.stdout.readline().strip()  # printed once it listens
        require(self.address.startswith(f"http://{self.host}/"), f"address {self.address!r}, log {self.log()}")
        token = re.search(r"#token=([0-9a-f]{32})$", self.address)
        self.token = token[1] if token else ""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait(WAIT_S)
        self.process.stdout.close()

    def log(self):
        return self.errors.read_text()

    def most_bytes(self):
        """The most memory that the process has used."""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s*(\d+) kB", status)[1]) * 1024
