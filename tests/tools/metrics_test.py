"""varnokctl metrics on simulated hosts: metrics_test.py SOURCE_DIR BIN_DIR"""

import collections
import json
import os
import re
import resource
import shutil
import stat
import subprocess
import sys

from prometheus_client.openmetrics.parser import text_string_to_metric_families

from tools_support import BIN, FAULT, HELP, LAB, SOURCE, ToolCase, main, on_host

SHARE = SOURCE / "share/varnok"
NASTY = 'a"b\\c\nd\x1b\u202e{}=,\u65e5'
SHOWN = r'a"b\x5Cc\x0Ad\x1B\xE2\x80\xAE{}=,' + "\u65e5"  # as every output shows it
NO_LUNS = {"target-unreadable", "lun-unreadable", "paths-disagree", "list-incomplete", "single-path", "lun-differs", "gone"}


def samples(text):
    """The values by name and labels. The parser is strict about the form, and we are about what stands twice."""
    found, names = {}, set()
    for family in text_string_to_metric_families(text):
        assert family.name not in names, family.name
        names.add(family.name)
        for sample in family.samples:
            key = (sample.name, frozenset(sample.labels.items()))
            assert key not in found, key
            found[key] = sample.value
    return found


class Metrics:
    def __init__(self, scenario, *options):
        self.result = on_host(scenario, "metrics", *options)
        self.status, self.text = self.result.returncode, self.result.stdout
        self.all = samples(self.text)

    def get(self, name, **labels):
        """What the samples of this name have that have these labels."""
        return [(dict(found), value) for (other, found), value in self.all.items()
                if other == "varnok_" + name and labels.items() <= dict(found).items()]

    def value(self, name, **labels):
        found = self.get(name, **labels)
        return found[0][1] if found else None

    def by_rule(self, name):
        return {labels["rule"]: value for labels, value in self.get(name)}


def disk(number, **more):
    return {"designators": [{"naa": f"0x600000000000000{number}"}], **more}


def two_ports(state=0, **fault):
    session = {"luns": [disk(1), disk(2)]}
    ports = [{"driver": "dxo", "mac": f"02:00:00:00:00:0{i}", "port_state": state, "sessions": [session]} for i in (1, 2)]
    return {"ports": ports, "faults": [{**FAULT, **fault}]}


def hostile_host():
    unnamed = {"size": 512, "designators": [], "vendor": NASTY[:6]}
    session = {"tgt_iqn": NASTY, "luns": [disk(1), disk(1), unnamed, unnamed, {"designators": [{"t10": "V" + NASTY}]},
                                          {"serial": NASTY, "designators": [{"scsi_name": NASTY}]}]}
    port = {"driver": "pelt", "hba_name": NASTY, "mac": "02:00:00:00:00:01", "model_name": [255, 254, 34],
            "ipv4addr": "10.0.0.1", "sessions": [session, session, {**session, "tgt_iqn": ""}]}
    return {"ports": [port, port, {**port, "mac": "00:00:00:00:00:00"}, {**port, "mac": "00:00:00:00:00:00"}]}


