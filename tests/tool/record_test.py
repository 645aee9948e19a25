# SPDX-License-Identifier: Apache-2.0
"""Calls that are watched, recorded, replayed and turned into other documents.

Usage: record_test.py PROGRAMS SOURCE
"""
import json
import sys
import time

from harness import WAIT_S, System, require


def wait_for_watchers(system, count):
    deadline = time.monotonic() + WAIT_S
    while system.json("status").get("watchers") != count:
        require(time.monotonic() < deadline, f"there are not {count} watchers")


def monitor(system):
    """Failed calls only, by the service's code; a text of a game does not reach the terminal as it is."""
    watches = [system.start("monitor", "--json", "--failed", "--count", "1"),
               system.start("monitor", "--operation", "CallAuth", "--count", "1")]
    wait_for_watchers(system, 2)
    system.expect(0, "call", "CallAuth", "a\033[31m\n")
    system.expect(1, "call", "ReportRenderThread", "value=0")
    failed, shown = (watch.communicate(timeout=WAIT_S)[0] for watch in watches)
    require(json.loads(failed)["op"] == "ReportRenderThread" and json.loads(failed)["code"] == 1010310101, failed)
    require(r"CallAuth text=a\x1b[31m\n -> RESULT_OK" in shown and shown.count("\n") == 1, repr(shown))


def main():
    with System(*sys.argv[1:]) as system:
        system.write_ability()
        system.start_manager()
        system.expect(3, "monitor", error="does not run")
        system.expect(0, "call", "CallAuth")
        monitor(system)


main()
