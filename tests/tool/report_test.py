# SPDX-License-Identifier: Apache-2.0
"""`veltra report` by the words and the data of its page.

Usage: report_test.py PROGRAMS SOURCE
"""
import html
import json
import re
import sys

from harness import System, require

START = 1000  # of every recording here, in seconds
EVIL = "</script><script>alert(1)</script><!--\"'&\u2028\n"


def device(at, **values):
    return {"type": "device", "t": START + at, "values": values}


def call(at, op, us=1, code=0, **more):
    return {"type": "call", "t": START + at, "pid": 7, "op": op, "code": code, "us": us, **more}


def push(at, us=1, status=0, **data):
    return {"type": "push", "t": START + at, "pid": 7, "what": "gameEvent", "status": status, "us": us, "data": data}


def quality(at, step, scene="race"):
    return call(at, "NotifyGameEvent", args={"bundle": {"sceneName": scene, "attributes": {"quality": step}}})


def named(text):
    return call(0, "UpdateGameInfo", args={"first": 1, "text": text, "second": 0})


# What the records show, and what must not be concluded from them.
FINDINGS = [
    ([device(0, tempLevel=1), named("racer"), quality(1, "5"), device(130, tempLevel=3), quality(131.4, "4"),
      device(140, tempLevel=2), device(150, tempLevel=3), device(155, tempLevel=2)],
     ["Level 3 reached at 02:10, 1.4 s later the quality of racer was lowered from 5 to 4; 00:15 at this level or above, "
      "2 times in all."], ["Level 4", "stayed cool"]),
    ([device(0, tempLevel=1), quality(1, "5"), quality(8, "4.5"), device(10, tempLevel=4)],
     ["Level 4 reached at 00:10, 2.0 s before the quality of process 7 had been lowered to 4.5;"], []),
    ([device(0, tempLevel=3), quality(1, "3"), quality(2, "4"), quality(20, "3")],
     ["Level 3 reached at 00:00, no game lowered its quality within 10 s"], []),
    ([device(0, tempLevel=3), quality(1, "high"), quality(2, "low"), device(1000, tempLevel=2)],
     ["Level 3 reached at 00:00; 00:30 at this level"], ["quality"]),  # silence is not known to be hot
    ([device(0, tempLevel=2, temperature=60, thermalMargin=20), device(1, tempLevel=2, temperature=70, thermalMargin=11)],
     ["stayed cool: its level was 2 at most", "highest temperature was 70 °C at 00:01, the least margin to the limit 11 °C"],
     ["throttled", "battery"]),
    ([device(0, throttling=1), device(5, throttling=0), device(6, throttling=1), device(8, batteryPercent=80),
      device(68, batteryPercent=78)],
     ["throttled for 00:07 in all, first at 00:00", "battery went from 80 % to 78 % in 01:00", "no temperature level"], []),
    ([device(0, tempLevel=0, currentFrequency=2400), device(1, tempLevel=0, currentFrequency=300),
      device(2, tempLevel=3, currentFrequency=1800)], [], ["slowed down"]),  # an idle GPU is no slow one
    ([device(0, tempLevel=3, currentFrequency=2400), device(2, tempLevel=3, currentFrequency=1600)],
     ["slowed down to 1600 MHz at 00:02, from 2400 MHz"], []),
    ([call(0, "CallAuth", us=100000), *(call(each, "QueryGameState", us=100001 + each) for each in range(12))],
     ["12 calls waited over 100 ms, the longest 100.0 ms (QueryGameState, answered at 00:11)"], []),
    ([call(0, "CallAuth"), call(2, "CallAuth", code=1010310104), push(3, status=-100003)],
     ["1 of 2 calls of CallAuth failed, the first at 00:02 with SERVICE_DENIED", "1 of 1 push of gameEvent failed",
      "No call waited over 100 ms; the longest took 1.0 µs"], ["simulated"]),
    ([{"type": "dropped", "t": START, "count": 2**64 - 1}, {"type": "dropped", "t": START, "count": 12},
      {"type": "game", "t": START + 4, "pid": 7, "event": "ended"},
      {"type": "simulation", "t": START + 5, "command": {"do": "off"}}],
     ["18446744073709551615 records were lost", "process 7 ended at 00:04", "was simulated", "No game called"], []),
    ([device(0, tempLevel=1), quality(1, "5"), device(3, tempLevel=3), quality(4, "3")], ["1.0 s later the quality of before was lowered"], [],
     {"games": [{"pid": 7, "bundle": "before"}, {"pid": "x"}, 5]}),
    ([], ["No game called the service", "no temperature level"], []),
]


