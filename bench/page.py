#!/usr/bin/python3
"""Measures varnokctl report over many captures, and its page in headless Chromium: bench/page.py [BIN_DIR]

Each simulated host has 8 ports, 8 targets and 500 devices; 2 paths or 8 lead to each device. Chromium, chromium-driver and
python3-selenium have to be there. Prints the rows of the table in docs/report.md."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

BIN = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/release/bin").resolve()
PORTS, DEVICES = 8, 500

PAINT = """const done = arguments[0], look = () => {
    const [paint] = performance.getEntriesByName('first-contentful-paint'), [page] = performance.getEntriesByType('navigation');
    if (!paint || page.loadEventEnd === 0) return setTimeout(look, 20);
    done({paint: paint.startTime, load: page.loadEventEnd}); };
look()"""
# From the search itself to the next picture: the wait for the next key is left out.
KEY = """const done = arguments[1], words = document.getElementById('words'); words.value = arguments[0];
const begin = performance.now(); document.getElementById('level').dispatchEvent(new Event('change'));
requestAnimationFrame(() => setTimeout(() => done(performance.now() - begin)))"""


def scenario(paths):
    groups = PORTS // paths
    devices = {f"d{n}": {"size": f"{n % 7 + 1} TiB", "serial": f"S{n:05}", "designators": [{"naa": f"0x6abcdef0{n:024x}"}]}
               for n in range(DEVICES)}
    ports = [{"driver": "pelt", "mac": f"02:4d:ab:cd:00:{n:02x}", "port_state": int(n == 1), "sessions": [{
        "tgt_iqn": f"iqn.2016-11.com.example:array.sp{n}", "luns": [
            {"device": f"d{d}"} for d in range(n % groups * DEVICES // groups, (n % groups + 1) * DEVICES // groups)]}]} for n in range(PORTS)]
    return {"devices": devices, "ports": ports}


def captures(folder, paths, count):
    file = folder / "host.scenario"
    file.write_text(json.dumps(scenario(paths)))
    text = subprocess.run([BIN / "varnok-host", "run", file, "--", BIN / "varnokctl", "capture"], capture_output=True, text=True, check=True).stdout
    for n in range(count):
        mine = text.replace("02:4d:ab:cd", f"02:4d:{n >> 8:02x}:{n & 255:02x}").replace("0x6abcdef0", f"0x6{n:07x}")
        path = folder / f"host-{n:04}.json"
        path.write_text(mine)
        yield path


def run(files, page):
    with page.open("wb") as out:
        child = subprocess.Popen([BIN / "varnokctl", "report", *files], stdout=out)
        _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        sys.exit("page.py: varnokctl failed")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def browse(page):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("headless=new", "no-sandbox", "disable-gpu"):
        options.add_argument("--" + argument)
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        browser.get(page.as_uri())
        seen = browser.execute_async_script(PAINT)
        time.sleep(1) # the texts are read when there is nothing to do
        keys = [browser.execute_async_script(KEY, words) for words in ("a", "ar", "array sp3", "offline", "0001f", "nothing", "")]
        return seen, max(keys)
    finally:
        browser.quit()


def main():
    print("| hosts | paths of a device | captures | page | time | memory | first picture | all loaded | slowest search |")
    print("|---|---|---|---|---|---|---|---|---|")
    for count, paths in ((1, 8), (100, 2), (100, 8), (1000, 2)):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            files = list(captures(folder, paths, count))
            page = folder / "report.html"
            seconds, memory = run(files, page)
            size = sum(file.stat().st_size for file in files) / 1e6
            row = f"| {count} | {paths} | {size:.1f} MB | {page.stat().st_size / 1e6:.1f} MB | {seconds:.2f} s | {memory:.0f} MB |"
            seen, key = browse(page)
            print(f"{row} {seen['paint'] / 1e3:.1f} s | {seen['load'] / 1e3:.1f} s | {key:.0f} ms |", flush=True)


if __name__ == "__main__":
    main()
