"""From raw figures to the tables and plots of docs/performance.md: report.py RESULTS DOCS"""

import collections
import json
import math
import os
import pathlib
import re
import statistics
import subprocess
import sys
import textwrap

from plot import plot, seconds

DRIVERS = ("rovani", "tepli", "pelt", "dxo")
NATIVE, LEGACY = ("rovani", "pelt"), ("tepli", "dxo")
SCSI = ("SendScsiCommand, no data", "SendScsiCommand, 4 KiB in", "SendScsiCommand, 4 KiB out")
CALLS = ("GetVersion", "LoadLibrary + FreeLibrary", "GetPortCount", "OpenAdapter + CloseAdapter", "GetPhyPortInfo",
         "GetIscsiPortal", "GetSessionInfo", "GetTgtInfo", "GetLunInfo", *SCSI)
ASK_DRIVER = ("GetPhyPortInfo", "GetSessionInfo", "GetTgtInfo", "GetLunInfo", *SCSI)
AXES = {"ports": "ports of the host", "sessions": "sessions of the port", "targets": "targets of the port",
        "LUNs": "LUNs of the target"}
FIT_FROM = 64


def typical_times(path):
    """The median time of every benchmark, in seconds: now and then the allocator keeps what it mostly gives back, and a
    least time would tell of that."""
    times = collections.defaultdict(list)
    for run in json.loads(path.read_text())["benchmarks"]:
        if run["run_type"] == "iteration":
            name = run["run_name"]
            times[name.removesuffix("/manual_time")].append(
                run["real_time" if name.endswith("/manual_time") else "cpu_time"] * 1e-9)
    return {name: statistics.median(values) for name, values in times.items()}


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def ratio(value):
    return f"{value:.2f}"


class Calls:
    def __init__(self, path):
        self.times = typical_times(path)

    def over(self, side, driver, call):
        return self.times[f"library/{driver}/{call}"] / self.times[f"{side}/{driver}/{call}"]

    def worst(self, drivers, calls, side="floor"):
        return max(self.over(side, driver, call) for driver in drivers for call in calls)

    def log(self):
        return [self.over("nolog", driver, call) for driver in DRIVERS for call in ASK_DRIVER]

    def table(self):
        rows = []
        for call in CALLS:
            row = [call]
            for driver in DRIVERS:
                row += [seconds(self.times[f"library/{driver}/{call}"]), ratio(self.over("floor", driver, call))]
            rows.append(row)
        return table(["call"] + [word for driver in DRIVERS for word in (driver, "/ floor")], rows)

    def log_table(self):
        rows = [[call] + [ratio(self.over("nolog", driver, call)) for driver in DRIVERS] for call in ASK_DRIVER]
        return table(["with the log's calls / without", *DRIVERS], rows)


class Growth:
    def __init__(self, path):
        self.times = typical_times(path)
        self.curves = collections.defaultdict(dict)
        # In turn, whatever the order of the run: natives first.
        rows = sorted((name.split("/") for name in self.times if name.startswith("growth/")),
                      key=lambda row: (row[2], row[1] in LEGACY, int(row[3])))
        for row in rows:
            self.curves[row[2]].setdefault(row[1], []).append((int(row[3]), self.times["/".join(row)]))

    # Every turn discovers as many ports, in hosts of either size.
    def per_port(self, side, driver, ports):
        return self.times[f"{side}/{driver}/discovery/{ports}"] / 4096

    def growth_of_discovery(self, side, driver):
        return self.per_port(side, driver, 4096) / self.per_port(side, driver, 64)

    def worst_discovery(self):
        return max(self.growth_of_discovery("library", driver) for driver in DRIVERS)

    def discovery_table(self):
        rows = [[driver, seconds(self.per_port("library", driver, 64)), seconds(self.per_port("library", driver, 4096)),
                 ratio(self.growth_of_discovery("library", driver)), ratio(self.growth_of_discovery("floor", driver))]
                for driver in DRIVERS]
        return table(["driver", "a port of 64", "a port of 4,096", "ratio", "the floor's ratio"], rows)

    @staticmethod
    def exponent(points):
        logs = [(math.log(x), math.log(y)) for x, y in points if x >= FIT_FROM]
        return statistics.linear_regression(*zip(*logs)).slope

    def exponent_table(self):
        rows = [[what] + [word for points in drivers.values()
                          for word in (seconds(points[0][1]), seconds(points[-1][1]), ratio(self.exponent(points)))]
                for what, drivers in self.curves.items()]
        head = ["what grows"] + [f"{kind}, {word}" for kind in ("native", "legacy")
                                 for word in ("least", "most", "exponent")]
        return table(head, rows)

    def draw(self, docs):
        axes = collections.defaultdict(list)
        for what, drivers in self.curves.items():
            label, axis = what.rsplit(", by ", 1)
            axes[axis] += [(label, driver in LEGACY, points) for driver, points in drivers.items()]
        for axis, curves in axes.items():
            plot(docs / f"growth-{axis.lower()}.svg", AXES[axis], curves)


