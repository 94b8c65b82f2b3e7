"""A staged install, used as another project would: install_test.py SOURCE_DIR BUILD_DIR CC CXX VERSION"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, BUILD, CC, CXX, VERSION = pathlib.Path(sys.argv[1]), *sys.argv[2:6]
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(other C CXX)
find_package(varnok 5 REQUIRED)
foreach(language c cpp)
    add_executable(inventory_${language} inventory.${language})
    target_link_libraries(inventory_${language} varnok::varnok)
endforeach()
"""
FIRST = {"c": "vmhba64, MH2120-2I", "cpp": "iqn.2012-04.com.example:array-1.a"}
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]
COMPLETE = """exec 2>&1
. "$1"; tool=${1##*/}; COMP_WORDS=("${@:3}"); COMP_CWORD=$(($# - 3))
"_${tool//-/_}" "$2"; echo "${COMPREPLY[*]}"
"""


def run(*command, **environment):
    return subprocess.run(command, check=True, capture_output=True, text=True, env={**os.environ, **environment}).stdout


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stage = tempfile.TemporaryDirectory(prefix="varnok-stage-")
        cls.prefix = pathlib.Path(cls.stage.name)
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        cls.libdir = next(cls.prefix.glob("lib/**/pkgconfig")).parent
        cls.example = next(cls.prefix.glob("share/doc/*/examples"))

    @classmethod
    def tearDownClass(cls):
        cls.stage.cleanup()

    def inventory(self, *program, first, **environment):
        output = run(self.prefix / "bin/varnok-host", "run", self.example / "lab.json", "--", *program,
                     LD_LIBRARY_PATH=str(self.libdir), **environment)
        self.assertEqual(output.splitlines()[0], first)

    def test_pkg_config(self):
        flags = run("pkg-config", "--cflags", "--libs", "varnok", PKG_CONFIG_PATH=self.libdir / "pkgconfig").split()
        program = self.prefix / "with-pkg-config"
        for language, *compiler in [("c", CC), ("cpp", CXX, "-std=c++17"), ("cpp", CXX, "-std=c++17", "-fno-exceptions"),
                                    ("cpp", CXX, "-std=c++2b")]:
            run(*compiler, *STRICT, self.example / f"inventory.{language}", "-o", program, *flags)
            self.inventory(program, first=FIRST[language])

    def test_find_package(self):
        project = self.prefix / "other"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(PROJECT)
        for language in FIRST:
            (project / f"inventory.{language}").write_text((self.example / f"inventory.{language}").read_text())
        run("cmake", "-S", project, "-B", project / "out", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", project / "out")
        for language, first in FIRST.items():
            self.inventory(project / f"out/inventory_{language}", first=first)

    def test_python(self):
        example = self.example / "inventory.py"
        self.inventory(sys.executable, example, first="vmhba64, MH2120-2I, MH21A40718, 2 sessions",
                       PYTHONPATH=str(SOURCE / "bindings/python"))

    def test_links_lead_to_files(self):
        readme = next(self.prefix.glob("share/doc/*/README.md"))
        for page in (SOURCE / "README.md", *(SOURCE / "docs").glob("*.md"), readme, *readme.parent.glob("docs/*.md")):
            links = re.findall(r"\]\((?!http|#)([^)#]+)", page.read_text())
            self.assertEqual([link for link in links if not (page.parent / link).exists()], [], page)
        for page in re.findall(r"man (\./\S+?)`", readme.read_text()):
            self.assertTrue((SOURCE / page).exists(), page)

    def test_commands_of_the_readme(self):
        text = (SOURCE / "README.md").read_text().replace("\\\n", "")
        commands = re.findall(r"^    ((?:cc|c\+\+|python3|export|build/demo)(?=[ /]).*)", text, re.M)
        commands = [command for command in commands if not re.search("--portal|-m (build|venv)", command)]
        self.assertGreater(len(commands), 6)
        folder = self.prefix / "checkout"
        (folder / "build").mkdir(parents=True)
        for name in ("libvarnok", "examples", "bindings"):
            (folder / name).symlink_to(SOURCE / name)
        (folder / "build/demo").symlink_to(BUILD)
        subprocess.run(["bash", "-e", "-c", "\n".join(commands)], cwd=folder, check=True, stdout=subprocess.DEVNULL,
                       env={**os.environ, "PKG_CONFIG_PATH": str(self.libdir / "pkgconfig")})

    def test_histories_begin_with_this_version(self):
        for file, entry in [("NEWS", r"^(\d\S*) - "), ("debian/changelog", r"^varnok \((\S+)\)")]:
            self.assertEqual(re.search(entry, (SOURCE / file).read_text(), re.M)[1], VERSION, file)

    def complete(self, tool, *words):
        script = self.prefix / "share/bash-completion/completions" / tool
        return run(self.prefix / "bin/varnok-host", "run", self.example / "lab.json", "--",
                   "bash", "-c", COMPLETE, "bash", script, self.prefix / "bin" / tool, tool, *words, VARNOK_API_DEBUG="6")

    def test_completion_knows_the_host(self):
        drivers = re.search("--driver TEXT:{(.*)}", run(self.prefix / "bin/varnok-host", "run", "--help"))[1]
        for command, expected in [("varnokctl ports --port", "0 1 2 3 4"), ("varnokctl tree -p = 0 -t", "0 1"),
                                  ("varnokctl scsi --target 0 --port 2 --lun", "0 1 300"),
                                  ("varnokctl luns -p 9 -t", ""), ("varnokctl scsi --in 4 --", ""),
                                  ("varnok-host run --driver", drivers.replace(",", " "))]:
            self.assertEqual(self.complete(*command.split(), ""), expected + "\n", command)

    def test_manuals_and_completion_have_what_help_has(self):
        options_of = re.compile(r"(?<![\w-])--?[a-z]+(?:-[a-z]+)*").findall
        for tool, statuses in [("varnokctl", 5), ("varnok-host", 0)]:
            manual = " ".join((SOURCE / f"man/{tool}.1").read_text().replace("\\-", "-").split())
            text = run(self.prefix / "bin" / tool, "--help")
            commands = re.findall("^  ([a-z]+)  ", text, re.M)
            self.assertLess({"run", "check"} if statuses == 0 else {"tree", "scsi"}, set(commands))
            self.assertLessEqual(set(commands), set(self.complete(tool, "").split()))
            for command in commands:
                options = set(options_of(run(self.prefix / "bin" / tool, command, "--help")))
                self.assertLessEqual({command} | options, set(manual.split()) | set(options_of(manual)))
                completed = set(self.complete(tool, command, "-").split())
                self.assertLessEqual({option for option in options if option.startswith("--")}, completed)
            endings = re.findall(r"^  (\d)  (.+)", text, re.M)
            self.assertEqual([f"{number} T{{ {words} T}}" in manual for number, words in endings], [True] * statuses)

    def test_the_tool_runs_from_where_it_lies(self):
        host = [self.prefix / "bin/varnok-host", "run", self.example / "lab.json", "--"]
        self.assertIn("vmhba64", run(*host, self.prefix / "bin/varnokctl", "ports"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
