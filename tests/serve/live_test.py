# SPDX-License-Identifier: Apache-2.0
"""The live page in a real browser: it shows what happens, changes what games receive, survives the end of the service and
of its server, and loads nothing from elsewhere.

Usage: live_test.py PROGRAMS SOURCE
"""
import json
import os
import pathlib
import signal
import sys

from server import Game, Server
from browser.browser import Browser, skip_without_browser
from tool.harness import WAIT_S, System, require

HOSTILE = "<script>document.title='x'</script><img src=x onerror=\"document.title='x'\">"


def status_of(system):
    return system.json("status")["simulation"]


def press(browser, selector, *keys):
    """As a user without a mouse does."""
    element = browser.driver.find_element("css selector", selector)
    browser.run("arguments[0].focus()", element)
    for key in keys:
        element.send_keys(key)


def value_of(key):
    return f"return document.querySelector('#value-{key} ~ output').textContent"


def shows_what_runs(browser, server):
    browser.open(server.address)
    browser.wait_for("return document.getElementById('status').textContent.includes('runs')", "no state")
    require("token" not in browser.driver.current_url, "the token stays in the address")
    browser.wait_for("return document.querySelectorAll('#curves canvas').length > 0", "no curve is drawn")


def hostile_game(browser, system):
    with Game(system, HOSTILE):
        browser.wait_for(f"return document.getElementById('games').textContent.includes({json.dumps(HOSTILE)})",
                         "the name of the game is not shown as it is")
        require(browser.run("return document.querySelectorAll('#games script, #games img').length") == 0, "markup of a game")
        require(browser.driver.title == "Veltra", "a script of a game has run")


def slider(browser, system):
    """Arrow keys move a slider, and the game gets the values; × gives the real one back."""
    with Game(system, "com.example.racer") as game:
        press(browser, "#value-tempLevel", "\ue010", "\ue012")  # End, then left: one below the most
        while (event := game.next())["temp_level"] != 4:
            pass
        require(event["temp_level"] == 4, event)
        browser.wait_for(value_of("tempLevel").replace("textContent", "textContent === '4'"), "the page shows another value")
        browser.wait_for("return !document.getElementById('simulated').hidden", "no notice of the simulation")
        press(browser, "#value-tempLevel ~ button", " ")
        browser.wait_for("return document.getElementById('simulated').hidden", "the value is not released")
    require(status_of(system) == {"active": False}, status_of(system))


def simulator(browser, system):
    click = "document.getElementById('{}').click()".format
    browser.run("document.getElementById('scenario').value = 'heat-wave'")
    browser.run(click("load"))
    browser.wait_for("return document.getElementById('simulatedText').textContent.includes('heat-wave')", "no scenario")
    browser.wait_for("return !document.getElementById('pause').disabled", "it cannot be paused")
    browser.run(click("pause"))
    browser.wait_for("return document.getElementById('pause').textContent === 'Resume'", "it is not paused")
    browser.run("document.getElementById('seek').value = '40'")
    browser.run(click("go"))
    browser.wait_for(value_of("tempLevel").replace("textContent", "textContent === '4'"), "the wave is not shown")
    browser.run("document.getElementById('fault').value = 'refuse'")
    browser.run("document.getElementById('operation').value = 'CallAuth'")
    browser.run(click("trigger"))
    browser.wait_for("return document.getElementById('simulatedText').textContent.includes('refuse')", "no fault")
    system.expect(5, "call", "CallAuth", output="SERVICE_NOT_SUPPORTED")
    browser.wait_for("return [...document.querySelectorAll('#calls tr')].some(row => row.cells[0].textContent === 'CallAuth'"
                     " && Number(row.cells[3].textContent) >= 1)", "the refused call is not shown")


def end_of_service(browser, system):
    os.kill(system.service_pid(), signal.SIGKILL)
    browser.wait_for("return document.getElementById('status').className === 'bad'", "the end is not shown")
    system.expect(0, "call", "CallAuth")
    browser.wait_for("return document.getElementById('status').className === 'good'", "the page does not go on")


def real_machine(browser, system):
    press(browser, "#real", "\n")
    browser.wait_for("return document.getElementById('simulated').hidden", "still simulated")
    require(status_of(system) == {"active": False}, status_of(system))


def end_of_server(browser, system, port):
    """A new server has another token, so that an old page shows, and cannot write."""
    browser.wait_for("return document.getElementById('status').textContent.includes('lost')", "the end is not shown")
    with Server(system, port=port):
        browser.wait_for("return document.getElementById('status').className === 'good'", "the page does not go on")
        press(browser, "#value-tempLevel", "\ue010")
        browser.wait_for("return document.getElementById('notice').textContent.includes('token')", "no notice")
        require(status_of(system) == {"active": False}, "an old token is accepted")


def main():
    skip_without_browser()
    with System(*sys.argv[1:]) as system, Browser() as browser:
        system.write_ability()
        system.start_manager()
        system.expect(0, "call", "CallAuth")
        with Server(system) as server:
            shows_what_runs(browser, server)
            hostile_game(browser, system)
            slider(browser, system)
            simulator(browser, system)
            browser.screenshots(pathlib.Path(os.environ["VELTRA_SCREENSHOTS"]), "serve")
            real_machine(browser, system)
            end_of_service(browser, system)
            browser.require_quiet(f"http://{server.host}/")
        end_of_server(browser, system, server.port)


main()
