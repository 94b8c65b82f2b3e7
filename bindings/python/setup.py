"""The version stands in the project's CMakeLists.txt. A source archive has it in its PKG-INFO."""

import pathlib
import re

from setuptools import setup

HERE = pathlib.Path(__file__).resolve().parent
SOURCES = [(HERE / "PKG-INFO", r"^Version: (\S+)$"),
           (HERE.parent.parent / "CMakeLists.txt", r"^project\(varnok VERSION (\S+)")]


def version() -> str:
    for file, pattern in SOURCES:
        if file.exists():
            found = re.search(pattern, file.read_text(encoding="utf-8"), re.M)
            if found:
                return found[1]
    raise SystemExit("setup.py: no version: build in the project's own folder, or from a source archive")


setup(version=version())
