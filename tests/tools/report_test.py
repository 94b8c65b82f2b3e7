"""varnokctl report of simulated hosts and of captures that anybody may have written: report_test.py SOURCE_DIR BIN_DIR"""

import base64
import copy
import hashlib
import html.parser
import json
import os
import pathlib
import re
import subprocess

from diff_test import LAB_CAPTURE, changed, failing, places
from health_test import CASES
from tools_support import BIN, FAULT, LAB, ToolCase, main, on_host

NODE = os.uname().nodename
HOSTILE = ["<img src=x onerror=alert(1)>", "</script><script>alert(1)</script>", "\"'><svg onload=alert(1)>", "--> {{level}} &lt;",
           "\u202egnp.\u2066\u200f\u0007", "x" * 256]
VOID = {"meta", "input", "rect", "path"}


class Page(html.parser.HTMLParser):
    """A page's tags with their attributes, its texts, and its style and script."""

    def __init__(self, page):
        super().__init__()
        self.tags, self.text, self.raw, self.open = [], "", {}, []
        self.feed(page)
        self.close()

    def handle_starttag(self, tag, attrs):
        self.tags.append((tag, dict(attrs)))
        self.open.append(tag)

    def handle_endtag(self, tag):
        self.open.pop()

    def handle_data(self, data):
        if self.open and self.open[-1] in ("style", "script"):
            self.raw[self.open[-1]] = data
        else:
            self.text += data

    def all(self, key):
        return [attrs[key] for _, attrs in self.tags if key in attrs]


def report(*captures, text=None):
    return subprocess.run([BIN / "varnokctl", "report", *captures], capture_output=True, text=True, check=False, input=text)


def named(name, steps=()):
    """The lab's capture with this name wherever a host may name something."""
    texts = {"hba_name": 32, "model_name": 32, "serial_num": 32, "fw_version": 32, "driver_version": 32, "init_iqn": 256,
             "tgt_iqn": 256, "iqn": 256, "vendor": 8, "product": 16, "serial": 255, "t10": 255, "scsi_name": 251}
    return changed([(path, list(name.encode()[:texts[path[-1]]])) for path in places(LAB_CAPTURE) if path[-1] in texts]
                   + list(steps))