def live_table(live):
    rows = [[name] + [word for count in live for word in (seconds(min(live[count][name])),
                                                          seconds(statistics.median(live[count][name])))]
            for name in next(iter(live.values()))]
    return table(["command"] + [f"{count} LUNs, {word}" for count in live for word in ("least", "median")], rows)


def whole_table(whole):
    rows = [[kind, f"{size:,} bytes"] for kind, size in whole["sections"].items()]
    rows += [["the file", f"{whole['file']:,} bytes"],
             ["dynamic relocations", f"{whole['relocations']}"],
             ["loading it (`dlopen`)", seconds(whole["load"])],
             ["unloading it (`dlclose`)", seconds(whole["unload"])],
             ["an empty process without it", seconds(whole["process"]["without"])],
             ["an empty process with it", seconds(whole["process"]["with"])]]
    return table(["what", "figure"], rows)


def aims_table(calls, growth, live):
    log = calls.log()
    aims = [("SCSI command, native driver / floor", 1.10, calls.worst(NATIVE, SCSI)),
            ("sessions, native driver / floor", 1.25, calls.worst(NATIVE, ["GetSessionInfo"])),
            ("physical port / floor", 2.0, calls.worst(DRIVERS, ["GetPhyPortInfo"])),
            ("SCSI command, legacy driver / floor", 2.0, calls.worst(LEGACY, SCSI)),
            ("discovery, a port of 4,096 / a port of 64", 1.1, growth.worst_discovery()),
            (f"log with mask 0 / no log calls, mean of the calls that ask a driver (worst: {ratio(max(log))})", 1.02,
             statistics.geometric_mean(log))]
    ours, others = ({count: statistics.median(times[name]) for count, times in live.items()}
                    for name in ("varnokctl luns", "iscsi-ls -s"))
    aims += [("`varnokctl luns` less `iscsi-ls -s`, 4 LUNs, in ms", 8.0, (ours["4"] - others["4"]) * 1000),
             ("`varnokctl luns` / `iscsi-ls -s`, 200 LUNs", 2.0, ours["200"] / others["200"])]
    return table(["ratio or difference", "aim", "measured", ""],
                 [[name, ratio(aim), ratio(found), "holds" if round(found, 2) <= aim else "**does not hold**"]
                  for name, aim, found in aims])


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.partition("\n")[0]


def machine():
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    system = re.search(r'PRETTY_NAME="(.*)"', pathlib.Path("/etc/os-release").read_text())
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    text = (f"{os.cpu_count()} cores ({model[1] if model else 'unknown'}), {memory:.0f} GiB; "
            f"{system[1] if system else 'unknown'}, {first_line('g++', '--version')}, optimised build (`-O3`).")
    return textwrap.fill(text, 120)


def fill(page, tables):
    """Puts each table between the page's marks of its name."""
    text = page.read_text() if page.exists() else "\n".join(f"<!-- {n} -->\n<!-- /{n} -->" for n in tables)
    for name, body in tables.items():
        text, found = re.subn(rf"(<!-- {name} -->\n).*?(<!-- /{name} -->)",
                              lambda marks, body=body: f"{marks[1]}\n{body}\n\n{marks[2]}", text, flags=re.S)
        assert found == 1, name
    page.write_text(text)


def main():
    results, docs = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    docs.mkdir(exist_ok=True)
    calls, growth = Calls(results / "calls.json"), Growth(results / "growth.json")
    live, whole = (json.loads((results / f"{name}.json").read_text()) for name in ("live", "whole"))
    tables = {"aims": aims_table(calls, growth, live), "machine": machine(), "calls": calls.table(),
              "log": calls.log_table(), "discovery": growth.discovery_table(), "growth": growth.exponent_table(),
              "live": live_table(live), "whole": whole_table(whole)}
    growth.draw(docs)
    fill(docs / "performance.md", tables)
    print(tables["aims"])


if __name__ == "__main__":
    main()
