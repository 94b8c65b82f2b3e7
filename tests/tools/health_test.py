"""varnokctl health and paths on simulated hosts: health_test.py SOURCE_DIR BIN_DIR"""

import json
import os
import re
import subprocess

from tools_support import BIN, FAULT, LAB, SOURCE, ToolCase, main, on_host

GIB = 2**30
DISK = {"size": GIB, "serial": "1", "designators": [{"naa": "0x6000000000000001"}]}
SESSION = {"tgt_iqn": "iqn.a", "luns": [{"device": "disk"}]}


def host(first=(), second=(), session=(), **more):
    """A device that two ports lead to. The session is the second port's."""
    return {"devices": {"disk": DISK}, "ports": [
        {"driver": "dxo", "sessions": [SESSION], **dict(first)},
        {"driver": "dxo", "sessions": [{**SESSION, **dict(session)}], **dict(second)}], **more}


def fault(**more):
    return {"faults": [{**FAULT, **more}]}


CASES = [  # a host, and what is found: the rule, the ports, and a part of the text
    (host(), []),
    (host(**fault(status=6)), [("port-unreadable", [1], "driver status 6")]),
    (host(second={"port_state": 1}), [("port-offline", [1], "link offline"), ("single-path", [0, 1], "1 of 2 paths works")]),
    (host(second={"port_state": 7}), [("port-offline", [1], "link unknown")]),
    (host({"port_speed": 25000}, {"port_speed": 10000}), [("link-slower-than-twin", [1], "10 Gbit/s; port 0")]),
    (host({"port_speed": 25000, "model_name": "a"}, {"port_speed": 10000}), []),
    (host(second={"sessions": []}), [("port-up-without-sessions", [1], "port 1"), ("single-path", [0], "port 1 leads")]),
    (host(second={"sessions": [], "ipv4addr": "10.9.9.9", "ipv6addr": "::"}), [("port-up-without-sessions", [1], "port 1")]),
    (host(session={"state": 0}), [("session-not-logged-in", [1], "iqn.a: not logged in"), ("single-path", [0, 1], "1 of 2")]),
    (host(**fault(request="scsi_cmd", status=6)), [("target-unreadable", [1], "VARNOK_GetLunInfo, port 1, target 0")]),
    (host(session={"luns": [{"device": "disk"}, {"repeat": 2047, "designators": []}]}), [("list-incomplete", [1], "target 0")]),
    (host(**fault(request="scsi_cmd", nth=6, times=1, sense="02/04/01")), [("lun-unreadable", [1], "does not tell its identity")]),
    (host(session={"luns": [{"device": "disk"}, {"size": 0}]}), [("lun-unreadable", [1], "LUN 1: the disk tells no size"),
                                                                ("single-path", [1], "by port 1; port 0 leads")]),
    (host(session={"luns": [{"device_type": 5, "designators": []}, {"device": "disk"}]}), []),
    (host(session={"luns": []}), [("single-path", [0], "by port 0; port 1 leads there")]),
    (host(session={"luns": [{**DISK, "size": 2 * GIB}]}), [("paths-disagree", [0, 1], f"size: {GIB} B by port 0, {2 * GIB} B")]),
    (host(session={"luns": [{**DISK, "block_size": 4096}]}), [("paths-disagree", [0, 1], "block size: 512 B by port 0, 4096 B")]),
    (host(session={"luns": [{}]}), [("lun-differs", [0], "LUN 0 of iqn.a"), ("lun-differs", [1], "LUN 0 of iqn.a"),
                                    ("single-path", [0], "port 1 leads"), ("single-path", [1], "port 0 leads")]),
    (host({"mtu": 9000}, {"mtu": 1500}), [("mtu-differs", [0, 1], "MTU 9000 on port 0, 1500 on port 1")]),
    (host({"mtu": 9000}, {"mtu": 1500, "sessions": [], "ipv4addr": "10.9.9.9", "ipv6addr": "fe80::1"}),
     [("port-up-without-sessions", [1], "")]),
    (host({"ipv4addr": "10.9.9.9"}, {"ipv4addr": "10.9.9.9"}), [("duplicate-address", [0, 1], "10.9.9.9: ports 0 and 1")]),
    (host(*[{"ipv4addr": "0.0.0.0", "ipv6addr": "::"}] * 2), []),
    (host(*[{"mac": "02:00:00:00:00:01"}] * 2), [("duplicate-mac", [0, 1], "02:00:00:00:00:01: ports 0 and 1")]),
    (host(*[{"iqn": "iqn.b"}] * 2), [("duplicate-initiator-name", [0, 1], "iqn.b: ports 0 and 1")]),
    (host({"fw_version": "2\x1b"}), [("firmware-differs", [0, 1], "2\\x1B on port 0")]),
    (host({"driver_version": "2"}), [("firmware-differs", [0, 1], "driver version")]),
    (json.loads(LAB.read_text()), [("port-offline", [4], "vmhba68"), ("link-slower-than-twin", [3], "10 Gbit/s; port 2")]),
]