class MetricsTest(ToolCase):
    def test_the_demo_host(self):
        got = Metrics(LAB)
        self.assertEqual((got.status, got.result.stderr), (0, ""))
        text = re.sub(r'version="[\d.]+"', 'version="VERSION"', got.text)
        self.compare("metrics.prom", re.sub(r"(?m)^(varnok_read_\w+_seconds) \d+\.\d+$", r"\1 0", text))
        self.assertTrue(got.text.endswith("\n# EOF\n"))
        for name, unit in re.findall("# UNIT (.*) (.*)", got.text):
            self.assertTrue(name.endswith("_" + unit))

    def test_nothing_stands_twice(self):
        path = self.scenario(hostile_host())
        got = Metrics(path)  # fails if it does
        self.assertEqual(got.status, 0, got.result.stderr)
        self.assertTrue(got.text.replace("\n", "").isprintable())
        self.assertIn(r'name="a\"b\\x5Cc\\x0Ad\\x1B', got.text)  # the parser takes other escapes, too
        self.assertEqual(sorted(labels.get("port_duplicate", "1") + labels.get("mac", "-") for labels, _ in got.get("port_up")),
                         ["1-", "102:00:00:00:00:01", "2-", "202:00:00:00:00:01"])
        self.assertEqual({labels["name"] for labels, _ in got.get("port_info")}, {SHOWN})
        self.assertEqual({labels["model"] for labels, _ in got.get("port_info")}, {r'\xFF\xFE"'})
        self.assertEqual(collections.Counter(labels.get("target") for labels, _ in got.get("session_up")), {SHOWN: 8, None: 4})
        luns = 4 * 3 * 6
        self.assertEqual([len(got.get(name)) for name in ("lun_info", "lun_readable")], [luns] * 2)
        paths = sum(value for _, value in got.get("device_paths"))
        self.assertEqual(paths, luns)
        # Each LUN that is not identified is a device of its own.
        self.assertEqual(len(got.get("device_capacity_bytes")), len(got.get("device_paths")))
        # Two samples of one thing have the same labels, whatever the metric.
        things = {frozenset((name, value) for name, value in labels.items() if name in ("mac", "port_duplicate"))
                  for labels, _ in got.get("port_info")}
        self.assertEqual(things, {frozenset(labels.items()) for labels, _ in got.get("port_up")})

    def test_what_is_not_known_is_left_out(self):
        got = Metrics(self.scenario({"ports": [{"driver": "dxo", "port_state": 7, "port_speed": 1, "ipv4addr": "0.0.0.0",
                                                "ipv6addr": "::", "sessions": [{"state": 9, "luns": [{"size": 0}]}]}]}))
        self.assertEqual(got.by_rule("health_findings")["lun-unreadable"], 1)
        self.assertEqual(got.value("lun_readable"), 0)
        for name in "port_up", "port_speed_bytes_per_second", "port_address_info", "session_up", "device_capacity_bytes":
            self.assertEqual(got.get(name), [], name)

    def test_rules_that_may_have_missed_something_have_no_number(self):
        every = set(re.findall(r"^  ([a-z-]+) \(", on_host(LAB, "health", "--help").stdout, re.M))
        of_luns = NO_LUNS - {"target-unreadable", "gone"}
        cases = [  # a host, options, what rules found, and which other rules could not judge
            (json.loads(LAB.read_text()), [], {"port-offline": 1, "link-slower-than-twin": 1}, {"gone"}),
            (json.loads(LAB.read_text()), ["--no-luns"], {"port-offline": 1, "link-slower-than-twin": 1}, NO_LUNS),
            (two_ports(status=6), [], {"port-unreadable": 1}, every - {"port-unreadable"}),
            (two_ports(state=1, status=6), [], {"port-unreadable": 1, "port-offline": 1}, every - {"port-unreadable"}),
            (two_ports(request="scsi_cmd", status=6), [], {"target-unreadable": 1}, of_luns | {"gone"}),
            (two_ports(request="scsi_cmd", nth=7, times=1, sense="02/04/01"), [], {"lun-unreadable": 1},
             {"paths-disagree", "single-path", "lun-differs", "gone"}),
            (two_ports(request="sess_info", nth=1, status=6), [], {"target-unreadable": 1},
             {"session-not-logged-in", "single-path", "mtu-differs", "duplicate-initiator-name", "gone"}),
            (two_ports(request="scsi_cmd", status=6), ["--no-luns"], {}, NO_LUNS),
            ({"drivers": ["rovani"]}, [], {}, every),
            ({"host": {"euid": 1}}, [], {}, every),
        ]
        for document, options, found, not_judged in cases:
            with self.subTest(document=str(document)[-99:], options=options):
                got = Metrics(self.scenario(document), *options)
                findings, judged = got.by_rule("health_findings"), got.by_rule("health_rule_judged")
                self.assertEqual({rule for rule, value in judged.items() if value == 0}, not_judged)
                self.assertEqual(set(judged), every)
                self.assertEqual(findings, {**dict.fromkeys(every - not_judged, 0), **found})
                infos = collections.Counter(labels["rule"] for labels, _ in got.get("health_finding_info"))
                self.assertEqual(infos, found)
                failed = sum(value for _, value in got.get("read_failures"))
                self.assertEqual((failed == 0, got.value("read_complete") == 1), (got.status == 0,) * 2)

    def test_without_luns_none_is_asked(self):
        got = Metrics(self.scenario(two_ports(request="scsi_cmd", instance=0, nth=2, status=6)), "--no-luns")
        self.assertEqual(got.status, 0, got.result.stderr)
        self.assertEqual([value for _, value in got.get("target_luns")], [2, 2])
        self.assertNotIn("wwid", got.text)

    def test_a_host_that_was_not_read(self):
        got = Metrics(self.scenario({"host": {"euid": 1000}}))
        self.assertEqual((got.status, got.value("up"), got.value("read_complete"), got.get("ports")), (4, 0, 0, []))
        self.assertEqual(got.value("read_failures", call="VARNOK_LoadLibrary"), 1)
        self.assertIn("that takes root", got.get("unread_info")[0][0]["what"])
        self.assertIn("that takes root", got.result.stderr)
        empty = Metrics(self.scenario({"drivers": ["rovani"]}))
        self.assertEqual((empty.status, empty.value("up"), empty.value("ports")), (0, 1, 0))

    def test_against_a_capture(self):
        capture = self.scenario(on_host(LAB, "capture").stdout)
        self.assertEqual(Metrics(LAB, "--against", capture).by_rule("health_findings")["gone"], 0)
        document = json.loads(LAB.read_text())
        del document["ports"][1]
        got = Metrics(self.scenario(document), "--against", capture)
        self.assertGreater(got.by_rule("health_findings")["gone"], 0)
        bad = Metrics(LAB, "--against", "/nowhere")
        self.assertEqual((bad.status, bad.value("read_failures", call="read")), (3, 1))
        self.assertEqual(bad.by_rule("health_rule_judged")["gone"], 0)
        self.assertIn("/nowhere", bad.get("unread_info")[0][0]["what"])

    def test_usage(self):
        for options, part in [(["--json"], "metrics have one form"), (["--ascii"], "--ascii"), (["--textfile", "x.txt"], ".prom"),
                              (["--against", "x", "--no-luns"], "--no-luns"), (["--port", "0"], "--port")]:
            result = on_host(LAB, "metrics", *options)
            self.assertEqual(result.returncode, 2)
            self.assertIn(part, result.stdout + result.stderr)


