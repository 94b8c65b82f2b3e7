"""The source archive and the wheel of the Python package, in an environment of their own:
wheel_test.py SOURCE_DIR BIN_DIR LIBRARY VERSION"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

SOURCE, BIN, LIBRARY = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
VERSION = sys.argv[4]


def run(*command, **environment):
    result = subprocess.run(command, capture_output=True, text=True, env={**os.environ, **environment}, check=False)
    if result.returncode != 0:
        raise AssertionError(result.stdout + result.stderr)
    return result.stdout


class WheelTest(unittest.TestCase):
    def test_the_wheel_that_is_built_from_the_source_archive(self):
        with tempfile.TemporaryDirectory() as folder:
            project = pathlib.Path(folder)
            package = project / "bindings/python"
            shutil.copytree(SOURCE / "bindings/python", package, ignore=shutil.ignore_patterns("build", "dist", "*.egg-info", "__py*"))
            shutil.copy(SOURCE / "CMakeLists.txt", project)
            run(sys.executable, "-m", "build", "--no-isolation", package)
            wheel = package / f"dist/varnok-{VERSION}-py3-none-any.whl"
            self.assertEqual({file.name for file in wheel.parent.iterdir()}, {wheel.name, f"varnok-{VERSION}.tar.gz"})
            sources = {file.name for file in (package / "varnok").iterdir()}
            names = {pathlib.Path(name) for name in zipfile.ZipFile(wheel).namelist()}
            self.assertEqual({name.name for name in names if name.parent.name == "varnok"}, sources)
            self.assertIn("py.typed", sources)

            run(sys.executable, "-m", "venv", "--without-pip", project / "own")
            python = project / "own/bin/python3"
            run(sys.executable, "-m", "pip", "--python", python, "install", "--no-deps", "--no-index", wheel)
            versions = run(python, "-c", "import importlib.metadata, varnok; print(varnok.__file__, importlib.metadata.version('varnok'))")
            self.assertEqual(versions.split()[1], VERSION)
            self.assertTrue(versions.startswith(str(project / "own")), versions)
            output = run(BIN / "varnok-host", "run", SOURCE / "examples/lab.json", "--", python, SOURCE / "examples/inventory.py",
                         LD_LIBRARY_PATH=str(LIBRARY.parent))
            self.assertIn("    LUN 16684: 786432 MiB, QUARTZ FlashLUN\n", output)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
