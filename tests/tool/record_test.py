# SPDX-License-Identifier: Apache-2.0
"""Calls that are watched, recorded, replayed and turned into other documents.

Usage: record_test.py PROGRAMS SOURCE
"""
import json
import os
import signal
import subprocess
import sys
import time

from harness import WAIT_S, System, require


def wait_for_watchers(system, count):
    deadline = time.monotonic() + WAIT_S
    while system.json("status").get("watchers") != count:
        require(time.monotonic() < deadline, f"there are not {count} watchers")


def monitor(system):
    """Failed calls only, by the service's code; a text of a game reaches the terminal escaped only."""
    watches = [system.start("monitor", "--json", "--failed", "--count", "1"),
               system.start("monitor", "--operation", "CallAuth", "--count", "1")]
    wait_for_watchers(system, 2)
    system.expect(0, "call", "CallAuth", "a\033[31m\n")
    system.expect(1, "call", "ReportRenderThread", "value=0")
    failed, shown = (watch.communicate(timeout=WAIT_S)[0] for watch in watches)
    require(json.loads(failed)["op"] == "ReportRenderThread" and json.loads(failed)["code"] == 1010310101, failed)
    require(r"CallAuth text=a\x1b[31m\n -> RESULT_OK" in shown and shown.count("\n") == 1, repr(shown))


def record(system, path, *words, calls=()):
    """Records the calls, and returns the recording's lines. Ended by a signal, as on a terminal."""
    recorder = system.start("record", str(path), *words)
    wait_for_watchers(system, 1)
    pids = []
    for call in calls:
        caller = system.start("call", *call)
        caller.communicate(timeout=WAIT_S)
        pids.append(caller.pid)
    deadline = time.monotonic() + WAIT_S
    wanted = ['"device"', *(f'"pid":{pid},' for pid in pids)]
    while not all(each in path.read_text() for each in wanted):
        require(time.monotonic() < deadline, f"not all of {wanted} were recorded")
    recorder.terminate()
    recorder.wait(WAIT_S)
    wait_for_watchers(system, 0)
    return [json.loads(line) for line in path.read_text().splitlines()]


def recording(system):
    """One line for each call behind the header; redacted, equal texts have equal tokens and are not in the file."""
    path = system.folder / "session.jsonl"
    calls = [["UpdateGameInfo", "1", "secret.racer"], ["SyncAppType", "secret.racer"],
             ["NotifyGameEvent", "1", "menu", "attributes=secret.key=1"], ["GetDeviceInfo", "1"]]
    path.touch()
    path.chmod(0o644)
    for words in ([], ["--redact"]):
        header, *records = record(system, path, *words, calls=calls)
        require((header["type"], header["schema"], header["simulated"]) == ("header", 1, False), header)
        require(not any(None in each.values() for each in records), records)
        made = [each for each in records if each["type"] == "call"]
        require([each["op"] for each in made] == [call[0] for call in calls], made)
        require(("secret" in path.read_text()) == (not words), path.read_text())
        require([made[0]["args"]["text"]] == list(made[1]["reply"]["result"]), made)
        require(path.stat().st_mode & 0o777 == 0o600, "others may read what games sent")
    system.expect(1, "record", system.folder / "missing/file", error="missing/file cannot be written")


def running_games(system):
    """The header names games that ran before the recording, and not if it is redacted."""
    path = system.folder / "running.jsonl"
    game = system.start_program("veltra_adaptive", "--seconds", "600")
    try:
        deadline = time.monotonic() + WAIT_S
        while "com.example.adaptive" not in json.dumps(system.json("status")):
            require(time.monotonic() < deadline, "the game is not known")
        for words, is_named in (([], True), (["--redact"], False)):
            system.expect(0, "record", path, "--for", "0.1", *words)
            header = json.loads(path.read_text().splitlines()[0])
            names = [each["bundle"] for each in header.get("games", [])]
            require(("com.example.adaptive" in names) == is_named, header)
    finally:
        game.kill()
        game.communicate(timeout=WAIT_S)


def replaying(system):
    """The same results from the same service, one process for each game; other results are listed."""
    path = system.folder / "replay.jsonl"
    calls = [["CallAuth", "a"], ["UpdateGameInfo", "1", "com.example.racer"], ["ReportRenderThread", "value=0"],
             ["NotifyGameEvent", "1", "menu", "attributes=a=1,b=2"], ["GetDeviceInfo", "1,2"],
             ["RegisterGameCallback", "--for", "0.1"], ["QueryAppResourceInfos", "com.example.racer"],
             ["NotifyAppResourceDownLoadResults", 'results=[{"text1": "a"}, {}]'], ["ReportGameEvent", "1", "x"]]
    record(system, path, calls=calls)
    done = system.json("replay", path, "--speed", "10")
    require((done["games"], done["requests"], done["differenceCount"]) == (9, 10, 0), done)
    system.expect(0, "simulate", "fault", "refuse", "--operation", "CallAuth", "--code", "1010310104")
    system.expect(1, "replay", path, "--speed", "10",
                  output="CallAuth number 1: recorded RESULT_OK, now SERVICE_DENIED\n")
    system.expect(0, "simulate", "off")
    with path.open() as recording:  # which the games cannot read again
        done = subprocess.run(system.command("veltra", "replay", "/dev/stdin"), env=system.env, stdin=recording,
                              text=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=WAIT_S)
    require(done.returncode == 1 and "ended with status 1" in done.stderr, done)
    lines = path.read_text().splitlines(keepends=True)
    path.write_text("".join(lines).replace('"code":0,', '"cut":true,"code":0,'))
    system.expect(0, "replay", path, "--speed", "100", output=r"8 requests skipped: .*\(cut\)\n2 requests of 2 proc")


