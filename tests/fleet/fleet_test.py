"""Three simulated hosts, scraped by Prometheus through node exporters: fleet_test.py SOURCE_DIR BIN_DIR

Everything listens on loopback, and is ended by its process number."""

import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import textwrap
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

SOURCE, BIN = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
LAB = SOURCE / "examples/lab.json"
RULES = SOURCE / "share/varnok/prometheus/varnok-alerts.yml"
HOSTS = ("esx-1", "esx-2", "esx-3")
LIMIT = 60  # seconds for anything to come true


def run(*command, **more):
    return subprocess.run(command, capture_output=True, text=True, check=False, **more)


def free_port():
    with socket.socket() as server:
        server.bind(("127.0.0.1", 0))
        return server.getsockname()[1]


def fetch(port, path, **query):
    with urllib.request.urlopen(f"http://127.0.0.1:{port}{path}?{urllib.parse.urlencode(query)}", timeout=5) as answer:
        return answer.read().decode()


def host(name, *port_states):
    """A host of the demo's adapters with a name of its own. The ports' states replace the demo's."""
    document = json.loads(LAB.read_text())
    ports = document["ports"] = document["ports"][:4]
    ports[3].update(hba_name='a"b\\c\n\x1b\u202e{}', model_name=[255, 34, 92])
    for number, port in enumerate(ports):
        port["mac"] = port["mac"][:-2] + f"{16 * int(name[-1]) + number:02x}"
        port["port_speed"] = 10000  # else one is slower than its twin
        port["port_state"] = port_states[number] if port_states else 0
    return document


def blocks(*words):
    """The blocks of code in the page that have one of the words."""
    found = re.findall(r"(?m)(?:^    .*\n|^\n(?=    ))+", (SOURCE / "docs/many-hosts.md").read_text())
    return [textwrap.dedent(block) for block in found if any(word in block for word in words)]


class Fleet(unittest.TestCase):
    """A node exporter for each host, and one Prometheus."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.programs = []
        cls.addClassCleanup(cls.end_all)
        cls.exporters = {name: free_port() for name in HOSTS}
        for name, port in cls.exporters.items():
            (cls.folder / name).mkdir()
            cls.start(name, "prometheus-node-exporter", "--collector.disable-defaults", "--collector.textfile",
                      f"--collector.textfile.directory={cls.folder / name}", f"--web.listen-address=127.0.0.1:{port}")
        # The shipped rules; only what they wait is shorter.
        (cls.folder / "rules.yml").write_text(re.sub(r"for: \d+m", "for: 2s", RULES.read_text()))
        (cls.folder / "prometheus.yml").write_text(json.dumps({
            "global": {"scrape_interval": "1s", "evaluation_interval": "1s"}, "rule_files": ["rules.yml"],
            "scrape_configs": [{"job_name": "node", "static_configs": [
                {"targets": [f"127.0.0.1:{port}"], "labels": {"instance": name}} for name, port in cls.exporters.items()]}]}))
        cls.port = free_port()
        cls.start("prometheus", "prometheus", f"--config.file={cls.folder / 'prometheus.yml'}",
                  f"--storage.tsdb.path={cls.folder / 'data'}", f"--web.listen-address=127.0.0.1:{cls.port}")

    @classmethod
    def start(cls, name, *command):
        with (cls.folder / f"{name}.log").open("w") as log:
            cls.programs.append(subprocess.Popen(command, stdout=log, stderr=log))

    @classmethod
    def end_all(cls):
        for program in cls.programs:
            program.terminate()
        for program in cls.programs:
            try:
                program.wait(10)
            except subprocess.TimeoutExpired:
                program.kill()
                program.wait()

    def write(self, name, document):
        scenario = self.folder / f"{name}.json"
        scenario.write_text(json.dumps(document))
        return run(BIN / "varnok-host", "run", scenario, "--", BIN / "varnokctl", "metrics", "--textfile",
                   self.folder / name / "varnok.prom")

    def query(self, expression):
        """Values by host."""
        answer = json.loads(fetch(self.port, "/api/v1/query", query=expression))
        return {sample["metric"].get("instance"): float(sample["value"][1]) for sample in answer["data"]["result"]}

    def alerts(self):
        """What fires: by host and rule, or by the alert's own name."""
        alerts = json.loads(fetch(self.port, "/api/v1/alerts"))["data"]["alerts"]
        return {(alert["labels"]["instance"], alert["labels"].get("rule", alert["labels"]["alertname"])): alert
                for alert in alerts if alert["state"] == "firing"}

    def until(self, what, expected):
        end = time.monotonic() + LIMIT
        while True:
            try:
                found = what()
            except (urllib.error.URLError, ConnectionError) as error:
                found = error
            if found == expected:
                return
            if time.monotonic() > end or any(program.poll() is not None for program in self.programs):
                logs = "".join(log.read_text()[-500:] for log in self.folder.glob("*.log"))
                self.fail(f"{found} is not {expected}\n{logs}")
            time.sleep(0.2)

    def test_a_port_is_lost(self):
        for name in HOSTS:
            result = self.write(name, host(name))
            self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.until(lambda: self.query("varnok_up"), dict.fromkeys(HOSTS, 1))
        self.until(lambda: self.query("sum by (instance) (varnok_port_up)"), dict.fromkeys(HOSTS, 4))
        self.assertEqual(self.query("node_textfile_scrape_error"), dict.fromkeys(HOSTS, 0))
        # One loses a port: its alerts name the port, and what is left with one path.
        self.assertEqual(self.write("esx-2", host("esx-2", 0, 1, 0, 0)).returncode, 0)
        lost = {("esx-2", "port-offline"), ("esx-2", "single-path")}
        self.until(lambda: set(self.alerts()), lost)
        alert = self.alerts()["esx-2", "port-offline"]
        self.assertEqual(alert["labels"]["severity"], "critical")
        self.assertEqual(alert["annotations"]["description"],
                         "port 1, vmhba65: link offline. Next: check the cable and the port of the switch.")
        self.assertIn("1 of 2 paths works", self.alerts()["esx-2", "single-path"]["annotations"]["description"])
        # Another cannot be read any more: that is no host where all is well.
        self.assertEqual(self.write("esx-3", {"host": {"euid": 1000}}).returncode, 4)
        self.until(lambda: set(self.alerts()), lost | {("esx-3", "VarnokNotRead")})
        self.assertIn("that takes root", self.alerts()["esx-3", "VarnokNotRead"]["annotations"]["description"])
        self.check_the_dashboard()
        # The first is well again, and its alerts end.
        self.assertEqual(self.write("esx-2", host("esx-2")).returncode, 0)
        self.until(lambda: set(self.alerts()), {("esx-3", "VarnokNotRead")})

    def check_the_dashboard(self):
        dashboard = json.loads((RULES.parent / "varnok-dashboard.json").read_text())
        expressions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        expressions += blocks("count by")[0].strip().splitlines()
        self.assertGreater(len(expressions), 10)
        for expression in expressions:
            answer = json.loads(fetch(self.port, "/api/v1/query", query=re.sub(r"\$(job|instance)", ".*", expression)))
            only_bad = re.search("== 0|<|> 1", expression)
            self.assertTrue(answer["data"]["result"] or only_bad, expression)


