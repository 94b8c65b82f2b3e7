"""A staged install, used as another project would: install_test.py SOURCE_DIR BUILD_DIR CC CXX"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE, BUILD, CC, CXX = pathlib.Path(sys.argv[1]), *sys.argv[2:5]
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(other C)
find_package(varnok 5 REQUIRED)
add_executable(inventory inventory.c)
target_link_libraries(inventory varnok::varnok)
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

    def inventory(self, *program, first="vmhba64, MH2120-2I"):
        output = run(self.prefix / "bin/varnok-host", "run", self.example / "lab.json", "--", *program,
                     LD_LIBRARY_PATH=str(self.libdir))
        self.assertEqual(output.splitlines()[0], first)

    def test_pkg_config(self):
        flags = run("pkg-config", "--cflags", "--libs", "varnok", PKG_CONFIG_PATH=str(self.libdir / "pkgconfig")).split()
        program = self.prefix / "with-pkg-config"
        run(CC, self.example / "inventory.c", "-o", program, *flags)
        self.inventory(program)

    def test_find_package(self):
        project = self.prefix / "other"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(PROJECT)
        (project / "inventory.c").write_text((self.example / "inventory.c").read_text())
        run("cmake", "-S", project, "-B", project / "out", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", project / "out")
        self.inventory(project / "out/inventory")

    def test_the_other_examples(self):
        program = self.prefix / "with-cpp"
        flags = ["-I", self.prefix / "include", "-L", self.libdir, "-lvarnok"]
        run(CXX, "-std=c++17", self.example / "inventory.cpp", "-o", program, *flags)
        self.inventory(program, first="iqn.2012-04.com.example:array-1.a")
        self.inventory(sys.executable, self.example / "inventory.py", first="vmhba64, MH2120-2I, MH21A40718, 2 sessions")

    def test_debian_packages(self):
        with tempfile.TemporaryDirectory() as folder:
            run("cpack", "--config", pathlib.Path(BUILD) / "CPackConfig.cmake", "-B", folder)
            contents = {package.name.split("_")[0]: run("dpkg-deb", "--contents", package)
                        for package in pathlib.Path(folder).glob("*.deb")}
        holds = {"libvarnok5": "/libvarnok.so.5.0.2", "libvarnok-dev": "/usr/include/varnok_mgmt.h",
                 "varnok-tools": "/usr/bin/varnokctl"}
        self.assertEqual(set(contents), set(holds))
        for package, text in contents.items():
            for owner, file in holds.items():
                self.assertEqual(f"{file}\n" in text, owner == package, (package, file))

    def test_the_tool_runs_from_where_it_lies(self):
        host = [self.prefix / "bin/varnok-host", "run", self.example / "lab.json", "--"]
        self.assertIn("vmhba64", run(*host, self.prefix / "bin/varnokctl", "ports"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
