"""The page of varnokctl report in a browser: browser_test.py SOURCE_DIR BIN_DIR

VARNOK_PICTURES=FOLDER keeps pictures of the pages there."""

import base64
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from report_test import FAULT, HOSTILE, LAB_CAPTURE, changed, named, on_host, report
from tools_support import LAB, main

# The contrast of each text with what is behind it; WCAG asks for 4.5.
CONTRAST = """
const light = (c) => { const [r, g, b] = c.match(/[\\d.]+/g).map(x => (x /= 255) <= 0.04045 ? x / 12.92 : ((x + 0.055) / 1.055) ** 2.4);
                       return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
const clear = (c) => c === 'rgba(0, 0, 0, 0)';
const behind = (e) => { while (e && clear(getComputedStyle(e).backgroundColor)) e = e.parentElement; return getComputedStyle(e).backgroundColor; };
const own = (e) => [...e.childNodes].some(n => n.nodeType === 3 && n.data.trim() !== '');
const ratio = (a, b) => (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
const box = (e) => getComputedStyle(e.parentElement.querySelector('.box') ?? e).fill;
return [...document.querySelectorAll('body *')].filter(e => own(e) && e.checkVisibility() && !['script', 'title', 'desc'].includes(e.localName))
  .map(e => { const s = getComputedStyle(e), svg = e.localName === 'text', boxed = svg && !e.classList.contains('head');
              return [ratio(light(svg ? s.fill : s.color), light(boxed ? box(e) : behind(e))), e.className.baseVal ?? e.className, e.localName]; })
  .filter(([r]) => !(r >= 4.5)).map(String);
"""


class BrowserTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        (cls.folder / "sick.scenario").write_text(json.dumps({**json.loads(LAB.read_text()), "faults": [
            {**FAULT, "status": 6}, {"driver": "rovani", "request": "scsi_cmd", "instance": 1, "target": 0, "lun": 2, "times": 0, "sense": "02/04/03"}]}))
        cls.write("lab", LAB_CAPTURE)
        cls.write("sick", json.loads(on_host(cls.folder / "sick.scenario", "capture").stdout))
        cls.write("later", changed([(("ports", 0, "mtu"), 1500), (("ports", 1, "sessions"), [])]))
        for number, name in enumerate(HOSTILE):
            moved = [(("ports", n, "mac"), f"02:00:00:00:{number + 1:02}:{n:02}") for n in range(5)]
            cls.write(f"hostile-{number}", named(name, moved))
        cls.page("one", "lab")
        cls.page("several", "lab", "later", *(f"hostile-{n}" for n in range(len(HOSTILE))))
        cls.page("bad", "sick", "nowhere")
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        for argument in ("headless=new", "no-sandbox", "disable-gpu", "hide-scrollbars", "host-resolver-rules=MAP * ~NOTFOUND"):
            options.add_argument("--" + argument)
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.addClassCleanup(cls.browser.quit)

    @classmethod
    def write(cls, name, document):
        (cls.folder / f"{name}.json").write_text(json.dumps(document))

    @classmethod
    def page(cls, name, *captures):
        (cls.folder / f"{name}.html").write_text(report(*(cls.folder / f"{capture}.json" for capture in captures)).stdout)

    def look(self, name, width=1200, height=900, scheme="light", scripts=True):
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": not scripts})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        self.browser.get((self.folder / f"{name}.html").as_uri())

    def find(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def run_js(self, script):
        return self.browser.execute_script(script)

    def search(self, words, level="everything"):
        """What the page counts, and the rows that are left."""
        box = self.find("#words")[0]
        box.clear()
        box.send_keys(words)
        self.find("#level")[0].send_keys(level)
        self.browser.execute_async_script("setTimeout(arguments[0], 200)") # the page waits for the next key
        rows = self.run_js("return [...document.querySelectorAll('.find tbody tr:not(.group)')].filter(e => e.checkVisibility()).map(e => e.className + ' ' + e.textContent)")
        return self.find("#count")[0].text, rows

    def test_nothing_is_fetched_and_names_stay_text(self):
        self.browser.get_log("performance")
        for page in ("one", "several", "bad"):
            self.look(page)
            self.assertEqual(self.browser.get_log("browser"), [])
            self.assertEqual(self.run_js("return document.querySelectorAll('img, script, style, link, iframe, object').length"), 2)
        events = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
        sent = [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]
        self.assertEqual({pathlib.PurePath(url).name for url in sent}, {"one.html", "several.html", "bad.html"})
        self.look("several")
        names = self.run_js("return [...document.querySelectorAll('.find tbody th bdi')].map(e => e.textContent)")
        for name in HOSTILE[:4]:
            self.assertIn(name, names)

    def test_search_and_filter(self):
        self.look("several")
        closed = len(self.find("details:not([open])"))
        self.assertGreater(closed, 5)
        count, rows = self.search("GATEKEEPER")
        self.assertRegex(count, "^1 row on 1 host")
        self.assertRegex("\n".join(rows), "(?s)MOLVAR GATEKEEPER")
        rows = self.search("vmhba66 logged")[1] # a group's heading counts for its rows
        self.assertEqual((len(rows), sum("3602aa2" in row for row in rows)), (4, 3), rows)
        self.assertRegex(self.search("no such name")[0], "^0 rows on 0 hosts, 0 findings")
        self.assertTrue(self.find("#nothing")[0].is_displayed())
        _, rows = self.search("", "critical only")
        self.assertTrue(rows and all(row.startswith("c ") for row in rows), rows[:3])
        self.assertEqual(self.search("", "everything")[0], "")
        self.assertEqual((len(self.find("details:not([open])")), self.find("#nothing")[0].is_displayed()), (closed, False))
        self.assertEqual(self.find("tr[hidden], tbody[hidden], section[hidden], li[hidden]"), [])

    def test_keys_and_names_of_parts(self):
        self.look("several", height=9000)
        press = lambda *keys: webdriver.ActionChains(self.browser).send_keys(*keys).perform()
        press(Keys.TAB)
        self.assertEqual(self.run_js("return document.activeElement.className"), "skip")
        press(Keys.ENTER)
        self.assertEqual(self.run_js("return document.activeElement.id"), "main")
        press("/", "mtu")
        self.assertEqual(self.find("#words")[0].get_property("value"), "mtu")
        nodes = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        names = {}
        for node in nodes:
            names.setdefault(node.get("role", {}).get("value"), []).append(node.get("name", {}).get("value", ""))
        for role in ("banner", "navigation", "search", "main", "searchbox", "combobox", "image", "table", "columnheader", "rowheader"):
            self.assertTrue(role in names, role)
        for role in ("searchbox", "combobox", "image", "navigation", "region"):
            self.assertTrue(all(names[role]), role)
        self.assertTrue(all(any(name.startswith(host) for name in names["heading"]) for host in ("later", "hostile-5")))

    def test_every_screen(self):
        for page in ("one", "several", "bad"):
            for scheme in ("light", "dark"):
                for width in (400, 900, 1600):
                    self.look(page, width, scheme=scheme)
                    self.assertLessEqual(self.run_js("return document.documentElement.scrollWidth"), width)
                    self.assertEqual(self.run_js(CONTRAST), [], (page, scheme))
                    self.keep(f"{page}-{scheme}-{width}")
        self.look("one", 1000, 1000)
        self.keep("report", whole=False)

    def keep(self, name, whole=True):
        folder = os.environ.get("VARNOK_PICTURES")
        if folder is None:
            return
        height = min(self.run_js("return document.documentElement.scrollHeight"), 4000)
        if whole:
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": self.run_js("return innerWidth"), "height": height, "deviceScaleFactor": 1, "mobile": False})
        data = self.browser.execute_cdp_cmd("Page.captureScreenshot", {"format": "png"})["data"]
        pathlib.Path(folder).mkdir(exist_ok=True)
        (pathlib.Path(folder) / f"{name}.png").write_bytes(base64.b64decode(data))

    def test_without_scripts_and_on_paper(self):
        for scripts in (True, False):
            self.look("several", scripts=scripts)
            self.assertEqual(self.find("#search")[0].is_displayed(), scripts)
            fold = self.find("details.devices")[0]
            self.assertFalse(fold.get_property("open"))
            data = self.browser.execute_cdp_cmd("Page.printToPDF", {})["data"]
            paper = subprocess.run(["pdftotext", "-", "-"], input=base64.b64decode(data), capture_output=True, check=True).stdout.decode()
            self.assertIn("GATEKEEPER", paper) # folded on the screen
            self.assertNotIn("Search", paper)
            self.find("details.devices summary")[0].click()
            self.assertTrue(fold.get_property("open"))
        self.look("one")


if __name__ == "__main__":
    main()
