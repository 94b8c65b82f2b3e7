#!/usr/bin/env python3
"""What many hosts cost: fleet.py [HOSTS]. Builds, measures, and writes the tables of docs/many-hosts.md anew.

The hosts are simulated, each with names and numbers of its own, and the same in every run."""

import collections
import gzip
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

from report import fill, machine, table

SOURCE = pathlib.Path(__file__).resolve().parent.parent
BIN = SOURCE / "build/install/bin"
PAGE = SOURCE / "docs/many-hosts.md"
MANY = 100_000
Shape = collections.namedtuple("Shape", "ports targets luns")
SHAPES = {"small": Shape(2, 1, 8), "middle": Shape(4, 2, 32), "large": Shape(8, 4, 125)}


def scenario(number, shape, lost_port=False):
    """Each port logs in to each target, and each target presents its LUNs by all ports."""
    luns = [[{"lun": lun, "device": f"{target}.{lun}"} for lun in range(shape.luns)] for target in range(shape.targets)]
    devices = {f"{target}.{lun}": {"size": "500 GiB", "vendor": "EXAMPLE", "product": "DISK", "revision": "0001",
                                   "serial": f"S{number:06}{target}{lun:03}", "provisioning": "thin",
                                   "designators": [{"naa": f"0x6{number:010x}{target:02x}{lun:019x}"}]}
               for target in range(shape.targets) for lun in range(shape.luns)}
    ports = [{"driver": "dxo", "hba_name": f"vmhba{64 + port}", "mac": f"02:{number >> 16 & 255:02x}:{number >> 8 & 255:02x}:"
              f"{number & 255:02x}:00:{port:02x}", "serial_num": f"H{number:06}{port // 2}", "port_speed": 25000,
              "ipv4addr": f"10.{port}.{number >> 8 & 255}.{number & 255}", "iqn": f"iqn.2026-01.com.example:host-{number}:{port}",
              "port_state": 1 if lost_port and port == 0 else 0,
              "sessions": [{"tgt_iqn": f"iqn.2026-01.com.example:array-{number % 50}.{target}",
                            "tgt_ipv4addr": f"10.{port}.255.{target + 1}", "luns": luns[target]}
                           for target in range(shape.targets)]}
             for port in range(shape.ports)]
    return json.dumps({"devices": devices, "ports": ports})


def on_host(document, *command):
    with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
        file.write(document)
        file.flush()
        return subprocess.run([BIN / "varnok-host", "run", file.name, "--", *command], stdout=subprocess.PIPE, check=True,
                              env={**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}"}).stdout


def tool(document, *arguments):
    return on_host(document, BIN / "varnokctl", *arguments)


def series(text, dropped=b"#"):
    return sum(not line.startswith((b"#", dropped)) for line in text.splitlines())


def host_table():
    rows = []
    for name, shape in SHAPES.items():
        document = scenario(1, shape)
        start = time.perf_counter()
        whole = tool(document, "metrics")
        took = time.perf_counter() - start
        capture = tool(document, "capture")
        rows.append([name, *(f"{number:,}" for number in (
            shape.ports, shape.ports * shape.targets, shape.targets * shape.luns, shape.ports * shape.targets * shape.luns,
            series(whole), series(whole, b"varnok_lun_"), series(tool(document, "metrics", "--no-luns")), len(whole),
            len(capture), len(gzip.compress(capture)), len(on_host(document, SOURCE / "share/varnok/ansible/varnok.fact")))),
            f"{took:.2f}"])
    return table(["host", "ports", "sessions", "devices", "LUNs", "series", "without `varnok_lun_*`", "`--no-luns`",
                  "bytes of metrics", "bytes of a capture", "with gzip", "bytes of a fact", "seconds for metrics"], rows)


def capture_all(folder, count):
    """The captures of two days. On the second, every tenth host has lost a port."""
    before, after = folder / "before", folder / "after"
    for day in before, after:
        day.mkdir()
    for number in range(count):
        for day, lost in (before, False), (after, True):
            if lost and number % 10 != 0:
                (day / f"{number:06}.json").hardlink_to(before / f"{number:06}.json")
            else:
                (day / f"{number:06}.json").write_bytes(tool(scenario(number, SHAPES["middle"], lost), "capture"))
    return sorted(before.iterdir()), sorted(after.iterdir())


def seconds_for(command, status=(0,), **how):
    start = time.perf_counter()
    result = subprocess.run(command, check=False, stdout=subprocess.PIPE, **how)
    took = time.perf_counter() - start
    assert result.returncode in status, (result.returncode, result.stdout[-300:])
    return took, len(result.stdout)


def fleet_table(folder, count):
    before, after = capture_all(folder, count)
    plain = sum(path.stat().st_size for path in before)
    packed = sum(len(gzip.compress(path.read_bytes())) for path in before)
    shape = scenario(1, SHAPES["middle"])
    metrics = tool(shape, "metrics")
    kinds = {"": series(metrics), ", without `varnok_lun_*`": series(metrics, b"varnok_lun_"),
             ", `--no-luns`": series(tool(shape, "metrics", "--no-luns"))}
    diff = sum(seconds_for([BIN / "varnokctl", "diff", *pair], (0, 1))[0] for pair in zip(before, after))
    found = [("series" + kind, number * count, "{:,.0f}") for kind, number in kinds.items()]
    found += [("samples a second, scraped each minute" + kind, number * count / 60, "{:,.0f}") for kind, number in kinds.items()]
    found += [("captures, MB", plain / 1e6, "{:,.1f}"), ("captures with gzip, MB", packed / 1e6, "{:,.1f}"),
              ("`varnokctl diff`, a call for each host, seconds", diff, "{:,.1f}")]
    if re.search(r"^  report ", subprocess.run([BIN / "varnokctl", "--help"], capture_output=True, text=True, check=True).stdout,
                 re.M):
        took, size = seconds_for([BIN / "varnokctl", "report", *before])
        found += [("`varnokctl report`, one call, seconds", took, "{:,.1f}"), ("the report, MB", size / 1e6, "{:,.1f}")]
    rows = [[name, form.format(value), form.format(value * MANY / count)] for name, value, form in found]
    return table(["what", f"{count:,} hosts, measured", f"{MANY:,} hosts, extrapolated"], rows)


def main():
    if "VARNOK_FLEET" not in os.environ:  # the library's users share names of a host
        os.chdir(SOURCE)
        subprocess.run(["cmake", "--preset", "install"], check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", "--preset", "install"], check=True, stdout=subprocess.DEVNULL)
        os.environ["VARNOK_FLEET"] = "1"
        os.execv("tests/in_own_host", ["in_own_host", sys.executable, *sys.argv])
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 1000
    with tempfile.TemporaryDirectory() as folder:
        tables = {"host": host_table(), "fleet": fleet_table(pathlib.Path(folder), count), "machine": machine()}
    fill(PAGE, tables)
    print(tables["host"], tables["fleet"], sep="\n\n")


if __name__ == "__main__":
    main()
