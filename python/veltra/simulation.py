# SPDX-License-Identifier: Apache-2.0
"""A private manager and service that play a scenario, for the tests of a game."""
from __future__ import annotations

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time
from typing import Iterator, Mapping, Union

START_WAIT_S = 30


def _program(name: str) -> str:
    """VELTRA_BIN names the folder of the programs, where PATH does not lead to them."""
    found = shutil.which(name, path=os.environ.get("VELTRA_BIN", os.environ.get("PATH")))
    if found is None:
        raise FileNotFoundError(f"{name} is in no folder of VELTRA_BIN or PATH")
    return found


def _await_socket(path: pathlib.Path, manager: subprocess.Popen[bytes]) -> None:
    deadline = time.monotonic() + START_WAIT_S
    while not path.exists():
        if manager.poll() is not None or time.monotonic() > deadline:
            raise RuntimeError("tavo_manager did not start; it has written the reason to stderr")
        time.sleep(0.005)


@contextlib.contextmanager
def simulated(scenario: Union[str, os.PathLike[str], Mapping[str, object]], speed: float = 1) -> Iterator[None]:
    """Starts a manager in a folder of its own, whose service plays `scenario` (a file, or its content) `speed` times as
    fast, and ends both. Once for each process, before its first use of the library, which remembers where the manager
    is: run each test that needs one in a process of its own."""
    with tempfile.TemporaryDirectory(prefix="veltra-") as folder:
        place = pathlib.Path(folder)
        if isinstance(scenario, Mapping):
            file = place / "scenario.json"
            file.write_text(json.dumps(scenario), encoding="utf-8")
        else:
            file = pathlib.Path(scenario).resolve()
        runtime, abilities = place / "run", place / "abilities"
        runtime.mkdir(mode=0o700)
        abilities.mkdir()
        arguments = ["--scenario", str(file), "--speed", str(speed)]
        ability = {"id": 66006, "program": _program("veltra_server"), "arguments": arguments}
        (abilities / "66006.json").write_text(json.dumps(ability), encoding="utf-8")
        os.environ["TAVO_RUNTIME_DIR"] = str(runtime)
        manager = subprocess.Popen([_program("tavo_manager"), "--abilities", str(abilities)])
        try:
            _await_socket(runtime / "manager", manager)
            yield
        finally:
            manager.terminate()
            manager.wait()
