"""What tests of varnokctl share: they run as TEST.py SOURCE_DIR BIN_DIR, and VARNOK_GOLDEN=write writes the golden
outputs anew."""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, BIN = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
GOLDEN = SOURCE / "tests/tools/golden"
LAB = SOURCE / "examples/lab.json"
HELP = subprocess.run([BIN / "varnokctl", "--help"], check=True, capture_output=True, text=True).stdout
LISTINGS = re.findall("^  ([a-z]+) +List ", HELP, re.M)
FAULT = {"driver": "dxo", "request": "port_info", "instance": 1, "nth": 2, "times": 0}


def on_host(scenario, *arguments, locale="C.UTF-8", width=80):
    # A sanitized tool cannot come after the preloaded host that it runs on.
    environment = {**os.environ, "LC_ALL": locale, "ASAN_OPTIONS": "verify_asan_link_order=0"}
    environment.pop("COLUMNS", None)
    environment.update({"COLUMNS": str(width)} if width else {})
    return subprocess.run([BIN / "varnok-host", "run", scenario, "--", BIN / "varnokctl", *arguments],
                          capture_output=True, text=True, env=environment, check=False)


class ToolCase(unittest.TestCase):
    def compare(self, name, text):
        path = GOLDEN / name
        if os.environ.get("VARNOK_GOLDEN"):
            path.write_text(text)
        self.assertEqual(text, path.read_text())

    def folder(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        return pathlib.Path(folder.name)

    def scenario(self, document):
        file = tempfile.NamedTemporaryFile("w", suffix=".json")
        self.addCleanup(file.close)
        file.write(document if isinstance(document, str) else json.dumps(document))
        file.flush()
        return file.name


def main():
    unittest.main(argv=sys.argv[:1], verbosity=2)
