"""What the built library promises besides behaviour:
library_check.py SOURCE_DIR LIBRARY CC CXX SANITIZED VERSION"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

SOURCE, LIBRARY, CC, CXX, SANITIZED, VERSION = sys.argv[1:7]
ROOT = pathlib.Path(SOURCE) / "libvarnok"
FOLDERS = ["include", "records", "support", "core", "backend", "api"]  # from the bottom up
OBJECTS = pathlib.Path(LIBRARY).parents[1] / "libvarnok/CMakeFiles/varnok.dir"
# The log takes its semaphore, and a semaphore that fails is logged.
CIRCLE = {"varnok_dbg", "varnok_log", "varnok_sem"}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def declared(mark):
    names = set()
    for header in ROOT.glob("*/*.h"):
        text = re.sub(r"/\*.*?\*/|//[^\n]*|#define[^\n]*", "", header.read_text(), flags=re.S)
        for declaration in re.findall(mark + r"\s([^;{]*);", text):
            name = re.search(r"(\w+)\s*(?:\(.*\)|\[.*\])?$", " ".join(declaration.split()))
            names.add(name.group(1))
    return names


def listed():
    text = re.sub(r"/\*.*?\*/", "", (ROOT / "varnok.map").read_text(), flags=re.S)
    nodes = re.findall(r"(VARNOK\w*\.?\w*\.\d) \{\s*global:(.*?)(?:local:\s*\*;\s*)?\}", text, re.S)
    return {node: set(re.findall(r"\w+", names)) for node, names in nodes}


class LibraryCheck(unittest.TestCase):
    def test_exports(self):
        script = listed()
        public = set().union(*(names for node, names in script.items() if "PRIVATE" not in node))
        self.assertEqual(declared("VARNOK_API"), public)
        self.assertEqual(declared("VARNOK_PRIVATE"), script["VARNOK_PRIVATE_5.0"])
        exported = {}
        for line in output("nm", "-D", "--defined-only", LIBRARY).splitlines():
            name, _, node = line.split()[-1].partition("@@")
            if node:
                exported.setdefault(node, set()).add(name)
        self.assertEqual({node: names - {node} for node, names in exported.items()}, script)

    def test_every_function_has_a_manual_page(self):
        manuals = pathlib.Path(SOURCE) / "man"
        functions = {name for name in declared("VARNOK_API") if name.startswith("VARNOK_")}
        self.assertEqual(functions, {page.stem for page in manuals.glob("VARNOK_*.3")})
        for page in manuals.iterdir():
            # Aliases are links: "man ./man/PAGE" follows no .so line out of its folder.
            names = re.search(r"^\.SH NAME\n(.*?) \\-", page.read_text(), re.M)[1].split(", ")
            self.assertIn(page.stem, names)
            self.assertTrue(page.stem not in functions or f" {page.stem}(" in page.read_text(), page)
            for name in names:
                self.assertTrue((manuals / (name + page.suffix)).exists(), f"{page.name} names {name}")

    def test_needs(self):
        dynamic = output("readelf", "-d", LIBRARY)
        self.assertIn(f"soname: [libvarnok.so.{VERSION.split('.')[0]}]", dynamic)
        self.assertTrue(os.path.realpath(LIBRARY).endswith("libvarnok.so." + VERSION))
        needed = re.findall(r"NEEDED.*\[(.*)\]", dynamic)
        if SANITIZED != "ON":
            self.assertEqual(sorted(needed), ["libc.so.6", "libvarnok-vmkapi.so"])
            self.assertNotRegex(
                output("nm", LIBRARY), "_GLOBAL__sub_I|__cxa_guard|_Znw|_Zdl", "no constructors, no C++ run time")
        self.assertNotRegex(output("nm", "-D", "--undefined-only", LIBRARY), r"_chk@|open64|GLIBCXX|CXXABI")

    def test_headers_stand_alone(self):
        folders = ["-I", str(ROOT)]
        folders += ["-I", str(pathlib.Path(SOURCE) / "platform")]
        strict = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", "-fsyntax-only"]
        headers = [ROOT / "include/varnok_mgmt.h", *(ROOT / "records").glob("*.h")]
        self.assertGreaterEqual(len(headers), 8)
        for header in headers:
            include = f'#include "{header}"\nint nothing_else;\n'
            for command in ([CC, "-std=c11", "-xc"], [CXX, "-std=c++20", "-xc++"]):
                subprocess.run([*command, *strict, *folders, "-"], input=include, text=True, check=True)

    def test_includes_go_one_way(self):
        own = {file.name for file in ROOT.glob("*/*.h")}
        for level, folder in enumerate(FOLDERS):
            for file in (ROOT / folder).iterdir():
                for name in re.findall(r'#include "(.*?)"', file.read_text()):
                    self.assertNotIn(name, own, f"{file.name} includes {name} without its folder")
                    if "/" in name:
                        self.assertIn(name.split("/")[0], FOLDERS[:level + 1], f"{file.name} includes {name}")

    def test_objects_go_one_way(self):
        defined, needed = {}, {}
        for file in OBJECTS.glob("*/*.o"):
            unit = file.name.split(".")[0]
            for line in output("nm", str(file)).splitlines():
                kind, name = line.split()[-2:]
                if kind == "U":
                    needed.setdefault(unit, set()).add(name)
                elif kind.isupper():
                    defined[name] = unit
        uses = {unit: {defined[name] for name in names if name in defined} for unit, names in needed.items()}
        self.assertGreater(len(uses), 30)

        def reached(unit, seen):
            for other in uses.get(unit, set()) - seen:
                seen.add(other)
                reached(other, seen)
            return seen

        self.assertLessEqual({unit for unit in uses if unit in reached(unit, set())}, CIRCLE)

    def test_files_are_short(self):
        for file in pathlib.Path(SOURCE).glob("[!b]*/**/*"):
            if file.suffix in {".cpp", ".c", ".h", ".py"}:
                self.assertLessEqual(len(file.read_text().splitlines()), 420, file)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
