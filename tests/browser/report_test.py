# SPDX-License-Identifier: Apache-2.0
"""The page of `veltra report` in a browser.

Usage: report_test.py PROGRAMS SOURCE SCREENSHOTS
"""
import json
import sys
import time

import browser
from browser import Browser, require
from harness import System
from heat_wave import record_heat_wave

SPEED = 5
EVIL = "</script><script>document.title = 'taken'</script><img src=x onerror=\"document.title = 'taken'\">"
MANY = 100000
OPENED_S = 3  # within this a report of so many records is drawn


def write_recording(path, records):
    lines = [{"schema": 1, "type": "header", "machine": EVIL}, *records]
    path.write_text("".join(json.dumps(each) + "\n" for each in lines))


def long_recording(count):
    for i in range(count):
        if i % 4 == 0:
            yield {"type": "device", "t": 1000 + i / 20, "values": {"tempLevel": i // 1000 % 6, "temperature": 40 + i % 50,
                                                                "gpuLoadPercent": i % 100}}
        else:
            yield {"type": "call", "t": 1000 + i / 20, "pid": 100 + i % 40, "op": "GetDeviceInfo", "code": int(i % 500 == 1),
                   "us": i % 1000, "args": {}}


def open_report(page, *reports):
    """The page of the recordings, drawn and quiet."""
    system, tab = page
    output = system.folder / "report.html"
    system.expect(0, "report", reports[0], *(word for each in reports[1:] for word in ("--compare", each)), "-o", output)
    begin = time.monotonic()
    tab.open(output.as_uri())
    tab.wait_for("return document.querySelector('.curve canvas') !== null", "no curve is drawn")
    took = time.monotonic() - begin
    tab.require_quiet(output.as_uri())
    return took


def press(tab, element, *keys):
    for key in keys:
        element.send_keys(key)
    return tab.run("return new Promise(done => requestAnimationFrame(() => done()))")


def heat_wave(page, recording, screenshots):
    system, tab = page
    record_heat_wave(system, recording, SPEED)
    open_report(page, recording)
    shown = tab.run("return document.querySelector('.findings').innerText")
    for words in ("Level 3 reached at 00:", "the quality of com.example.adaptive ", "While hot, the GPU slowed down"):
        require(words in shown, f"expected: {words}\n{shown}")
    titles = tab.run("return [...document.querySelectorAll('.curve figcaption')].map(each => each.textContent)")
    require({"Temperature (°C)", "Levels", "Load (%)", "Frequency (MHz)", "Calls (1/s)"} <= set(titles), titles)
    tab.screenshots(screenshots, "report")


def keyboard(page):
    """Each chart can be reached; arrows move one cursor over all of them, plus zooms, and a legend entry hides its curve."""
    _, tab = page
    keys = browser.Keys
    chart, other = tab.run("return [...document.querySelectorAll('.curve-drawing')].slice(0, 2)")
    legend = "return [...document.querySelectorAll('.curve')].slice(0, 2).map(each => each.querySelector('.u-value').textContent)"
    press(tab, chart, keys.HOME)
    first = tab.run(legend)
    press(tab, chart, keys.ARROW_RIGHT, keys.ARROW_RIGHT, keys.ARROW_RIGHT)
    moved = tab.run(legend)
    require(first == ["00:00"] * 2 and moved[0] == moved[1] > first[0], f"the cursor moves from {first} to {moved}")
    axis = "return [...document.querySelectorAll('.curve canvas')].slice(1).map(each => each.toDataURL())"
    whole = tab.run(axis)
    press(tab, chart, "+")
    zoomed = tab.run(axis)
    press(tab, chart, keys.ESCAPE)
    require(all(one != other for one, other in zip(whole, zoomed)), "plus does not zoom all curves")
    require(tab.run(axis) == whole, "Escape does not show everything")
    entry = tab.run("return arguments[0].querySelector('th[role=button]')", other)
    press(tab, entry, keys.ENTER)
    require(entry.get_attribute("aria-pressed") == "false" and tab.run(axis) != whole, "a curve cannot be hidden")


def hostile(page, recording):
    system, tab = page
    records = [{"type": "call", "t": 1000, "pid": 7, "op": "UpdateGameInfo", "code": 0, "us": 1, "args": {"text": EVIL}},
               {"type": "push", "t": 1001, "pid": 7, "what": EVIL, "status": 1, "us": 1, "data": {"eventText": EVIL}},
               {"type": "device", "t": 1002, "values": {"temperature": 60}}]
    path = system.folder / "<b>.jsonl"
    write_recording(path, records)
    open_report(page, path, recording)
    require(tab.driver.title == "Report of <b>.jsonl and wave.jsonl", tab.driver.title)
    require(tab.run("return document.querySelectorAll('img, b').length") == 0, "a text is a part of the page")
    require(EVIL in tab.run("return document.querySelector('main').textContent"), "a text is not shown")
    tab.require_fits(browser.WIDTHS[-1])


def large(page):
    system, tab = page
    path = system.folder / "large.jsonl"
    write_recording(path, long_recording(MANY))
    took = open_report(page, path)
    print(f"a report of {MANY} records opens in {took:.2f} s")
    require(took < OPENED_S, f"a report of {MANY} records opens in {took:.2f} s")
    tab.require_fits(browser.WIDTHS[-1])


def main():
    browser.skip_without_browser()
    programs, source, screenshots = sys.argv[1:]
    with System(programs, source) as system, Browser() as tab:
        system.write_ability()
        system.start_manager()
        page = (system, tab)
        recording = system.folder / "wave.jsonl"
        heat_wave(page, recording, screenshots)
        keyboard(page)
        hostile(page, recording)
        large(page)


main()