class HealthTest(ToolCase):
    def health(self, scenario, *options):
        result = on_host(scenario, "health", "--json", *options)
        self.assertEqual(result.stderr, "")
        return result.returncode, json.loads(result.stdout)

    def test_findings(self):
        fired = set()
        for document, expected in CASES:
            with self.subTest(expected):
                path = self.scenario(document)
                status, got = self.health(path)
                found = [(entry["rule"], entry["ports"], entry["what"]) for entry in got["findings"]]
                self.assertEqual(sorted(entry[:2] for entry in found), sorted(entry[:2] for entry in expected), found)
                for rule, ports, part in expected:
                    self.assertTrue([what for r, p, what in found if (r, p) == (rule, ports) and part in what], found)
                severities = {entry["severity"] for entry in got["findings"]}
                self.assertEqual(status, 2 if "critical" in severities else len(severities))
                fired |= {rule for rule, _, _ in found}
                text = on_host(path, "health")
                self.assertEqual(text.returncode, status)
                summary = text.stdout.splitlines()[0]
                self.assertEqual(summary, got["status"].upper() + ": " + got["summary"])
                for rule, _, what in found:
                    self.assertIn(f": {rule}; next: ", text.stdout)
                    self.assertIn("".join(what.split()), "".join(text.stdout.split()))
        self.assertEqual(fired | {"gone"}, set(got["rules"]))

    def test_what_was_there_is_gone(self):
        capture = self.scenario(on_host(self.scenario(host()), "capture").stdout)
        self.assertEqual(self.health(self.scenario(host()), "--against", capture)[0], 0)
        only = ["--only", "gone", "--against", capture]
        for document, gone in [(host(session={"luns": []}), ["path"]), (host({"sessions": []}, {"sessions": []}), None)]:
            status, got = self.health(self.scenario(document), *only)
            self.assertEqual(status, 2)
            kinds = [entry["what"].split()[0] for entry in got["findings"]]
            self.assertEqual(kinds, gone or ["target", "target", "device"])
        # What the capture lacks, or what could not be read now, is not gone.
        part = self.scenario(on_host(self.scenario(host(**fault(status=6))), "capture").stdout)
        status, got = self.health(self.scenario(host()), "--only", "gone", "--against", part)
        self.assertEqual((status, got["findings"], got["not_compared"] != []), (0, [], True))
        status, got = self.health(self.scenario(host(**fault(status=6))), *only)
        self.assertEqual((status, got["findings"]), (3, []))
        for bad in "/nowhere", LAB.parent, self.scenario("{}"):
            self.assertEqual(self.health(LAB, "--against", str(bad), "--ignore", "port-offline")[0], 3)

    def test_options_and_statuses(self):
        unreadable = self.scenario(host(**fault(status=6)))
        cases = [
            (0, LAB, ["--ignore", "port-offline", "--ignore", "link-slower-than-twin"], "OK: 5 ports, 13 LUNs\n"),
            (1, LAB, ["--only", "link-slower-than-twin"], "WARNING: 1 warning; 5 ports, 13 LUNs\n"),
            (0, LAB, ["--port", "0"], "OK: 1 port, 5 LUNs\n"),
            (2, unreadable, [], "CRITICAL: 1 critical; 2 ports, 1 LUN\n"),
            (0, unreadable, ["--ignore", "port-unreadable"], "OK: 2 ports, 1 LUN\n"),
            (3, unreadable, ["--only", "mtu-differs"], "UNKNOWN: driver status 6; 2 ports, 1 LUN\nunknown: VARNOK_GetPhyPortInfo"),
            (3, LAB, ["--port", "9"], "UNKNOWN: there is no such port; no ports"),
            (3, self.scenario({"drivers": ["rovani"]}), [], "UNKNOWN: no adapters found; no ports"),
            (3, self.scenario({"host": {"euid": 1}}), [], "UNKNOWN: not loaded"),
            (3, LAB, ["--ignore", "offline"], "there is no rule 'offline'; the rules are port-unreadable, "),
            (3, LAB, ["--only", "\x1b"], "there is no rule '\\x1B'; the rules are port-unreadable, "),
            (3, LAB, ["--only", "gone"], "gone requires --against"),
            (3, LAB, ["--against", "x", "--port", "0"], "--port"),
            (3, LAB, ["ports"], "ports"),
        ]
        for status, path, options, begin in cases:
            result = on_host(path, "health", *options)
            self.assertEqual(result.returncode, status, options)
            self.assertIn(begin, result.stdout + result.stderr)
        full = f"'{BIN}/varnok-host' run '{LAB}' -- '{BIN}/varnokctl' health --only mtu-differs >/dev/full"
        environment = {**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0"}
        self.assertEqual(subprocess.run(full, shell=True, capture_output=True, check=False, env=environment).returncode, 3)

    def test_the_manual_has_the_rules(self):
        text = on_host(LAB, "health", "--help").stdout
        rules = re.findall(r"^  ([a-z-]+) \((\w+)\):\n    (.*)\n    next: (.*)\n", text, re.M)
        self.assertEqual([rule[0] for rule in rules], self.health(LAB)[1]["rules"])
        manual = (SOURCE / "man/varnokctl.1").read_text().replace("\\-", "-")
        entries = re.findall(r'^\.TP\n\.BR ([a-z-]+) " \((warning|critical)\)"\n(.*?)(?=^\.)', manual, re.M | re.S)
        self.assertEqual([(name, level, " ".join(body.split())) for name, level, body in entries],
                         [(name, level, f"{what[0].upper()}{what[1:]}. Next: {next}.") for name, level, what, next in rules])
        for status, words in re.findall(r"^  (\d)  (.+)", text, re.M):
            self.assertIn(f"\n{status}\tT{{\n{words}\nT}}", manual)


class PathsTest(ToolCase):
    def test_outputs(self):
        for width in 40, 80, 200:
            result = on_host(LAB, "paths", width=width)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertLessEqual(max(map(len, result.stdout.splitlines())), width)
            self.compare(f"paths_{width}.txt", result.stdout)

    def test_what_is_wrong_stands_with_the_device(self):
        text = ""
        name = "a\x1b[2J\u202e"
        two = {"tgt_iqn": name, "luns": [{**DISK, "size": 2 * GIB, "block_size": 4096, "vendor": name}, {"lun": 9, "designators": []}]}
        for document in (host(session=two), host(second={"port_state": 1}), host(session={"luns": [{}]}), {"drivers": ["rovani"]},
                         {"ports": [{"driver": "dxo"}]}, host(**fault(status=6)), {"host": {"euid": 1}}):
            result = on_host(self.scenario(document), "paths")
            self.assertTrue(result.stdout.replace("\n", "").isprintable())
            text += f"{result.stdout}-- {result.returncode}\n{result.stderr}\n"
        self.compare("paths_notes.txt", text)


if __name__ == "__main__":
    main()
