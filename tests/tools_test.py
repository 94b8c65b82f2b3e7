"""varnokctl on simulated hosts, against golden outputs: tools_test.py SOURCE_DIR BIN_DIR

VARNOK_GOLDEN=write writes them anew."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE, BIN = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
GOLDEN = SOURCE / "tests/golden"
LAB = SOURCE / "examples/lab.json"
FAULT = {"driver": "dxo", "request": "port_info", "instance": 1, "nth": 2, "times": 0}


def on_host(scenario, *arguments, locale="C.UTF-8"):
    # A sanitized tool cannot come after the preloaded host that it runs on.
    environment = {**os.environ, "LC_ALL": locale, "COLUMNS": "80", "ASAN_OPTIONS": "verify_asan_link_order=0"}
    return subprocess.run([BIN / "varnok-host", "run", scenario, "--", BIN / "varnokctl", *arguments],
                          capture_output=True, text=True, env=environment, check=False)


class ToolsTest(unittest.TestCase):
    def compare(self, name, text):
        path = GOLDEN / name
        if os.environ.get("VARNOK_GOLDEN"):
            path.write_text(text)
        self.assertEqual(text, path.read_text())

    def scenario(self, document):
        file = tempfile.NamedTemporaryFile("w", suffix=".json")
        self.addCleanup(file.close)
        file.write(document if isinstance(document, str) else json.dumps(document))
        file.flush()
        return file.name

    def test_outputs(self):
        for arguments in (["tree"], ["tree", "--ascii", "--port", "2"], ["ports"], ["portals"], ["sessions"],
                          ["targets"], ["luns"], ["luns", "--bytes", "--port", "0", "--target", "0"],
                          ["ports", "--details", "--port", "4"]):
            with self.subTest(arguments):
                result = on_host(LAB, *arguments)
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertLessEqual(max(map(len, result.stdout.splitlines())), 80)
                self.compare("_".join(a.strip("-") for a in arguments) + ".txt", result.stdout)

    def test_endings(self):
        lab = json.loads(LAB.read_text())
        endings = [
            (0, "no_adapters", {"drivers": ["rovani"]}, ["ports"]),
            (1, "not_root", {"host": {"euid": 1000}}, ["ports"]),
            (1, "third_port_fails", {**lab, "faults": [{**FAULT, "status": 6}]}, ["ports"]),
            (1, "no_such_port", lab, ["luns", "--port", "9"]),
            (2, "usage", lab, ["lunes"]),
            (2, "wrong_scenario", {"ports": [{"driver": "pelt"}, {"driver": "dxo", "mac": "x"}]}, ["ports"]),
        ]
        for status, name, document, arguments in endings:
            with self.subTest(name):
                path = self.scenario(document)
                result = on_host(path, *arguments)
                self.assertEqual(result.returncode, status, result.stderr)
                self.compare(name + ".txt", (result.stdout + "--\n" + result.stderr).replace(path, "SCENARIO"))

    def test_the_printed_example_is_a_scenario(self):
        example = subprocess.run([BIN / "varnok-host", "example"], capture_output=True, text=True, check=True).stdout
        path = self.scenario(example)
        subprocess.run([BIN / "varnok-host", "check", path], check=True)
        self.assertIn("2 targets", on_host(path, "tree", "--port", "0").stdout)
        wrong = subprocess.run([BIN / "varnok-host", "check", self.scenario(example + "]")], capture_output=True, check=False)
        self.assertEqual(wrong.returncode, 2)

    def test_the_readme_shows_what_is_there(self):
        readme = (SOURCE / "README.md").read_text()
        self.assertIn((GOLDEN / "tree.txt").read_text(), readme)
        self.assertIn((SOURCE / "examples/inventory.c").read_text(), readme)
        result = subprocess.run([BIN / "varnok-host", "run", LAB, "--", BIN / "inventory"], capture_output=True, text=True,
                                check=True, env={**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0"})
        self.assertEqual(result.stdout.splitlines()[:2],
                         ["vmhba64, MH2120-2I", "  iqn.2012-04.com.example:array-1.a, 4 LUNs"])

    def test_hostile_names_do_not_reach_the_terminal(self):
        name = "a\x1b[2J\u009b\r\u202e\x7fz"
        path = self.scenario({"ports": [{"driver": "pelt", "hba_name": name, "model_name": name,
                                         "sessions": [{"tgt_iqn": name, "luns": [{"vendor": "\x1b[1m"}]}]}]})
        for command in ("tree", "ports", "targets", "sessions", "luns"):
            output = on_host(path, command).stdout
            self.assertTrue(output.replace("\n", "").isprintable(), ascii(output))

    def test_a_large_host_lists_its_sessions(self):
        path = self.scenario({"ports": [{"driver": "dxo", "repeat": 256, "sessions": [{"repeat": 256}]}]})
        result = on_host(path, "sessions")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(len(result.stdout.splitlines()), 1 + 256 * 256)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
