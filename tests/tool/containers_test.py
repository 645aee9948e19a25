# SPDX-License-Identifier: Apache-2.0
"""Containers and sandboxes: manager and game in namespaces of their own, as docs/containers.md lists them.

Each row starts a manager in one environment and a client in another, and has what the client must report. In a container
the commands of the page, its blocks marked "sh containers", work too. A machine that does not permit namespaces skips
the test with its reason.
Usage: containers_test.py PROGRAMS SOURCE
"""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from harness import WAIT_S, require

SKIPPED = 77
CONTAINER = ("unshare", "--user", "--map-root-user", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc")
NAMESPACE = ("unshare", "--user", "--map-root-user", "--mount")


def inside(prefix, setup):
    """A command in namespaces of its own, after a setup by the shell."""
    return (*prefix, "sh", "-ec", setup + '\nexec "$@"', "sh")


HERE = ()
NO_PROC = inside(NAMESPACE, "mount -t tmpfs none /proc")
READ_ONLY_HOME = inside(NAMESPACE, 'mount --bind "$HOME" "$HOME"; mount -o remount,bind,ro "$HOME"')
OTHER_PID_SAME_PROC = ("unshare", "--user", "--map-root-user", "--pid", "--fork", "--kill-child")
UNMAPPED_USER = ("unshare", "--user")
NO_SESSION = inside(NAMESPACE, "mount -t tmpfs none /run; unset XDG_RUNTIME_DIR TAVO_RUNTIME_DIR")
SHORT, LONG = "run", "r" * 120
PAGE = "docs/containers.md"

# name, environment of the manager, of the client, runtime directory, what the client prints when it cannot connect
IN_CONTAINER = ("a game in a container", HERE, CONTAINER, SHORT, None)
ROWS = (
    IN_CONTAINER,
    ("two containers that share the runtime directory", CONTAINER, CONTAINER, SHORT, None),
    ("the manager in a container", CONTAINER, HERE, SHORT, None),
    ("a game with another pid namespace than its /proc", HERE, OTHER_PID_SAME_PROC, SHORT, None),
    ("a game with an empty /proc", HERE, NO_PROC, SHORT, None),
    ("manager and service with an empty /proc", NO_PROC, HERE, SHORT, None),
    ("a home that cannot be written", READ_ONLY_HOME, READ_ONLY_HOME, SHORT, None),
    ("a long path", HERE, CONTAINER, LONG, None),
    ("a long path and an empty /proc", HERE, NO_PROC, LONG, "mount /proc, or set TAVO_RUNTIME_DIR to a shorter path"),
    ("a container that does not map the user", HERE, UNMAPPED_USER, SHORT, None),
    ("no runtime directory of the session", HERE, NO_SESSION, SHORT, "create its parent, or set TAVO_RUNTIME_DIR"),
)


def why_not_permitted():
    done = subprocess.run([*CONTAINER, "mount", "-t", "tmpfs", "none", "/run"], stdin=subprocess.DEVNULL, text=True,
                          capture_output=True, timeout=WAIT_S)
    return done.stderr.strip() if done.returncode != 0 else ""


@contextlib.contextmanager
def manager(programs, where, env):
    """Ends with all that it started: at the end no process of the namespaces is left."""
    runtime = pathlib.Path(env["TAVO_RUNTIME_DIR"])
    process = subprocess.Popen([*where, programs / "tavo_manager"], env=env, stdin=subprocess.DEVNULL,
                               stderr=subprocess.PIPE, text=True, start_new_session=True)
    try:
        deadline = time.monotonic() + WAIT_S
        while not (runtime / "manager").is_socket():
            require(process.poll() is None and time.monotonic() < deadline, "the manager did not start")
            time.sleep(0.005)
        yield
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGTERM)
        log = process.communicate(timeout=WAIT_S)[1]  # until the service has ended too
        if sys.exc_info()[0] is not None:
            sys.stderr.write(log)


def check(programs, row, scratch, commands=None):
    """With commands, those are typed in the place of the client."""
    name, manager_where, client_where, folder, refusal = row
    scenario = scratch / "scenario.json"
    scenario.write_text('{"curves": {"temperature": 50}}')
    abilities = scratch / "config/tavo/abilities"  # of the user
    abilities.mkdir(parents=True)
    (abilities / "66006.json").write_text(f'{{"id": 66006, "arguments": ["--scenario", "{scenario}"]}}')
    home = scratch / "home"
    home.mkdir()
    # Without /proc the loader cannot find libraries by a run path that begins at the program.
    libraries = next(programs.parent.glob("lib*/**/libtavo.so")).parent
    env = {**os.environ, "PATH": f"{programs}:{os.environ['PATH']}", "LD_LIBRARY_PATH": str(libraries),
           "TAVO_RUNTIME_DIR": str(scratch / folder), "TAVO_LOG": "warn,stderr", "HOME": str(home),
           "XDG_CONFIG_HOME": str(scratch / "config")}
    with manager(programs, manager_where, env):
        client = ("sh", "-exc", commands) if commands else ("veltra", "get", "--start", "temperature")
        done = subprocess.run([*client_where, *client], env=env, text=True, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=WAIT_S)
    output = f"{name}: exit {done.returncode}: {done.stdout}{done.stderr}"
    print(output)
    if refusal is None:
        require(done.returncode == 0 and (commands or done.stdout == "50\n"), output)
    else:
        require(done.returncode != 0 and refusal in done.stdout + done.stderr, output)


def main():
    programs = pathlib.Path(sys.argv[1])
    reason = why_not_permitted() if shutil.which("unshare") else "unshare is missing"
    if reason:
        print(f"this machine permits no namespaces: {reason}")
        return SKIPPED
    printed = re.findall(r"^```sh containers\n(.*?)^```$", pathlib.Path(sys.argv[2], PAGE).read_text(), re.M | re.S)
    require(printed, f"{PAGE} has no commands for a container")
    for row, commands in [*((row, None) for row in ROWS), *((IN_CONTAINER, text) for text in printed)]:
        with tempfile.TemporaryDirectory(prefix="veltra-") as scratch:
            check(programs, row, pathlib.Path(scratch), commands)
    return 0


sys.exit(main())