def bad_recordings(system):
    written = [system.folder / name for name in ("trace.json", "report.html", "bad.json")]
    for each in written:
        each.write_text("earlier")
    header = '{"schema":1,"type":"header"}\n'
    call = '{"type":"call","t":1,"pid":1,"op":"CallAuth","code":0,"us":1,"args":{"text":""}}\n'
    path = system.folder / "bad.jsonl"
    for text, line in (("", 1), (call, 1), (header.replace("1", "2"), 1), (header + "{\n", 2), (header + "[]\n", 2),
                       (header + call + call.replace(":1,", ":-1,"), 3), (header + call.replace('"CallAuth"', "[]"), 2),
                       (header + call.replace('"code":0', '"code":"0"'), 2),
                       (header + '{"type":"device","t":1,"values":{"tempLevel":"hot"}}\n', 2),
                       (header + '"' + "a" * 70000 + '"\n', 2), (header + "[" * 60000 + "\n", 2)):
        path.write_text(text)
        for words in (["replay", path], ["trace", path, "-o", written[0]], ["report", path, "-o", written[1]],
                      ["scenario", path, "-o", written[2]]):
            system.expect(1, *words, error=f"bad.jsonl:{line}: the line ")
    require(all(each.read_text() == "earlier" for each in written), "a bad recording replaced a file")
    path.write_text(header + call)
    for words in (["trace", path, "-o"], ["report", path, "-o"], ["scenario", path, "-o"],
                  ["record", path, "--as-scenario"]):
        system.expect(2, *words, f"{system.folder}/./bad.jsonl", error="would be replaced")
    require(path.read_text() == header + call, "a recording was replaced")


def tracing(system):
    """Spans of one row never overlap, though a process calls from several threads."""
    path = system.folder / "threads.jsonl"
    calls = [(10.0, 5e6, 7), (11.0, 1e6, 7), (12.0, 1e6, 7), (12.5, 3e6, 7), (12.5, 9.3, 8), (12.50001, 9.3, 8)]
    path.write_text('{"schema":1,"type":"header"}\n' + "".join(
        json.dumps({"type": "call", "t": end, "pid": pid, "op": "CallAuth", "code": 0, "us": us}) + "\n"
        for end, us, pid in calls))
    system.expect(0, "trace", path, "-o", system.folder / "trace.json")
    events = json.loads((system.folder / "trace.json").read_text())["traceEvents"]
    spans = [each for each in events if each["ph"] == "X"]
    require(len(spans) == len(calls) and min(each["ts"] for each in spans) == 0, spans)
    rows = {}
    for span in sorted(spans, key=lambda each: each["ts"]):
        row = (span["pid"], span["tid"])
        require(span["ts"] >= rows.get(row, 0) - 0.01, f"{span} overlaps in its row")
        rows[row] = span["ts"] + span["dur"]
    require(len(rows) == 3, rows)


def recorded_scenario(system):
    """Plays the recorded values within a second, and the texts of events once, however many games got them."""
    path, scenario = system.folder / "device.jsonl", system.folder / "scenario.json"
    header, event = {"schema": 1, "type": "header"}, {"type": "push", "what": "gameEvent", "status": 0, "us": 1}
    levels = {0: 1, 10: 3, 11: 4, 20: 2, **{30 + each: each % 5 for each in range(3000)}}
    records = [{"type": "device", "t": 1000 + at, "values": {"tempLevel": level, "fanRpm": 1200, "later": 1}}
               for at, level in levels.items()]
    records[4:4] = [{**event, "t": 1021, "pid": pid, "data": {"eventText": text}}
                    for text in ("boss\n", "deviceState") for pid in (7, 8)]

    def play(count):
        path.write_text("".join(json.dumps(each) + "\n" for each in (header, *records[:count])))
        system.expect(0, "scenario", path, "-o", scenario)
        system.expect(0, "simulate", "check", scenario)
        return json.loads(scenario.read_text())

    made = play(8)
    require(made["events"] == [{"at": 21, "text": "boss\n"}] and set(made["curves"]) == {"tempLevel", "fanRpm"}, made)
    system.expect(0, "simulate", "load", scenario)
    system.expect(0, "simulate", "pause")
    for at, level in ((0, 1), (8.9, 1), (10, 3), (11, 4), (18.9, 4), (20, 2), (99, 2)):
        system.expect(0, "simulate", "seek", at)
        system.expect(0, "get", "tempLevel", output=f"^{level}\n$")
    system.expect(0, "simulate", "off")
    require(len(play(None)["curves"]["tempLevel"]["points"]) > 500, "a long recording leaves no curve")
    records[0]["values"]["tempLevel"] = 6
    path.write_text("".join(json.dumps(each) + "\n" for each in (header, *records)))
    system.expect(1, "scenario", path, "-o", scenario, error="device.jsonl:2: the line has a tempLevel out of")


def killed_service(system):
    """A recording that the end of the service ends makes a scenario, too."""
    path, scenario = system.folder / "killed.jsonl", system.folder / "killed.json"
    recorder = system.start("record", path, "--as-scenario", scenario)
    wait_for_watchers(system, 1)
    os.kill(system.service_pid(), signal.SIGKILL)
    require(recorder.wait(WAIT_S) == 3, f"record ended with {recorder.returncode}")
    system.expect(0, "simulate", "check", scenario)


def main():
    with System(*sys.argv[1:]) as system:
        system.write_ability()
        system.start_manager()
        for words in (["monitor"], ["record", system.folder / "none"]):
            system.expect(3, *words, error="does not run")
        system.expect(0, "call", "CallAuth")
        monitor(system)
        wait_for_watchers(system, 0)
        recording(system)
        running_games(system)
        replaying(system)
        bad_recordings(system)
        tracing(system)
        recorded_scenario(system)
        killed_service(system)


main()
