"""A real iSCSI target behind the library: live_test.py BIN_DIR LIBRARY

tgtd serves a loopback port from user space; what the library says of it must equal what libiscsi's own tools say."""

import ctypes
import json
import os
import pathlib
import pty
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

BIN, LIBRARY = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
HELP = subprocess.run([BIN / "varnok-host", "run", "--help"], check=True, capture_output=True, text=True).stdout
DRIVERS = re.search("--driver TEXT:{(.*)}", HELP)[1].split(",")
NAMES = ["iqn.2026-01.com.example:large", "iqn.2026-01.com.example:small"]
SIZES = {NAMES[0]: [3 << 40, 1 << 30], NAMES[1]: [5 << 20]}


class Command(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [("Version", ctypes.c_uint32), ("LunExt", ctypes.c_uint32), ("Tgt", ctypes.c_uint32),
                ("Lun", ctypes.c_uint32), ("Direction", ctypes.c_uint8), ("CDBLength", ctypes.c_uint8),
                ("CDB", ctypes.c_uint8 * 16), ("SenseLength", ctypes.c_uint16), ("Sense", ctypes.c_uint8 * 256)]


def be_told():
    """The part that runs on the simulated host: does what it is told, a line at a time."""
    varnok = ctypes.CDLL(LIBRARY)
    handle = ctypes.c_uint32()
    assert varnok.VARNOK_LoadLibrary() == 0 and varnok.VARNOK_OpenAdapter(0, ctypes.byref(handle)) == 0
    for line in sys.stdin:
        target, lun, direction, cdb, data = line.split()
        data = ctypes.create_string_buffer(bytes.fromhex(data), len(data) // 2)
        cdb = bytes.fromhex(cdb)
        command = Command(Tgt=int(target), Lun=int(lun), Direction=int(direction), CDBLength=len(cdb), SenseLength=96)
        command.CDB[:len(cdb)] = cdb
        length = ctypes.c_uint32(len(data))
        status = varnok.VARNOK_SendScsiCommand(handle, ctypes.byref(command), ctypes.byref(length), data)
        print(status & 0xFFFFFFFF, bytes(command.Sense[:18]).hex(), data.raw.hex(), flush=True)


def libiscsi(tool, *arguments):
    return subprocess.run([tool, *arguments], capture_output=True, text=True, check=True).stdout


class LiveTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="varnok-live-")
        self.addCleanup(self.folder.cleanup)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.portal = f"127.0.0.1:{free.getsockname()[1]}"
        self.start_target()
        self.addCleanup(self.kill_target)

    def start_target(self):
        environment = {**os.environ, "TGT_IPC_SOCKET": self.folder.name + "/socket"}
        self.target = subprocess.Popen(["tgtd", "-f", "-C", "7", "--iscsi", "portal=" + self.portal], env=environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def admin(*arguments):
            command = ["tgtadm", "-C", "7", "--lld", "iscsi", "--op", *arguments]
            return subprocess.run(command, env=environment, capture_output=True, check=False).returncode

        while admin("show", "--mode", "system") != 0:
            self.assertIsNone(self.target.poll(), "tgtd does not run")
            time.sleep(0.05)
        for tid, name in enumerate(NAMES, 1):
            self.assertEqual(admin("new", "--mode", "target", "--tid", str(tid), "-T", name), 0)
            for lun, size in enumerate(SIZES[name], 1):
                image = pathlib.Path(self.folder.name, f"{tid}-{lun}.img")
                if not image.exists():
                    image.touch()
                    os.truncate(image, size)
                self.assertEqual(admin("new", "--mode", "logicalunit", "--tid", str(tid), "--lun", str(lun),
                                       "-b", str(image)), 0)
                # The first LUNs of both targets say that they are one device.
                self.assertEqual(admin("update", "--mode", "logicalunit", "--tid", str(tid), "--lun", str(lun), "--params",
                                       f"scsi_id=ID {lun},scsi_sn=SN-{lun}"), 0)
            self.assertEqual(admin("bind", "--mode", "target", "--tid", str(tid), "-I", "ALL"), 0)
        self.admin = admin

    def kill_target(self):
        self.target.kill()
        self.target.wait()

    def on_host(self, driver, *program):
        return [BIN / "varnok-host", "run", "--portal", self.portal, "--driver", driver, "--", *program]

    def inventory(self, driver, command):
        result = subprocess.run(self.on_host(driver, BIN / "varnokctl", command, "--bytes"), capture_output=True,
                                text=True, timeout=60, check=False, env={**os.environ, "COLUMNS": "200"})
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def test_the_inventory_is_that_of_the_initiator_s_own_tools(self):
        portal = f"iscsi://{self.portal}"
        names = sorted(re.findall(r"^Target:(\S+)", libiscsi("iscsi-ls", portal), re.M))
        self.assertEqual(names, NAMES)
        expected = []
        for target, name in enumerate(names):
            for lun, size in enumerate(SIZES[name], 1):
                # iscsi-ls -s cuts a size to a whole unit of 32 bits' worth: it is not asked.
                answer = libiscsi("iscsi-readcapacity16", f"{portal}/{name}/{lun}")
                self.assertIn(f"Total size:{size}\n", answer)
                inquiry = libiscsi("iscsi-inq", f"{portal}/{name}/{lun}")
                vendor, product = (re.search(rf"^{what}:(.*?)\s*$", inquiry, re.M)[1] for what in ("Vendor", "Product"))
                expected.append((target, lun, size, vendor, product))
        for driver in DRIVERS:
            with self.subTest(driver):
                rows = re.findall(r"^ *\d+ +(\d+) +(\d+) +disk .*? (\d+)  (\S+) +(\S+)", self.inventory(driver, "luns"), re.M)
                self.assertEqual([(int(t), int(l), int(s), v, p) for t, l, s, v, p in rows], expected)
                tree = self.inventory(driver, "tree")
                for name in names:
                    self.assertIn(f"{name}  {self.portal}", tree)

    def test_identities_are_those_of_the_initiator_s_own_tools(self):
        result = subprocess.run(self.on_host("pelt", BIN / "varnokctl", "luns", "--identity", "--json"), capture_output=True, text=True,
                                timeout=60, check=True)
        luns = [lun for lun in json.loads(result.stdout)["luns"] if lun["type"]["text"] == "disk"]
        wwids, serials = ([lun["identity"][key] for lun in luns] for key in ("wwid", "serial"))
        self.assertEqual((wwids[0], serials), (wwids[2], ["SN-1", "SN-2", "SN-1"]))
        self.assertNotEqual(wwids[0], wwids[1])
        for lun in luns:
            identity, place = lun["identity"], f"iscsi://{self.portal}/{NAMES[lun['target']]}/{lun['lun']['number']}"
            serial, page = (libiscsi("iscsi-inq", "-e", "1", "-c", str(number), place) for number in (0x80, 0x83))
            self.assertEqual(re.search(r"Serial Number:\[ *(.*?) *\]", serial)[1], identity["serial"])
            theirs = re.findall(r"Code Set:\((\d+)\)[^(]+Association:\((\d+)\)[^(]+Type:\((\d+)\)[^[]+\[(.*?)\]", page)
            words = subprocess.run(self.on_host("pelt", BIN / "varnokctl", *f"scsi -p 0 -t {lun['target']}".split(), "-l",
                                                lun["lun"]["raw"], "vpd", "83", "--json"),
                                   capture_output=True, text=True, timeout=60, check=True)
            ours = json.loads(words.stdout)["decoded"]["designators"]
            self.assertEqual([(d["code_set"]["code"], d["association"]["code"], d["type"]["code"]) for d in ours],
                             [tuple(map(int, codes)) for *codes, _ in reversed(theirs)])
            # Of binary designators the other tool shows only the first byte.
            self.assertEqual([d["value"] if d["code_set"]["code"] == 2 else chr(int(d["value"][:2], 16)) for d in ours],
                             [text for *_, text in reversed(theirs)])
            self.assertEqual(identity["wwid"], "3" + max(d["value"] for d in ours if d["type"]["code"] == 3))

    def test_data_sense_and_a_target_that_goes_away(self):
        block = bytes(range(256)).hex() * 2
        ten = "{:02x}00{:08x}00{:04x}00".format
        for driver in DRIVERS:
            with self.subTest(driver):
                program = subprocess.Popen(self.on_host(driver, sys.executable, __file__, *sys.argv[1:3], "--be-told"),
                                           stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

                def tell(*words):
                    program.stdin.write(" ".join(words) + "\n")
                    program.stdin.flush()
                    status, sense, data = program.stdout.readline().split()
                    return int(status), sense, data

                self.assertEqual(tell("1", "1", "2", ten(0x2A, 7, 1), block)[0], 0)
                self.assertEqual(tell("1", "1", "1", ten(0x28, 7, 1), "ee" * 512), (0, "00" * 18, block))
                status, sense, _ = tell("1", "1", "1", ten(0x28, 0x2800, 1), "ee" * 512)
                self.assertEqual((status, sense[4:6], sense[24:28]), (0, "05", "2100"))
                self.kill_target()
                self.assertEqual(tell("1", "1", "1", ten(0x28, 7, 1), "ee" * 512)[0], 0x8000000B)
                self.start_target()
                self.assertEqual(tell("1", "1", "1", ten(0x28, 7, 1), "ee" * 512), (0, "00" * 18, block))
                program.stdin.close()
                self.assertEqual(program.wait(), 0)
                program.stdout.close()

    def test_a_login_that_needs_a_secret(self):
        for words in (["new", "--password", "a secret of some length"], ["bind", "--tid", "2"]):
            self.assertEqual(self.admin(*words[:1], "--mode", "account", "--user", "varnok", *words[1:]), 0)
        for secret, luns in (("not it at all, really", 0), ("a secret of some length", 2)):
            environment = {**os.environ, "VARNOK_CHAP_USER": "varnok", "VARNOK_CHAP_SECRET": secret}
            result = subprocess.run(self.on_host("pelt", BIN / "varnokctl", "luns", "--target", "1"), env=environment,
                                    capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual(len(re.findall("IET", result.stdout)), luns, result)

    def test_a_line_on_a_terminal_shows_what_is_waited_for(self):
        self.kill_target()
        host, port = self.portal.split(":")
        ours, theirs = pty.openpty()
        with socket.create_server((host, int(port))): # takes the connection and says nothing
            subprocess.run(self.on_host("pelt", BIN / "varnokctl", "ports"), stderr=theirs, stdout=subprocess.DEVNULL, timeout=60,
                           check=False, env={**os.environ, "VARNOK_HOST_TIMEOUT": "1"})
        os.close(theirs)
        shown = os.read(ours, 10000).decode()
        waits, _, rest = shown.partition("\r\x1b[K")
        self.assertIn(f"\rvarnok-host: port 0, portal {self.portal}: asking for its targets", waits)
        self.assertTrue(rest.startswith(f"varnok-host: port 0, portal {self.portal}: timed out"), repr(shown))

    def test_a_portal_that_does_not_answer(self):
        self.kill_target()
        for driver in DRIVERS:
            result = subprocess.run(self.on_host(driver, BIN / "varnokctl", "luns"), capture_output=True, text=True, timeout=60,
                                    check=False)
            self.assertEqual(result.returncode, 1)
            self.assertIn("VARNOK_GetPhyPortInfo, port 0: VARNOK_STATUS_DRIVER_FAILED", result.stderr)


if __name__ == "__main__":
    if "--be-told" in sys.argv:
        be_told()
    else:
        missing = [tool for tool in ("tgtd", "tgtadm", "iscsi-ls", "iscsi-inq", "iscsi-readcapacity16") if shutil.which(tool) is None]
        if missing:
            print("skipped: there is no", ", ".join(missing))
            sys.exit(77)
        unittest.main(argv=sys.argv[:1], verbosity=2)