class TextfileTest(ToolCase):
    def setUp(self):
        self.dir = self.folder()
        self.file = self.dir / "varnok.prom"

    def write(self, file=None, scenario=LAB, **how):
        environment = {**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0"}
        return subprocess.run([BIN / "varnok-host", "run", scenario, "--", BIN / "varnokctl", "metrics", "--textfile",
                               file or self.file], capture_output=True, text=True, check=False, env=environment, **how)

    def test_the_file_is_whole_and_for_all(self):
        self.file.write_text("old")
        result = self.write(preexec_fn=lambda: os.umask(0o077))
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.assertEqual(stat.S_IMODE(self.file.stat().st_mode), 0o644)
        self.assertEqual(len(samples(self.file.read_text())), len(Metrics(LAB).all))
        self.assertEqual(os.listdir(self.dir), ["varnok.prom"])

    def test_a_failure_is_told_in_the_file(self):
        result = self.write(scenario=self.scenario({"host": {"euid": 1000}}))
        self.assertEqual(result.returncode, 4)
        self.assertIn("\nvarnok_up 0\n", self.file.read_text())

    def test_a_link_is_replaced_and_not_followed(self):
        other = self.dir / "other"
        other.write_text("precious")
        self.file.symlink_to(other)
        self.assertEqual(self.write().returncode, 0)
        self.assertEqual((other.read_text(), self.file.is_symlink()), ("precious", False))

    def test_on_failure_the_old_file_stays(self):
        def small_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 20, 1 << 20))  # more than the file of the library

        large = self.scenario({"ports": [{"driver": "dxo", "sessions": [{"luns": [{"repeat": 2000}]}]}]})
        self.file.write_text("old")
        pipe, folder = self.dir / "pipe.prom", self.dir / "folder.prom"
        os.mkfifo(pipe)
        folder.mkdir()
        before = sorted(os.listdir(self.dir))
        too_large = {"scenario": large, "preexec_fn": small_files, "restore_signals": False}
        for file, how, why in [(self.file, too_large, "EFBIG"), (pipe, {}, "EEXIST"), (folder, {}, "EEXIST"),
                               (self.dir / "no/file.prom", {}, "ENOENT")]:
            with self.subTest(why):
                result = self.write(file, **how)
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertRegex(result.stderr, f"{why}.*{file}: ")
                self.assertEqual(sorted(os.listdir(self.dir)), before)
        self.assertEqual(self.file.read_text(), "old")