class Tools(unittest.TestCase):
    def test_promtool(self):
        for name, document in (("lab", json.loads(LAB.read_text())), ("hostile names", host("esx-1", 0, 1, 7, 1)),
                               ("not read", {"host": {"euid": 1}})):
            with self.subTest(name), tempfile.NamedTemporaryFile("w", suffix=".json") as scenario:
                scenario.write(json.dumps(document))
                scenario.flush()
                text = run(BIN / "varnok-host", "run", scenario.name, "--", BIN / "varnokctl", "metrics").stdout
                result = run("promtool", "check", "metrics", input=text)
                self.assertEqual((result.returncode, result.stdout + result.stderr), (0, ""))
        for arguments in ("check", "rules", RULES), ("test", "rules", RULES.parent / "varnok-alerts-test.yml"):
            result = run("promtool", *arguments)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_the_commands_of_the_page(self):
        """They run as they stand there. Only the paths of an installed host are others."""
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (folder / "inventory").write_text("localhost ansible_connection=local\n")
        environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}", "HOME": str(folder),
                       "ANSIBLE_LOCAL_TEMP": str(folder), "ANSIBLE_REMOTE_TEMP": str(folder), "ANSIBLE_INVENTORY": "inventory"}
        said = {}
        for block in blocks("ansible all", "captures", "facts/"):
            for name, other in [("/usr/share", f"{SOURCE}/share"), ("/etc/ansible/", f"{folder}/"),
                                ("filter=ansible_local", "filter=ansible_local fact_path=facts.d")]:
                block = block.replace(name, other)
            result = run(BIN / "varnok-host", "run", LAB, "--", "sh", "-ec", block, cwd=folder, env=environment)
            self.assertLessEqual(result.returncode, 2 if "health" in block else 0, block + result.stdout + result.stderr)
            said[block.split()[0] + str(len(said))] = result.stdout
            if "--tree answers" in block:
                (folder / "yesterday").mkdir()
                text = (folder / "captures/localhost.json").read_text()
                (folder / "yesterday/localhost.json").write_text(text.replace("02:1e:2b:40:71:80", "02:1e:2b:40:71:00"))
                example = run(BIN / "varnok-host", "example").stdout
                unchanged = run(BIN / "varnok-host", "run", "-", "--", BIN / "varnokctl", "capture", input=example).stdout
                for day in "captures", "yesterday":
                    (folder / day / "unchanged.json").write_text(unchanged)
        said = "\n".join(said.values())
        for expected in ("changes/localhost.json.txt", "2 MH2120-2I\t7.13.75\n", "\ncaptures/localhost.json\n", "CRITICAL: ",
                         "critical\tport-offline\tport 4, vmhba68: link offline\n"):
            self.assertIn(expected, said)
        self.assertNotIn("unchanged", said)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
