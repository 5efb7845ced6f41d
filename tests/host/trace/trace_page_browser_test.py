#!/usr/bin/env python3
"""Opens a trace's page in headless Chromium, as a person would, and looks at what it shows.

trace_page_browser_test.py SAMPLE [SCREENSHOTS]: SAMPLE is the program that writes the page; the screenshots
are kept in the folder that is named second. Exits with 77, which ctest takes for skipped, where there
is no Chromium.
"""

import base64
import contextlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.error
import urllib.request

SAMPLE = None
SCREENSHOTS = None

CHROMIUM_FLAGS = [
    "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync",
    "--disable-dev-shm-usage", "--hide-scrollbars",
]
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of an element, by the WebDriver standard


class Browser:
    """One Chromium, spoken to in the WebDriver protocol."""

    def __init__(self, folder):
        # Chromium does not start without a home directory that it can write to.
        self._driver = subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
            env={**os.environ, "HOME": folder})
        self._session = None
        try:
            self._url = f"http://127.0.0.1:{self._port()}"
            options = {"args": CHROMIUM_FLAGS + [f"--user-data-dir={folder}/profile"],
                       "binary": shutil.which("chromium")}
            wanted = {"browserName": "chrome", "goog:chromeOptions": options,
                      "goog:loggingPrefs": {"browser": "ALL"}}
            answer = self._call("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
            self._session = f"/session/{answer['sessionId']}"
        except BaseException:
            self.close()
            raise

    def _port(self):
        for line in self._driver.stdout:
            if found := re.search(r"started successfully on port (\d+)", line):
                return int(found.group(1))
        raise RuntimeError("chromedriver ended before it named its port")

    def _call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self._url + path, data=data, method=method,
                                         headers={"Content-Type": "application/json"})
        # Proxies of the environment are not for the machine itself.
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=180) as response:
                return json.load(response)["value"]
        except urllib.error.HTTPError as refusal:
            raise RuntimeError(json.load(refusal)["value"]["message"]) from None

    def close(self):
        if self._session:
            with contextlib.suppress(OSError):
                self._call("DELETE", self._session)
        self._driver.terminate()
        self._driver.wait()
        self._driver.stdout.close()

    def open(self, url):
        self._call("POST", f"{self._session}/url", {"url": url})

    def run(self, script, *arguments):
        """The value of a script. The page's policy binds the page, not the driver."""
        return self._call("POST", f"{self._session}/execute/sync",
                          {"script": script, "args": list(arguments)})

    def element(self, selector):
        return self._call("POST", f"{self._session}/element",
                          {"using": "css selector", "value": selector})[ELEMENT]

    def click(self, selector):
        self._call("POST", f"{self._session}/element/{self.element(selector)}/click", {})

    def press(self, selector, keys):
        self._call("POST", f"{self._session}/element/{self.element(selector)}/value", {"text": keys})

    def text(self, selector):
        """The text as it is seen; empty for what is hidden."""
        return self._call("GET", f"{self._session}/element/{self.element(selector)}/text")

    def emulate(self, width, scheme, height=900):
        for command, parameters in [
                ("Emulation.setDeviceMetricsOverride",
                 {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}),
                ("Emulation.setEmulatedMedia",
                 {"features": [{"name": "prefers-color-scheme", "value": scheme}]})]:
            self._devtools(command, parameters)

    def screenshot(self, path):
        image = self._devtools("Page.captureScreenshot", {})["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(image))

    def _devtools(self, command, parameters):
        return self._call("POST", f"{self._session}/goog/cdp/execute",
                          {"cmd": command, "params": parameters})

    def console(self):
        return self._call("POST", f"{self._session}/se/log", {"type": "browser"})


class TracePage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="trace-page-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.browser = Browser(cls.folder)
        cls.addClassCleanup(cls.browser.close)

    def open_page(self, packets=0):
        subprocess.run([SAMPLE, self.folder, str(packets)], check=True)
        self.browser.emulate(1100, "light")
        self.browser.open(f"file://{self.folder}/run.html")

    def count(self, selector):
        return self.browser.run("return document.querySelectorAll(arguments[0]).length", selector)

    def visible(self, selector):
        return self.browser.run(
            "return [...document.querySelectorAll(arguments[0])]"
            ".filter(element => element.checkVisibility()).length", selector)

    def test_shows_every_packet_as_an_arrow_from_its_sender(self):
        self.open_page()
        self.assertEqual(self.count(".packet"), 16)
        self.assertEqual(self.count(".packet.from-plugin .arrow"), 10)
        self.assertEqual(self.count(".packet.from-framework .arrow"), 6)
        self.assertEqual(self.count(".step"), 3)

    def test_times_each_answer(self):
        self.open_page()
        self.assertEqual(self.browser.text("#p3 .took"), "after 412 µs")

    def test_shows_log_lines_where_they_happened(self):
        self.open_page()
        self.assertEqual(
            self.browser.text("#p5 + .log .note"), "stdout taking a snapshot of 2000 notes")

    def test_opens_a_packet_by_mouse(self):
        self.open_page()
        self.assertEqual(self.browser.text("#p3 pre"), "")
        self.browser.click("#p3 summary")
        self.assertEqual(json.loads(self.browser.text("#p3 pre")),
                         {"export_config": {"attachments": True, "folders": ["Inbox", "Größe ☃"]},
                          "success": True})

    def test_opens_a_packet_by_keyboard(self):
        self.open_page()
        self.browser.press("#p1 summary", "\ue007")  # Enter
        self.assertEqual(json.loads(self.browser.text("#p1 pre")), {"success": True})

    def test_marks_invalid_packets_with_their_rule_book_lines(self):
        self.open_page()
        self.assertEqual(
            self.browser.run("return [...document.querySelectorAll('.invalid')].map(e => e.id)"),
            ["p14", "p15", "p16"])
        self.assertEqual(self.browser.text("#p14 .rule-book li"),
                         "protocol_util.cpp:196 invalid app_data_version format [1]")
        red, link = self.browser.run(
            "return ['#p14 .name', '.invalid-list a'].map("
            "s => getComputedStyle(document.querySelector(s)).color)")
        self.assertEqual(red, "rgb(179, 38, 30)")
        self.assertEqual(link, red)

    def test_narrows_down_to_what_is_asked_for(self):
        self.open_page()
        self.browser.click("#show-packets")
        self.assertEqual([self.visible(".packet"), self.visible(".log")], [16, 0])
        self.browser.click("#show-invalid")
        self.assertEqual([self.visible(".packet"), self.visible(".log")], [3, 0])
        self.browser.click("#show-all")
        self.assertEqual([self.visible(".packet"), self.visible(".log")], [16, 4])

    def test_runs_nothing_of_a_hostile_trace(self):
        self.open_page()
        self.browser.click("#p12 summary")
        self.assertEqual(self.browser.run("return document.title"),
                         "Trace of 2026-01-01 10:04:05 UTC")
        self.assertEqual(self.count("script, img, iframe, object, link"), 0)
        self.assertEqual(
            json.loads(self.browser.text("#p12 pre"))["path"],
            "/</script><script>document.title='ran'</script></pre>"
            "<img src=x onerror=document.title='ran'>")

    def test_forbids_scripts_and_fetches_even_to_itself(self):
        self.open_page()
        self.browser.run(
            "const script = document.createElement('script');"
            "script.textContent = \"document.title = 'ran'\"; document.body.append(script);"
            "const image = document.createElement('img'); image.src = 'x.png';"
            "document.body.append(image);")
        self.assertEqual(self.browser.run("return document.title"),
                         "Trace of 2026-01-01 10:04:05 UTC")
        self.assertIn("Content Security Policy", json.dumps(self.browser.console()))

    def test_loads_without_a_complaint(self):
        self.open_page()
        self.browser.console()
        self.browser.open(f"file://{self.folder}/run.html")
        self.assertEqual(self.browser.console(), [])
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').length"), 0)

    def test_fits_narrow_and_wide_windows_in_both_colour_schemes(self):
        self.open_page()
        backgrounds = set()
        for scheme in ["light", "dark"]:
            for width in [360, 800, 1280]:
                self.browser.emulate(width, scheme)
                self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), width)
                if SCREENSHOTS:
                    self.browser.emulate(width, scheme, 2600)
                    self.browser.screenshot(f"{SCREENSHOTS}/trace-page-{scheme}-{width}.png")
            backgrounds.add(self.browser.run("return getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(backgrounds), 2)

    def test_opens_ten_thousand_packets(self):
        self.open_page(10000)
        self.assertEqual(self.count(".packet"), 10016)
        self.browser.click("#p10000 summary")
        self.assertIn("/srv/notes/attachments/", self.browser.text("#p10000 pre"))


def main():
    global SAMPLE, SCREENSHOTS
    SAMPLE = sys.argv[1]
    SCREENSHOTS = sys.argv[2] if len(sys.argv) > 2 else None
    for program in ["chromium", "chromedriver"]:
        if not shutil.which(program):
            print(f"skipped: there is no {program}; script/bootstrap browser installs it")
            return 77
    if SCREENSHOTS:
        os.makedirs(SCREENSHOTS, exist_ok=True)
    program = unittest.main(argv=sys.argv[:1], exit=False, verbosity=2)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
