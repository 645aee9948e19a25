# SPDX-License-Identifier: Apache-2.0
"""The verbs of `veltra` by exit status, JSON and output, against the real manager and service.

Usage: verbs_test.py PROGRAMS SOURCE
"""
import concurrent.futures
import json
import os
import pathlib
import signal
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from operation_table import OPERATIONS
from harness import WAIT_S, System, require


def without_manager(system):
    for words in (["status"], ["get"], ["get", "--start"], ["watch"], ["explain"], ["call", "CallAuth"],
                  ["call", "SyncAppType"], ["simulate", "set", "tempLevel=1"], ["simulate", "off"]):
        system.expect(3, *words)
    require("fix" in system.json("status", status=3), "an error has no fix")


def usage(system):
    for words in ([], ["fly"], ["get", "--fly"], ["call", "Fly"], ["call", "CallAuth", "txt=a"],
                  ["call", "CallAuth", "a", "b"], ["call", "UpdateGameInfo", "one"],
                  ["call", "UpdateGameInfo", "4294967296"], ["call", "GetDeviceInfo", "1,x"],
                  ["call", "GetDeviceInfo", "1,4294967297"],
                  ["call", "NotifyAppResourceDownLoadResults", "{"], ["simulate"], ["simulate", "set", "tempLevel"],
                  ["simulate", "set", "tempLevel=hot"], ["simulate", "set", "tempLevel=nan"], ["simulate", "load", "nowhere"], ["simulate", "speed", "0"],
                  ["completion", "sh"], ["--runtime-dir", "", "status"]):
        system.expect(2, *words)
    system.expect(0, "--help", output="exit status")


def check(system):
    for name in ("desktop-idle", "laptop-gaming", "handheld-warm", "phone-throttling", "heat-wave", "flaky-service"):
        system.expect(0, "simulate", "check", name)
    path = system.folder / "bad.json"
    path.write_text('{"name": 1,\n "curves": {"fps": 60}}')
    system.expect(1, "simulate", "check", path, output=r"bad.json:1:10: name: .*\n.*bad.json:2:20: curves.fps: ")
    system.expect(1, "simulate", "check", system.folder / "missing.json", error="cannot be read")
    mistakes = system.json("simulate", "check", path, status=1)["mistakes"]
    require([each["line"] for each in mistakes] == [1, 2], mistakes)


def looking_starts_nothing(system):
    for verb in ("get", "watch", "explain"):
        system.expect(3, verb, error="does not run")
    system.expect(3, "simulate", "off")
    service = next(each for each in system.json("status")["abilities"] if each["id"] == 66006)
    require((service["running"], service["starts"]) == (False, 0), service)


SECONDS = {"RegisterGameCallback": "0.5", "StartGetGpuPerfInfo": "1.5"}  # to wait for the callback


def typed(argument):
    """An argument of an operation as a word of the command line."""
    if isinstance(argument, dict):
        return ",".join(f"{key}={value}" for key, value in argument.items())
    if isinstance(argument, list):
        return json.dumps(argument) if argument and isinstance(argument[0], dict) else ",".join(map(str, argument))
    return str(argument)


def calls(system):
    parameters = {each["operation"]: each.get("parameters", []) for each in system.json("call")["operations"]}
    require({operation for operation, *_ in OPERATIONS} == set(parameters) and len(parameters) == 16, parameters)
    for operation, arguments, name, has_callbacks in OPERATIONS:
        words = [operation, *(f"{key}={typed(value)}" for key, value in zip(parameters[operation], arguments))]
        if operation in SECONDS:
            words += ["--for", SECONDS[operation]]
        document = system.json("call", *words, status=0 if name in ("RESULT_OK", None) else 1)
        require(document.get("name") == name, f"{words}: {document}")
        require(bool(document.get("callbacks")) == has_callbacks, f"{words}: {document}")
    for words in (["1", "com.example.racer"], ["second=-1", "first=1", "text=a=b"]):
        system.expect(0, "call", "UpdateGameInfo", *words)


def hostile_text(system):
    """The name that a peer chose for itself is escaped on the terminal and in JSON."""
    name = "a\033[31m\nb\x9b\u202e\\"
    done = system.run("call", "SyncAppType", name)
    require(r"a\x1b[31m\nb\xc2\x9b\xe2\x80\xae\\ = false" in done.stdout, repr(done.stdout))
    require(system.json("call", "SyncAppType", name)["answer"] == {name: False}, "JSON changes the text")


def colour(system):
    command = f"{system.programs}/veltra call CallAuth"
    for env, is_coloured in (({}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "dumb"}, False)):
        done = system.on_terminal(command, **{"TERM": "xterm", **env})
        require(("\033[32m" in done) == is_coloured, f"{env}: {done!r}")
    require("\033" not in system.run("call", "CallAuth", TERM="xterm").stdout, "colour into a pipe")


def simulation(system):
    def level():
        return system.run("get", "tempLevel").stdout

    system.expect(0, "simulate", "load", "heat-wave", output="heat-wave, at 0")
    system.expect(0, "simulate", "pause")
    system.expect(0, "simulate", "seek", "40", output="at 40.0 s.*paused")
    require(level() == "4\n", level())
    system.expect(0, "simulate", "set", "tempLevel=1", "gpuLoadPercent=7", output="gpuLoadPercent=7 tempLevel=1")
    require(level() == "1\n", level())
    system.expect(0, "simulate", "release", "tempLevel", output="values +gpuLoadPercent=7\n")
    require(level() == "4\n", level())
    require(system.json("status")["simulation"]["scenario"] == "heat-wave", "status does not show the scenario")
    system.expect(0, "simulate", "speed", "2")
    system.expect(0, "simulate", "resume")
    system.expect(0, "simulate", "event", "boss fight")
    system.expect(1, "simulate", "set", "fps=1", error="fps: there is no such value")
    system.expect(0, "simulate", "fault", "refuse", "--operation", "CallAuth", "--code", "1010310104")
    system.expect(1, "call", "CallAuth", output="SERVICE_DENIED")
    system.expect(0, "simulate", "off", output="off")


