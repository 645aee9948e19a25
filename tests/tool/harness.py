# SPDX-License-Identifier: Apache-2.0
"""A manager, a service and the tool in a folder of their own."""
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time

WAIT_S = 60  # for what takes seconds at most


def require(condition, what):
    if not condition:
        raise AssertionError(what)


class System:
    """One runtime directory. Ends all that it started."""

    def __init__(self, programs, source):
        self.programs = pathlib.Path(programs)
        emulator = os.environ.get("VELTRA_EMULATOR")  # of a build for another processor
        self.emulator = [emulator] if emulator else []
        self.share = pathlib.Path(source, "share/veltra")
        self.scratch = tempfile.TemporaryDirectory(prefix="veltra-tool-")
        self.folder = pathlib.Path(self.scratch.name)
        self.runtime = self.folder / "run"
        self.abilities = self.folder / "abilities"
        self.abilities.mkdir()
        self.manager = None
        self.env = {name: value for name, value in os.environ.items() if name != "TAVO_LOG"}
        self.env["TAVO_RUNTIME_DIR"] = str(self.runtime)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.manager is not None:
            self.manager.send_signal(signal.SIGCONT)  # it may have been stopped
            self.manager.terminate()
            self.manager.wait(WAIT_S)
        self.scratch.cleanup()

    def command(self, name, *words):
        """What runs a program of the build."""
        return [*self.emulator, str(self.programs / name), *map(str, words)]

    def write_ability(self, program=None, arguments=(), control=True, **more):
        program, *words = [str(program), *map(str, arguments)] if program else self.command("veltra_server", *arguments)
        ability = {"id": 66006, "program": program, "arguments": words, **more}
        (self.abilities / "66006.json").write_text(json.dumps(ability))
        if control:
            (self.abilities / "66007.json").write_text('{"id": 66007, "external": true}')

    def write_program(self, text, mode=0o755):
        path = self.folder / "program"
        path.write_text("#!/bin/sh\n" + text)
        path.chmod(mode)
        return path

    def write_scenario(self, **scenario):
        path = self.folder / "scenario.json"
        path.write_text(json.dumps(scenario))
        return path

    def start_manager(self, **env):
        log = (self.folder / "manager.log").open("w")
        self.manager = subprocess.Popen(self.command("tavo_manager", "--abilities", self.abilities),
                                        env={**self.env, **env}, stderr=log)
        deadline = time.monotonic() + WAIT_S
        while not (self.runtime / "manager").is_socket():
            require(self.manager.poll() is None and time.monotonic() < deadline, "the manager did not start")
            time.sleep(0.005)

    def run(self, *words, **env):
        return subprocess.run(self.command("veltra", *words), env={**self.env, **env}, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=WAIT_S)

    def start(self, *words):
        return self.start_program("veltra", *words)

    def start_program(self, name, *words):
        return subprocess.Popen(self.command(name, *words), env=self.env, text=True, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)

    def on_terminal(self, command, **env):
        """What the command line prints to a terminal."""
        return subprocess.run(["script", "--quiet", "--return", "--command", command, "/dev/null"], check=True,
                              env={**self.env, **env}, text=True, stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=WAIT_S).stdout

    def json(self, *words, status=0, **env):
        done = self.run("--json", *words, **env)
        require(done.returncode == status, f"{words} ended with {done.returncode}: {done.stdout}{done.stderr}")
        document = json.loads(done.stdout)
        require(document["schema"] == 1, f"{words} has another schema")
        return document

    def expect(self, status, *words, output=None, error=None, **env):
        """`output` and `error` are patterns of what is printed."""
        done = self.run(*words, **env)
        shown = f"{' '.join(map(str, words))} ended with {done.returncode}\n{done.stdout}{done.stderr}"
        require(done.returncode == status, f"{shown}\nexpected {status}")
        require(output is None or re.search(output, done.stdout), f"{shown}\nexpected on stdout: {output}")
        require(error is None or re.search(error, done.stderr), f"{shown}\nexpected on stderr: {error}")

    def service_pid(self):
        abilities = self.json("status")["abilities"]
        return next(each["pid"] for each in abilities if each["id"] == 66006)

    def stop_service(self):
        """Returns when all of its threads have stopped: until then they may answer."""
        service = self.service_pid()
        os.kill(service, signal.SIGSTOP)
        deadline = time.monotonic() + WAIT_S
        tasks = pathlib.Path(f"/proc/{service}/task")
        while any(each.read_text().rpartition(") ")[2][0] != "T" for each in tasks.glob("*/stat")):
            require(time.monotonic() < deadline, "the service does not stop")
            time.sleep(0.005)
