# SPDX-License-Identifier: Apache-2.0
"""A recording of examples/adaptive in a simulated heat wave."""
import time

from harness import WAIT_S, require

SECONDS = 76  # of the scenario, with the game's last step


def record_heat_wave(system, path, speed):
    """Of a system whose manager runs. With a higher speed the recording has fewer values of the device."""
    for words in (["simulate", "--start", "load", "heat-wave"], ["simulate", "speed", speed]):
        system.expect(0, *words)
    recorder = system.start("record", str(path), "--for", str(SECONDS / speed))
    deadline = time.monotonic() + WAIT_S
    while not path.exists() or '"device"' not in path.read_text():
        require(time.monotonic() < deadline, "nothing is recorded")
        time.sleep(0.005)
    game = system.start_program("veltra_adaptive", "--speed", str(speed))
    for process in (game, recorder):
        output = process.communicate(timeout=SECONDS * 3)[0]
        require(process.returncode == 0, f"{process.args} ended with {process.returncode}: {output}")