def full_disk(system):
    """What could not be printed was not done."""
    with open("/dev/full", "w") as full:
        for words in (["--help"], ["get"], ["--json", "get"], ["watch"], ["completion", "bash"]):
            done = subprocess.run(system.command("veltra", *words), env=system.env, text=True, stdout=full,
                                  stderr=subprocess.PIPE, timeout=WAIT_S)
            require(done.returncode == 1 and "standard output cannot be written: No space" in done.stderr,
                    f"{words} ended with {done.returncode}: {done.stderr}")


def values(system):
    system.expect(0, "simulate", "set", "tempLevel=3", "thermalMargin=12")
    system.expect(5, "get", "tempLevel", "fps", output="tempLevel = 3 ", error="does not report fps")
    document = system.json("get", "fps", "thermalMargin", status=5)
    require(document["missing"] == ["fps"], document)
    require(document["values"]["thermalInfo.thermalMargin"]["value"] == 12, document)
    require(system.json("get")["values"]["tempLevel"]["source"], "a value has no source")
    system.expect(0, "simulate", "off")
    system.expect(0, "explain", output="temperature sensors")


def watching(system):
    """One line for each change, until the limit, an interruption (0) or the end of the service (3)."""
    system.expect(0, "simulate", "set", "tempLevel=1", "thermalMargin=9")
    watch = system.start("watch", "--json", "tempLevel", "thermalMargin", "--count", "3")
    first = sorted((each["key"], each["value"]) for each in (json.loads(watch.stdout.readline()) for _ in range(2)))
    require(first == [("tempLevel", 1), ("thermalMargin", 9)], first)
    system.expect(0, "simulate", "set", "tempLevel=4")
    change = json.loads(watch.stdout.readline())
    require((change["key"], change["before"], change["value"]) == ("tempLevel", 1, 4), change)
    require(watch.wait(WAIT_S) == 0, "the limit is no success")
    system.expect(1, "doctor-probe")  # which would kill the service that this system uses
    system.expect(0, "watch", "tempLevel", "--count", "1", output=r"^\d\d:\d\d:\d\d\.\d{3} tempLevel 4\n$")
    for end, status in ((lambda: watch.send_signal(signal.SIGINT), 0),
                        (lambda: os.kill(system.service_pid(), signal.SIGKILL), 3)):
        watch = system.start("watch", "tempLevel")
        watch.stdout.readline()
        end()
        require(watch.wait(WAIT_S) == status, f"watch ended with {watch.returncode} and not {status}")


def without_service():
    with System(*sys.argv[1:]) as system:
        without_manager(system)
        usage(system)
        check(system)


def against_a_scenario():
    with System(*sys.argv[1:]) as system:
        scenario = system.write_scenario(curves={"tempLevel": 2, "gpuLoadLevel": 1},
                                         gpu={"counters": {"gpuLoadPercent": 50}})
        system.write_ability(arguments=["--catalogue", system.share / "catalogue.json", "--scenario", scenario])
        system.start_manager()
        looking_starts_nothing(system)
        system.expect(0, "get", "--start", "tempLevel", output="^2\n$")
        calls(system)
        hostile_text(system)
        colour(system)


def against_the_machine():
    with System(*sys.argv[1:]) as system:
        system.write_ability()
        system.start_manager()
        system.expect(0, "call", "CallAuth")
        simulation(system)
        full_disk(system)
        values(system)
        watching(system)


def a_service_that_hangs():
    with System(*sys.argv[1:]) as system:
        system.write_ability()
        system.start_manager()
        system.expect(0, "simulate", "fault", "hang", "--operation", "CallAuth", "--start")
        system.expect(0, "simulate", "fault", "hang", "--operation", "SyncAppType")
        system.expect(4, "call", "CallAuth")
        system.expect(4, "call", "SyncAppType", "a", error="does not answer")


def a_service_that_is_stopped():
    with System(*sys.argv[1:]) as system:
        system.write_ability()
        system.start_manager()
        system.expect(0, "call", "CallAuth")
        system.stop_service()
        running = [system.start(*words) for words in (["get"], ["get", "--start"], ["watch"], ["call", "SyncAppType"],
                                                      ["record", system.folder / "none"])]
        for each in running:
            each.communicate(timeout=WAIT_S)
            require(each.returncode == 4, f"{each.args} ended with {each.returncode}")


def without_simulation():
    with System(*sys.argv[1:]) as system:
        system.write_ability(arguments=["--no-simulation"])
        system.start_manager()
        system.expect(5, "simulate", "set", "tempLevel=1", "--start", error="--no-simulation")


def main():
    # They wait for seconds, so they wait at the same time.
    parts = (a_service_that_hangs, a_service_that_is_stopped, against_the_machine, against_a_scenario,
             without_service, without_simulation)
    with concurrent.futures.ThreadPoolExecutor(max_workers=len(parts)) as pool:
        for part in [pool.submit(each) for each in parts]:
            part.result()


main()
