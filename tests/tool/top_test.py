# SPDX-License-Identifier: Apache-2.0
"""`veltra top` in a terminal of 80x24, by what the terminal shows.

Usage: top_test.py PROGRAMS SOURCE
"""
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import time

from harness import WAIT_S, System, require

SKIPPED = 77  # the test's SKIP_RETURN_CODE


class Terminal:
    """A shell in a terminal multiplexer of its own."""

    def __init__(self, system):
        self.system = system
        self.socket = system.folder / "terminal"
        self.tmux("-f", "/dev/null", "new-session", "-d", "-x", "80", "-y", "24", "env", "PS1=$ ", "sh")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.tmux("kill-server")

    def tmux(self, *words):
        return subprocess.run(["tmux", "-u", "-S", self.socket, *words], check=True, text=True, capture_output=True,
                              env={**self.system.env, "LC_ALL": "C.UTF-8"}, timeout=WAIT_S).stdout

    def type(self, text):
        self.tmux("send-keys", text, "Enter")

    def expect(self, *patterns):
        """Each pattern matches the screen; returns it."""
        deadline = time.monotonic() + WAIT_S
        while True:
            screen = self.tmux("capture-pane", "-p")
            missing = [each for each in patterns if not re.search(each, screen, re.MULTILINE)]
            if not missing:
                return screen
            time.sleep(0.02)
            require(time.monotonic() < deadline, f"{missing} does not appear:\n{screen}")


def usage(system, terminal):
    system.expect(2, "top", error="needs a terminal")
    terminal.type(f"{system.programs}/veltra top; echo status $?")
    terminal.expect("does not run", "^status 3$")


def shown(system, terminal):
    terminal.type(f"{system.programs}/veltra top --start; echo status $?")
    terminal.expect("process [0-9]+, up", "^q ends this view", r"^gameEvent +0 ", "simulation off")
    system.expect(0, "simulate", "set", "tempLevel=4", "gpuLoadPercent=50")
    system.expect(0, "call", "UpdateGameInfo", "1", "com.example.racer")
    screen = terminal.expect(r"^temperature level +4 *\[\|{10}  \]", r"^GPU load +50\.0 % *\[\|{6} ", "simulation on",
                             r"^UpdateGameInfo +1 +\d+\.\d +\d+\.\d +\d+\.\d +0$")
    require(len(screen.splitlines()) == 24, screen)


def ended_and_back(system, terminal):
    os.kill(system.service_pid(), signal.SIGKILL)
    terminal.expect("^The service has ended", "^temperature level +- ")
    system.expect(0, "call", "CallAuth")
    terminal.expect("simulation off")
    system.expect(0, "call", "CallAuth")
    terminal.expect(r"^CallAuth +1 ")


def ends(system, terminal):
    """A new size is followed; q, ^C and a hang-up end the view, and the terminal is usable after."""
    terminal.tmux("resize-window", "-x", "60", "-y", "14")
    require(len(terminal.expect(r"^PUSHES.*\n(.*\n){7}q ends").splitlines()) == 14, "the size is not followed")
    terminal.tmux("send-keys", "q")
    terminal.expect("^status 0$")
    terminal.type("clear; stty -a | tr ' ' '\\n' | grep -x -e icanon -e echo")
    terminal.expect("^icanon$", "^echo$")
    terminal.type(f"clear; {system.programs}/veltra top; echo again $?")
    terminal.expect("^q ends")
    terminal.tmux("send-keys", "C-c")
    terminal.expect("^again 0$")
    terminal.type(f"clear; exec {system.programs}/veltra top")
    terminal.expect("^q ends")
    process = int(terminal.tmux("display-message", "-p", "#{pane_pid}"))
    end = os.pidfd_open(process)  # readable once the process has ended
    terminal.tmux("new-window", "sh")
    terminal.tmux("kill-window", "-t", "0")
    require(select.select([end], [], [], WAIT_S)[0], "top outlives its terminal")
    os.close(end)


def main():
    if shutil.which("tmux") is None:
        print("skipped: tmux is missing; run scripts/setup")
        sys.exit(SKIPPED)
    with System(*sys.argv[1:]) as system:
        system.write_ability()
        system.start_manager()
        with Terminal(system) as terminal:
            usage(system, terminal)
            shown(system, terminal)
            ended_and_back(system, terminal)
            ends(system, terminal)


main()
