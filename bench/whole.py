"""The library as a file: its size, and what it costs to load it empty: whole.py BUILD RESULT REPETITIONS"""

import _ctypes
import ctypes
import json
import os
import pathlib
import re
import subprocess
import sys
import time


def sizes(library):
    """Bytes of each kind of section, and dynamic relocations."""
    text = subprocess.run(["readelf", "-SW", library], capture_output=True, text=True, check=True).stdout
    kinds = {"code": 0, "constants and tables": 0, "data that is written": 0, "zeroed data": 0}
    row = re.compile(r"\] (\S+) +(\w+) +\w+ \w+ (\w+) \w+ +([A-Z]*)")
    for name, form, size, flags in row.findall(text):
        if "A" not in flags:
            continue
        kind = ("code" if "X" in flags else "zeroed data" if form == "NOBITS" else
                "data that is written" if "W" in flags else "constants and tables")
        kinds[kind] += int(size, 16)
    relocations = subprocess.run(["readelf", "-rW", library], capture_output=True, text=True, check=True).stdout
    return {"sections": kinds, "file": library.stat().st_size,
            "relocations": sum(map(int, re.findall(r"contains (\d+) entr", relocations)))}


def spawn(program):
    start = time.perf_counter()
    os.waitpid(os.posix_spawn(program, [program], os.environ), 0)
    return time.perf_counter() - start


def load_and_unload(library):
    start = time.perf_counter()
    handle = ctypes.CDLL(library)._handle
    loaded = time.perf_counter()
    _ctypes.dlclose(handle)
    return loaded - start, time.perf_counter() - loaded


def main():
    build, repetitions = pathlib.Path(sys.argv[1]), int(sys.argv[3])
    library = build / "lib/libvarnok.so"
    found = sizes(library.resolve())
    loads = [load_and_unload(str(library)) for _ in range(repetitions)]
    found["load"] = min(load for load, _ in loads)
    found["unload"] = min(unload for _, unload in loads)
    programs = {"without": build / "bin/empty", "with": build / "bin/empty_with_varnok"}
    turns = [{name: spawn(str(program)) for name, program in programs.items()} for _ in range(repetitions)]
    found["process"] = {name: min(turn[name] for turn in turns) for name in programs}
    pathlib.Path(sys.argv[2]).write_text(json.dumps(found))


if __name__ == "__main__":
    main()
