# SPDX-License-Identifier: Apache-2.0
"""Makes docs/serve.png: the live page in the middle of a heat wave, with a game, as a window of 1280x860 shows it.

Usage: picture.py PROGRAMS SOURCE, with the environment of the test serve_live
"""
import pathlib
import sys

from server import Game, Server
from browser.browser import Browser
from tool.harness import System

SIZE = (1280, 860)
UNTIL_S = 48  # of the scenario


def main():
    programs, source = sys.argv[1:]
    with System(programs, source) as system, Browser() as browser:
        system.write_ability()
        system.start_manager()
        for words in (["load", "heat-wave", "--start"], ["speed", "2"]):
            system.expect(0, "simulate", *words)
        with Server(system, programs) as server, Game(system, "com.example.racer"):
            browser.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": SIZE[0], "height": SIZE[1], "deviceScaleFactor": 1, "mobile": False})
            browser.open(server.address)
            browser.wait_for(f"return Number((/at (\\d+) s/.exec(document.body.textContent) || [])[1]) >= {UNTIL_S}",
                             "the wave is not shown")
            browser.driver.save_screenshot(str(pathlib.Path(source, "docs/serve.png")))


main()