def report(system, records, **header):
    path = system.folder / "session.jsonl"
    lines = [{"schema": 1, "type": "header", **header}, *records]
    path.write_text("".join(json.dumps(each) + "\n" for each in lines))
    done = system.run("report", path, "-o", "-")
    require(done.returncode == 0, done.stderr)
    return done.stdout


def data_of(page):
    return json.loads(re.search(r'<script type="application/json" id="data">(.*?)</script>', page, re.S)[1])[0]


def findings(system):
    for records, shown, hidden, *header in FINDINGS:
        listed = re.search(r'<ul class="findings">(.*?)</ul>', report(system, records, **dict(*header)), re.S)[1]
        text = html.unescape(re.sub("<[^>]*>", "", listed))
        for each in shown:
            require(each in text, f"expected: {each}\n{text}")
        for each in hidden:
            require(each not in text, f"not expected: {each}\n{text}")


def hostile_text(system):
    """Texts of peers are in the page, and no part of it."""
    records = [named(EVIL), call(1, EVIL, code=5, args={"bundle": 5}), quality(2, EVIL, scene=EVIL), quality(3, "1", scene=[]),
               push(4, eventText=EVIL, status=3), {"type": "simulation", "t": START, "command": EVIL},
               {"type": "simulation", "t": START, "command": {"do": "set", "values": {EVIL: EVIL}}},
               {"type": "game", "t": START, "pid": "7", "event": []}, {"type": EVIL, "t": START}]
    page = report(system, records, machine=EVIL, startedAt=EVIL, service=[EVIL])
    require(page.count("<script") == 4 and page.count("</script>") == 4 and "<!--" not in page, "a text is a part of the page")
    require("&lt;script&gt;alert(1)" in page and "&#39;&amp;" in page, "a text is not in the page")
    require(any("<script>alert(1)" in mark["text"] for mark in data_of(page)["marks"]), "a text is not in the data")
    nonce = re.search(r"script-src 'nonce-([0-9a-f]{32})'; style-src 'nonce-\1'", page)
    require(nonce and "default-src 'none'" in page, "the page has no policy")
    require(nonce[1] not in report(system, records), "two pages have the same nonce")


def bounds(system):
    """A long recording keeps its peaks, gaps and times with a bounded number of points, rates and marks."""
    records = [device(at, temperature=50 + at % 3) for at in range(20000)]
    records[7001]["values"] = {"temperature": 99}
    records[12345]["values"] = {"temperature": -7}
    records += [device(30000, temperature=50), *(call(at, "CallAuth", code=5) for at in range(30000, 40000)),
                *(push(40000 + at, eventText=f"level {at}") for at in range(1000))]
    data = data_of(report(system, records))
    values = data["device"]["values"]["temperature"]
    require(2000 < len(values) <= 4200 and (max(v for v in values if v), min(v for v in values if v)) == (99, -7), values)
    require([v for v in values if v is None] == [None] and list(data["device"]["values"]) == ["temperature"], "a gap is lost")
    require(abs(data["device"]["t"][values.index(99)] - 7001) < 20 and data["device"]["t"] == sorted(data["device"]["t"]),
            "the time of a peak is lost")
    rates = data["rates"]
    width = rates["t"][1]
    require(len(rates["t"]) <= 2048 and abs(sum(rates["values"]["callsPerSecond"]) * width - 10000) < 100, "calls are lost")
    faults = [mark["t"] for mark in data["marks"] if mark["kind"] == "fault"]
    require(100 <= len(faults) <= 200 and faults[-1] > 39000, faults)
    require(sum(mark["kind"] == "event" for mark in data["marks"]) == 200, "there are more marks than fit")


def files(system):
    path, page = system.folder / "session.jsonl", system.folder / "page.html"
    report(system, [])
    system.expect(2, "report", path)
    system.expect(1, "report", path, "-o", system.folder / "missing/page.html", error="cannot be written")
    system.expect(0, "report", path, "--compare", path, "-o", page)
    require(page.read_text().count('data-index="') == 2 and page.stat().st_mode & 0o777 == 0o600, "it compares nothing")
    (system.folder / "bad.jsonl").write_text("{}\n")
    system.expect(1, "report", path, "--compare", system.folder / "bad.jsonl", "-o", page, error="bad.jsonl:1: ")
    require("</html>" in page.read_text(), "a bad recording spoils the report that was there")


def main():
    with System(*sys.argv[1:]) as system:
        findings(system)
        hostile_text(system)
        bounds(system)
        files(system)


main()
