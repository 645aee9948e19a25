# SPDX-License-Identifier: Apache-2.0
"""A page in a headless Chromium, with all that it requested and all that it complained about.

    with Browser() as browser:
        browser.open(url)
        ...browser.driver is the WebDriver...
        browser.require_quiet(allowed=url)
        browser.screenshots(folder, "report")
"""
import json
import os
import pathlib
import subprocess
import sys

SKIPPED = 77  # the test's SKIP_RETURN_CODE
WAIT_S = 60   # for what takes seconds at most
WIDTHS = (360, 800, 1280)
HEIGHT = 900
INTERNAL = ("data:", "blob:", "chrome:", "about:")  # requests that leave no process

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    webdriver = None


def require(condition, what):
    if not condition:
        raise AssertionError(what)


def program(*paths):
    return next((path for path in paths if os.access(path, os.X_OK)), None)


CHROMIUM = program("/usr/bin/chromium")
DRIVER = program("/usr/bin/chromedriver")


def may_have_sandbox():
    """Chromium's sandbox is not for root, and needs user namespaces, which a container or a chroot may forbid."""
    return os.geteuid() != 0 and subprocess.run(["unshare", "--user", "true"], check=False,
                                                stderr=subprocess.DEVNULL).returncode == 0


def skip_without_browser():
    """Ends the test as skipped if a part of the browser is missing."""
    missing = [name for name, found in (("chromium", CHROMIUM), ("chromium-driver", DRIVER),
                                        ("python3-selenium", webdriver)) if not found]
    if missing:
        print(f"skipped: {', '.join(missing)} missing; run scripts/setup --browser")
        sys.exit(SKIPPED)


class Browser:
    def __init__(self, is_dark=False):
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for word in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                     "--disable-background-networking", f"--window-size={WIDTHS[-1]},{HEIGHT}",
                     *([] if may_have_sandbox() else ["--no-sandbox"])):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service(DRIVER))
        self.driver.set_page_load_timeout(WAIT_S)
        self.driver.set_script_timeout(WAIT_S)
        self.requests = []  # the URL of each request since the last open
        self.complaints = []  # console messages since the last open
        self.set_dark(is_dark)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def set_dark(self, is_dark):
        features = [{"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}]
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})

    def set_width(self, width):
        """Of the page itself: a window has a least width that is more than that of a phone."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": HEIGHT, "deviceScaleFactor": 1, "mobile": False})

    def open(self, url):
        self.read_logs()
        self.requests, self.complaints = [], []
        self.driver.get(url)

    def run(self, script, *arguments):
        """What the script returns."""
        return self.driver.execute_script(script, *arguments)

    def wait_for(self, script, what):
        """Until the script returns a true value, which is returned."""
        return WebDriverWait(self.driver, WAIT_S, poll_frequency=0.05).until(lambda driver: self.run(script), what)

    def read_logs(self):
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                self.requests.append(message["params"]["request"]["url"])
        self.complaints += [entry["message"] for entry in self.driver.get_log("browser")]

    def require_quiet(self, allowed):
        """No console message, and no request except for URLs that begin with `allowed`."""
        self.read_logs()
        require(not self.complaints, f"the page complains: {self.complaints}")
        others = [url for url in self.requests if not url.startswith((allowed, *INTERNAL))]
        require(not others, f"the page requests {others}")
        require(any(url.startswith(allowed) for url in self.requests), "the requests of the page are not recorded")

    def require_fits(self, width):
        """The page needs no scrolling sideways; only boxes in it may."""
        wide = self.run("return document.documentElement.scrollWidth")
        require(wide <= width, f"the page is {wide} px wide in a window of {width} px")

    def screenshots(self, folder, name):
        """NAME-WIDTH.png of the whole page at each width, light, and one in the dark. The page must fit each time."""
        folder = pathlib.Path(folder)
        folder.mkdir(parents=True, exist_ok=True)
        for width, is_dark in (*((width, False) for width in WIDTHS), (WIDTHS[-1], True)):
            self.set_dark(is_dark)
            self.set_width(width)
            self.wait_for(f"return innerWidth === {width}", "the page does not follow its width")
            # Two frames: the observers of sizes have run, and what they changed is drawn.
            self.driver.execute_async_script(
                "const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(() => done()))")
            self.require_fits(width)
            height = self.run("return document.documentElement.scrollHeight")
            self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
            self.driver.save_screenshot(str(folder / f"{name}-{width}{'-dark' if is_dark else ''}.png"))
        self.set_dark(False)
        self.set_width(WIDTHS[-1])