class AroundTest(ToolCase):
    """What is built upon the metrics names only what there is."""

    @classmethod
    def setUpClass(cls):
        case = cls("known")
        texts = [on_host(LAB, "metrics").stdout,
                 on_host(case.scenario({"host": {"euid": 1}}), "metrics").stdout]
        case.doCleanups()
        cls.help = dict(re.findall("# HELP (.*?) (.*)", "".join(texts)))

    def known(self):
        return set(self.help)

    def test_rules_and_dashboard(self):
        for name, least in ("varnok-alerts.yml", 5), ("varnok-dashboard.json", 10):
            text = (SHARE / "prometheus" / name).read_text()
            named = set(re.findall(r"\bvarnok_\w+", text))
            self.assertGreaterEqual(len(named), least)
            self.assertLessEqual(named, self.known())
        dashboard = json.loads(text)
        for panel in dashboard["panels"]:
            self.assertTrue(panel.get("targets") or panel["type"] == "row", panel["title"])
        places = [(panel["gridPos"]["x"], panel["gridPos"]["y"]) for panel in dashboard["panels"]]
        self.assertEqual(len(places), len(set(places)))

    def test_the_manual(self):
        manual = " ".join((SOURCE / "man/varnokctl.1").read_text().replace("\\-", "-").split())
        for name, text in self.help.items():
            self.assertIn(f".B {name} {text} ", manual)

    def test_the_ansible_fact(self):
        fact, tools = SHARE / "ansible/varnok.fact", self.folder()
        environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}", "ASAN_OPTIONS": "verify_asan_link_order=0"}
        def run(scenario, **more):
            result = subprocess.run([BIN / "varnok-host", "run", scenario, "--", fact], capture_output=True, text=True,
                                    check=True, env={**environment, **more})
            return json.loads(result.stdout)

        got = run(LAB)
        self.assertEqual((got["read"], got["complete"], got["health"]["status"], len(got["ports"])), (True, True, "critical", 5))
        self.assertEqual(got["ports"][0]["mac"], "02:1e:2b:40:71:80")
        got = run(self.scenario({"host": {"euid": 1000}}))
        self.assertEqual((got["read"], got["complete"], "ports" in got), (False, False, False))
        self.assertIn("that takes root", got["error"])
        (tools / "python3").symlink_to(sys.executable)
        self.assertIn("varnokctl", run(LAB, PATH=str(tools))["error"])

    def test_the_units(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("systemd-analyze is missing")
        units = self.folder()
        for unit in (SHARE / "systemd").iterdir():
            (units / unit.name).write_text(unit.read_text().replace("/usr/bin/varnokctl", str(BIN / "varnokctl")))
        service = units / "varnok-metrics.service"
        def analyze(*arguments):
            return subprocess.run(["systemd-analyze", *arguments], capture_output=True, text=True, check=False)

        verified = analyze("--man=no", "verify", *sorted(units.iterdir()))
        self.assertEqual((verified.returncode, [line for line in verified.stderr.splitlines() if "varnok" in line]), (0, []))
        self.assertEqual(analyze("security", "--offline=yes", "--threshold=20", service).returncode, 0)


if __name__ == "__main__":
    assert "metrics" in HELP
    main()
