# SPDX-License-Identifier: Apache-2.0
"""A private manager and service that play a scenario, for the tests of a game.

The library remembers where the manager is, from its first use to the end of the process. So all simulations of a process
have one runtime directory, and one after the other a manager of their own in it.
"""
from __future__ import annotations

import atexit
import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading
import time
from typing import Iterator, Mapping, Optional, Union

START_WAIT_S = 30
END_WAIT_S = 30

_is_running = threading.Lock()
_runtime: Optional[pathlib.Path] = None  # of this process, made for its first simulation


def _program(name: str) -> str:
    """VELTRA_BIN names the folder of the programs, where PATH does not lead to them."""
    found = shutil.which(name, path=os.environ.get("VELTRA_BIN", os.environ.get("PATH")))
    if found is None:
        raise FileNotFoundError(f"{name} is in no folder of VELTRA_BIN or PATH")
    return found


def _remove_runtime(owner: int) -> None:
    if _runtime is not None and os.getpid() == owner:  # and not a forked child
        shutil.rmtree(_runtime, ignore_errors=True)


def _runtime_directory() -> pathlib.Path:
    global _runtime
    if _runtime is None:
        _runtime = pathlib.Path(tempfile.mkdtemp(prefix="veltra-"))  # has mode 0700
        atexit.register(_remove_runtime, os.getpid())
    os.environ["TAVO_RUNTIME_DIR"] = str(_runtime)
    return _runtime


def _write_ability(place: pathlib.Path, arguments: list[str]) -> pathlib.Path:
    abilities = place / "abilities"
    abilities.mkdir()
    ability = {"id": 66006, "program": _program("veltra_server"), "arguments": arguments}
    (abilities / "66006.json").write_text(json.dumps(ability), encoding="utf-8")
    return abilities


def _await_socket(path: pathlib.Path, manager: subprocess.Popen[bytes]) -> None:
    deadline = time.monotonic() + START_WAIT_S
    while not path.exists():
        if manager.poll() is not None or time.monotonic() > deadline:
            raise RuntimeError("tavo_manager did not start; it has written the reason to stderr")
        time.sleep(0.005)


def _end(manager: subprocess.Popen[bytes]) -> None:
    """Ends the manager, which ends the service."""
    manager.terminate()
    try:
        manager.wait(END_WAIT_S)
    except subprocess.TimeoutExpired:
        manager.kill()
        manager.wait()


@contextlib.contextmanager
def simulated(scenario: Union[str, os.PathLike[str], Mapping[str, object]], speed: float = 1,
              catalogue: Union[str, os.PathLike[str], None] = None) -> Iterator[None]:
    """Starts a manager in a folder of its own, whose service plays `scenario` (a file, or its content) `speed` times as
    fast and knows the applications of `catalogue` (a file), and ends both.

    A process may do so any number of times, one after the other; RuntimeError if one is running. The first time must
    come before its first use of the library, which from then on looks for the manager there."""
    if not _is_running.acquire(blocking=False):
        raise RuntimeError("a simulation is running in this process: end it before the next one")
    try:
        with tempfile.TemporaryDirectory(prefix="veltra-") as folder:
            place = pathlib.Path(folder)
            file = place / "scenario.json"
            if isinstance(scenario, Mapping):
                file.write_text(json.dumps(scenario), encoding="utf-8")
            else:
                file = pathlib.Path(scenario).resolve(strict=True)
            arguments = ["--scenario", str(file), "--speed", str(speed)]
            if catalogue is not None:
                arguments += ["--catalogue", str(pathlib.Path(catalogue).resolve(strict=True))]
            abilities = _write_ability(place, arguments)
            runtime = _runtime_directory()
            manager = subprocess.Popen([_program("tavo_manager"), "--abilities", str(abilities)])
            try:
                _await_socket(runtime / "manager", manager)
                yield
            finally:
                _end(manager)
    finally:
        _is_running.release()
