# SPDX-License-Identifier: Apache-2.0
"""The echo service of docs/write-a-service.md between real processes: it is started by the first call, answers, calls its
listeners, is killed, its client notices and starts it again.

Usage: echo_test.py MANAGER FOLDER, FOLDER: where bin/ and abilities/ of the example were built
"""
import os
import pathlib
import queue
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

WAIT_S = 60  # for what takes a second or less


def require(condition, what):
    if not condition:
        raise AssertionError(what)


class Client:
    """An echo_client whose lines are read by a thread."""

    def __init__(self, program, env):
        self.process = subprocess.Popen([program], env=env, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.lines = queue.Queue()
        self.seen = []
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def expect(self, pattern):
        """Takes the first line that matches; answers and callbacks come in any order."""
        deadline = time.monotonic() + WAIT_S
        while True:
            for line in self.seen:
                if match := re.fullmatch(pattern, line):
                    self.seen.remove(line)
                    return match
            try:
                self.seen.append(self.lines.get(timeout=max(0, deadline - time.monotonic())))
            except queue.Empty:
                raise AssertionError(f"no line {pattern}, but {self.seen}") from None

    def close(self):
        self.process.stdin.close()
        require(self.process.wait(WAIT_S) == 0, "the client failed")


def tell_story(program, env):
    first = Client(program, env)
    first.say("hello")
    served_by = int(first.expect(r"answer: hello \(from process (\d+)\)")[1])
    first.expect("heard: hello")

    second = subprocess.run([program], env=env, text=True, input="world\n" + 1001 * "x" + "\n", timeout=WAIT_S,
                            capture_output=True, check=True)
    require(f"answer: world (from process {served_by})\n" in second.stdout, second.stdout)
    require("heard: world\n" in second.stdout, second.stdout)
    require("refused with 1\n" in second.stderr, "a text that is too long is accepted")
    first.expect("heard: world")

    os.kill(served_by, signal.SIGKILL)
    first.expect("the service has ended")
    first.say("back")
    next_served_by = int(first.expect(r"answer: back \(from process (\d+)\)")[1])
    first.expect("heard: back")
    require(next_served_by != served_by, "the killed process answers")
    first.close()


def main():
    manager_program, folder = map(pathlib.Path, sys.argv[1:])
    with tempfile.TemporaryDirectory(prefix="echo-") as runtime:
        env = dict(os.environ, TAVO_RUNTIME_DIR=runtime)
        manager = subprocess.Popen([manager_program, "--abilities", folder / "abilities"], env=env)
        try:
            deadline = time.monotonic() + WAIT_S
            while not pathlib.Path(runtime, "manager").exists():
                require(manager.poll() is None and time.monotonic() < deadline, "the manager did not start")
                time.sleep(0.005)
            tell_story(folder / "bin/echo_client", env)
        finally:
            manager.terminate()
            status = manager.wait(WAIT_S)
    require(status == 0, f"the manager ended with {status}")


main()