class ReportTest(ToolCase):
    def files(self, *documents, names=None):
        folder = self.folder()
        paths = [folder / name for name in names or [f"host-{n}.json" for n in range(len(documents))]]
        for path, document in zip(paths, documents):
            path.write_text(document if isinstance(document, str) else json.dumps(document))
        return paths

    def page(self, *documents, names=None, status=0):
        result = report(*self.files(*documents, names=names))
        self.assertEqual(result.returncode, status, result.stderr)
        return Page(result.stdout)

    def check_form(self, page):
        """It fetches nothing, and its policy, links and labels hold."""
        policy = next(attrs["content"] for _, attrs in page.tags if "http-equiv" in attrs)
        self.assertTrue(policy.startswith("default-src 'none'; "), policy)
        for part in ("style", "script"):
            digest = base64.b64encode(hashlib.sha256(page.raw[part].encode()).digest()).decode()
            self.assertIn(f"{part}-src 'sha256-{digest}'", policy)
        ids = page.all("id")
        self.assertEqual(len(ids), len(set(ids)))
        links = page.all("href")
        self.assertTrue(all(link[0] == "#" and link[1:] in ids for link in links), links)
        self.assertLessEqual(set(" ".join(page.all("aria-labelledby")).split()), set(ids))
        keys = {key for _, attrs in page.tags for key in attrs}
        self.assertFalse([key for key in keys if key.startswith("on") or key in ("src", "style", "srcset", "action")])
        levels = [int(tag[1]) for tag, _ in page.tags if re.fullmatch("h[1-6]", tag)]
        self.assertTrue(all(after <= before + 1 for before, after in zip([0, *levels], levels)), levels)

    def test_a_live_host_and_its_capture_are_one(self):
        hosts = [host for host, _ in CASES]
        hosts += [{"ports": [{"driver": "pelt", "sessions": [{"logged_in": False, "luns": []}, {"repeat": 2}]}] * 2, "faults": [fault]}
                  for fault in ({**FAULT, "driver": "pelt", "request": "tgt_info", "target": 1, "status": 3},
                                {**FAULT, "driver": "pelt", "request": "sess_info", "target": 0, "errno": "EIO"},
                                {**FAULT, "driver": "pelt", "request": "scsi_cmd", "cdb": "0xa0", "nth": 1, "sense": "02/04/01"},
                                {**FAULT, "driver": "pelt", "request": "scsi_cmd", "cdb": "0x1200", "sense": "02/04/01"})]
        for host in hosts:
            scenario = self.scenario(host)
            live, [capture] = on_host(scenario, "report"), self.files(on_host(scenario, "capture").stdout, names=[NODE + ".json"])
            captured = on_host(scenario, "report", str(capture))
            self.assertEqual(live.stdout.partition("<main")[2], captured.stdout.partition("<main")[2], host)
            self.assertEqual(live.returncode, captured.returncode, live.stderr + captured.stderr)

    def test_the_page_of_a_host(self):
        page = self.page(LAB_CAPTURE)
        self.check_form(page)
        health = json.loads(on_host(LAB, "health", "--json").stdout)
        for finding in health["findings"]:
            self.assertIn(finding["what"], page.text)
            self.assertIn(finding["next"], page.text)
        for wwid in re.findall(r"^(\S+)  +disk", on_host(LAB, "paths", width=200).stdout, re.M):
            self.assertIn(wwid, page.text)
        self.assertEqual([tag for tag, _ in page.tags].count("table"), 3)

    def test_names_stay_text(self):
        benign = [tag for tag, _ in self.page(named("plain"), names=["plain.json"]).tags]
        for name in HOSTILE:
            with self.subTest(name=name):
                page = self.page(named(name), names=[name.replace("/", "")[:200] + ".json"])
                self.check_form(page)
                self.assertEqual([tag for tag, _ in page.tags if tag not in VOID], [tag for tag in benign if tag not in VOID])
                self.assertFalse(set(page.text) & set(map(chr, [*range(10), *range(0x202A, 0x202F), *range(0x2066, 0x206A), 0x200F])))
                if name.isprintable():
                    self.assertIn(name, page.text)

    def test_changes(self):
        later = changed([(("ports", 0, "mtu"), 1500), (("ports", 4),)])
        other = changed([(("ports", n, key), value) for n in range(5) for key, value in (("mac", f"02:00:00:00:00:{n:02}"), ("serial_num", "Z"))])
        half = changed([(("ports", n, "mac"), f"02:00:00:00:01:{n:02}") for n in range(3)])
        page = self.page(LAB_CAPTURE, other, later, names=["monday.json", "other.json", "friday.json"])
        self.check_form(page)
        self.assertIn("Changes since monday", page.text)
        self.assertIn("2 changes since monday", page.text)
        self.assertRegex(page.text, r"changedportvmhba64 \(02:1e:2b:40:71:80\)mtu90001500")
        self.assertRegex(page.text, r"friday port vmhba68 \(02:1e:2b:c0:19:36\)") # gone: a finding, too
        self.assertEqual([attrs["id"] for tag, attrs in page.tags if attrs.get("class") == "host"], ["h2", "h3"])
        self.assertIn("Nothing changed.", self.page(LAB_CAPTURE, LAB_CAPTURE).text)
        self.assertNotIn("Changes since", self.page(LAB_CAPTURE, half).text)
        unread = changed([(("ports", 1),), *failing("OpenAdapter", 1, status=2**31 + 7)])
        page = self.page(LAB_CAPTURE, unread, other, status=3)
        self.assertIn("Nothing that was compared changed.", page.text)
        self.assertIn("no changes since host-0; not all was compared", page.text)
        pipes = ["bash", "-c", 'exec "$0" report <(cat "$1") <(cat "$1")', BIN / "varnokctl", *self.files(LAB_CAPTURE)]
        self.assertIn("Nothing changed.", Page(subprocess.run(pipes, check=True, capture_output=True, text=True).stdout).text)

    def test_what_cannot_be_read(self):
        odd = changed([*failing("OpenAdapter", 0), (("failures", 0, "name"), [[]])])
        good, bad, odd, empty = self.files(LAB_CAPTURE, "{", odd, {**LAB_CAPTURE, "ports": [], "complete": False, "failures": [
            {"call": "VARNOK_LoadLibrary", "meaning": "m"}]})
        for captures, status, page in [([bad], 1, False), (["/nowhere/x.json", empty], 1, False), ([good, bad, odd, "/nowhere/x.json"], 3, True),
                                       ([good], 0, True), (["-", "-"], 2, False)]:
            result = report(*captures)
            self.assertEqual((result.returncode, result.stdout != ""), (status, page), result.stderr)
            for capture in captures if status in (1, 3) else []:
                self.assertEqual(str(capture) in result.stderr, capture != good)
                if page and capture != good:
                    self.assertIn(str(capture), Page(result.stdout).text)
        self.assertIn("adapters of standard input", Page(report("-", text=json.dumps(LAB_CAPTURE)).stdout).text)
        lost = report(*self.files(changed(failing("GetLunInfo", 0, 0))))
        self.assertEqual(lost.returncode, 3)
        self.assertIn("1 part could not be read", lost.stderr)
        self.assertIn("VARNOK_GetLunInfo, port 0, target 0", Page(lost.stdout).text)
        nobody = on_host(self.scenario({"ports": [], "drivers": []}), "report")
        self.assertEqual((nobody.returncode, nobody.stdout), (4, ""))

    def test_what_is_not_known_is_no_zero(self):
        ports = {"driver": "pelt", "repeat": 2, "sessions": [{}, {}]}
        fault = {**FAULT, "driver": "pelt", "errno": "EIO"}
        del fault["instance"]
        unlisted = ({**fault, "request": "scsi_cmd", "nth": 1}, {**fault, "request": "tgt_info", "nth": 1}, fault)
        pages = [self.page(on_host(self.scenario({"ports": [ports], "faults": [one]}), "capture").stdout, LAB_CAPTURE, status=3)
                 for one in unlisted]
        for page in pages:
            self.assertNotRegex(page.text, "no (targets|LUNs|devices)")
            self.assertIn("LUNs not readable", page.text)
        self.assertIn("0 of 2, 2 not readable", pages[-1].text)
        sessions = on_host(self.scenario({"ports": [ports], "faults": [{**fault, "request": "sess_info", "target": 1}]}), "report")
        boxes = [attrs["class"] for tag, attrs in Page(sessions.stdout).tags if attrs.get("class", "").startswith("box ")]
        self.assertEqual(boxes.count("box u"), 2, boxes)

    def test_two_of_one_name(self):
        folders = self.folder(), self.folder()
        for folder in folders:
            (folder / "a.json").write_text(json.dumps(LAB_CAPTURE))
        self.assertIn("Changes since a", Page(report(*(folder / "a.json" for folder in folders)).stdout).text)
        self.assertIn("adapters of a (2)", Page(report(*(folder / "a.json" for folder in folders)).stdout).text)

    def test_whatever_a_capture_says(self):
        captures = []
        for path in places(LAB_CAPTURE):
            for value in ((), (0,), (2**64 - 1,), ("",), ("0x",), ("a" * 300,), ([255] * 300,), ([],), (None,), (True,)):
                captures.append(json.dumps(changed([(path, *value)])))
        captures = captures[::7] # each place with some of the values
        result = report(*self.files(*captures))
        self.assertEqual(result.returncode, 3, result.stderr[-500:])
        self.assertGreater(result.stderr.count("no capture") + result.stderr.count(": "), len(captures) // 3)
        self.check_form(Page(result.stdout))


if __name__ == "__main__":
    main()
