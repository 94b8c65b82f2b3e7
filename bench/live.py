"""varnokctl against iscsi-ls on the same live targets, as whole processes in turn: live.py BUILD RESULT REPETITIONS"""

import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import time

COUNTS = (4, 200)
NAME = "iqn.2026-01.com.example:bench"


class Target:
    """tgtd on a loopback port, from user space."""

    def __init__(self, luns):
        self.folder = tempfile.TemporaryDirectory(prefix="varnok-bench-")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.portal = f"127.0.0.1:{free.getsockname()[1]}"
        self.environment = {**os.environ, "TGT_IPC_SOCKET": self.folder.name + "/socket"}
        self.process = subprocess.Popen(["tgtd", "-f", "-C", "7", "--iscsi", "portal=" + self.portal],
                                        env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while not self.admin("show", "--mode", "system"):
            time.sleep(0.05)
        image = pathlib.Path(self.folder.name, "image")
        image.touch()
        os.truncate(image, 1 << 30)
        done = [self.admin("new", "--mode", "target", "--tid", "1", "-T", NAME)]
        # tgtd adds a controller of its own, which is listed as well.
        done += [self.admin("new", "--mode", "logicalunit", "--tid", "1", "--lun", str(lun), "-b", str(image))
                 for lun in range(1, luns)]
        done.append(self.admin("bind", "--mode", "target", "--tid", "1", "-I", "ALL"))
        assert all(done), "tgtd takes no LUNs"

    def admin(self, *arguments):
        command = ["tgtadm", "-C", "7", "--lld", "iscsi", "--op", *arguments]
        return subprocess.run(command, env=self.environment, capture_output=True, check=False).returncode == 0

    def end(self):
        self.process.kill()
        self.process.wait()
        self.folder.cleanup()


def time_in_turn(commands, repetitions):
    """Wall-clock seconds of each command, the commands taking turns."""
    times = {name: [] for name in commands}
    for _ in range(repetitions):
        for name, command in commands.items():
            start = time.perf_counter()
            result = subprocess.run(command, capture_output=True, text=True, check=False)
            times[name].append(time.perf_counter() - start)
            assert result.returncode == 0, result
    return times


def main():
    build, result, repetitions = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
    found = {}
    for count in COUNTS:
        target = Target(count)
        host = [str(build / "bin/varnok-host"), "run", "--portal", target.portal]
        list_luns = ["--", str(build / "bin/varnokctl"), "luns"]
        commands = {
            "varnokctl luns": [*host, *list_luns],
            "varnokctl luns, with the machine's own lsof": [*host, "--lsof", *list_luns],
            "varnok-host run true": [*host, "--", "/bin/true"],
            "iscsi-ls -s": ["iscsi-ls", "-s", f"iscsi://{target.portal}"],
        }
        # Among processes of their own: the storage is on another machine as a rule, and lsof looks at every process.
        timed = subprocess.run(["unshare", "--pid", "--fork", "--mount-proc", sys.executable, "-B", __file__, "--time",
                                json.dumps(commands), repetitions], capture_output=True, text=True, check=True)
        found[count] = json.loads(timed.stdout)
        target.end()
    result.write_text(json.dumps(found))


if __name__ == "__main__":
    if sys.argv[1] == "--time":
        print(json.dumps(time_in_turn(json.loads(sys.argv[2]), int(sys.argv[3]))))
    else:
        main()
