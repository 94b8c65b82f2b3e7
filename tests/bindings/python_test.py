"""The Python package on simulated hosts: python_test.py SOURCE_DIR BIN_DIR LIBRARY

A test with a scenario starts itself again there.
"""

import contextlib
import functools
import io
import ipaddress
import json
import os
import pathlib
import pickle
import re
import subprocess
import sys
import tempfile
import textwrap
import threading
import unittest

SOURCE, BIN, LIBRARY = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
PACKAGE = SOURCE / "bindings/python"
sys.path.insert(0, str(PACKAGE))

import varnok  # noqa: E402
from varnok import Status, _library, _lists, _records  # noqa: E402

LAB = json.loads((SOURCE / "examples/lab.json").read_text())
SHARED_FILE = pathlib.Path("/tmp/varnok_shared.dat")
READ, WRITE, INQUIRY = bytes([0x28, *[0] * 7, 1, 0]), bytes([0x2A, *[0] * 7, 1, 0]), b"\x12\0\0\0\x24\0"
TWO_PORTS = {"ports": [{"driver": "tepli"}, {"driver": "pelt", "sessions": [{}]}]}


def on_host(scenario):
    def decorate(test):
        @functools.wraps(test)
        def run(self):
            if "VARNOK_TEST_INSIDE" in os.environ:
                return test(self)
            with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
                json.dump(scenario, file)
                file.flush()
                result = subprocess.run(
                    [BIN / "varnok-host", "run", file.name, "--", sys.executable, "-B", __file__, *sys.argv[1:4], self.id()],
                    env={**os.environ, "VARNOK_TEST_INSIDE": "1", "LD_LIBRARY_PATH": str(LIBRARY.parent)},
                    capture_output=True, text=True, check=False)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            self.assertIn("Ran 1 test", result.stderr)
        return run
    return decorate


def fault(request, driver="pelt", **more):
    return {"driver": driver, "request": request, "times": 0, **more}


class PythonTest(unittest.TestCase):
    def fails(self, expected, name, call, function, *arguments, **named):
        with self.assertRaises(expected) as caught:
            function(*arguments, **named)
        self.assertEqual((caught.exception.name, caught.exception.call), (name, "VARNOK_" + call))
        self.assertIn(f"VARNOK_{call}: {name} (0x", str(caught.exception))
        self.assertEqual(str(pickle.loads(pickle.dumps(caught.exception))), str(caught.exception))
        return caught.exception

    @on_host(LAB)
    def test_what_the_texts_say_works(self):
        shown = re.findall(r"```python\n(.*?)```", (SOURCE / "README.md").read_text(), re.S)
        for text, last in [(shown[0], "    1 128849018880 ready\nvmhba68\n"),
                           (re.search("^    import.*?^(?=`)", varnok.__doc__, re.M | re.S)[0], "    1 128849018880\nvmhba68\n")]:
            output = io.StringIO()
            with contextlib.redirect_stdout(output):
                exec(textwrap.dedent(text), {})
            self.assertTrue(output.getvalue().endswith(last), output.getvalue())

    @on_host(LAB)
    def test_the_whole_host(self):
        with varnok.Library() as library:
            self.assertEqual((len(library), [port.instance for port in library]), (5, [0, 1, 2, 3, 4]))
            ports = {}
            for port in library:
                with port:
                    ports[port.instance] = (port.info(), port.portal(), port.sessions(),
                                            [(target, port.luns(target)) for target in port.targets()])
        self.assertFalse(SHARED_FILE.exists())
        info, portal, sessions, targets = ports[2]
        self.assertEqual((info.hba_name, info.mac, info.port_speed, info.port_speed.gbits_per_second, info.pcie_speed,
                          info.pcie_width, info.mfw_version, info.mtu, info.vendor_id, info.sess_count),
                         ("vmhba66", "02:1e:2b:c0:19:32", varnok.PortSpeed.GBIT_25, 25, varnok.PcieSpeed.GT_8_0,
                          varnok.PcieWidth.X8, "08.42.02.00", 9000, 0x1E2B, 1))
        self.assertEqual((portal.ipv4_address, portal.ipv6_address, portal.ipv4_port),
                         (ipaddress.ip_address("10.20.40.11"), ipaddress.ip_address("2001:db8:20:40::11"), 3260))
        self.assertEqual([(s.tgt_ipv4_address, str(s.tgt_ipv6_address), s.session_state) for s in sessions],
                         [(None, "2001:db8:20:40::201", 1)])
        (target, luns), = targets
        self.assertEqual((target.scsi_tgt_num, target.target_name, target.mac, target.lun_count),
                         (0, sessions[0].target_name, "02:aa:20:07:00:0a", 3))
        self.assertEqual([(lun.number, lun.capacity) for lun in luns], [(0, 2 << 40), (1, 24 << 40), (0x412C, 768 << 30)])
        self.assertEqual((ports[0][0].mfw_version, ports[1][1].ipv6_address, ports[4][1].ipv4_address), (None,) * 3)
        dvd = ports[3][3][0][1][0]
        self.assertEqual((dvd.capacity, dvd.device_type, dvd.vendor_name, dvd.product_revision), (None, 5, "OPENSTOR", "1.02"))
        self.assertEqual((ports[4][0].port_state, ports[4][2:]), (varnok.PortState.STATE_1, ([], [])))

    @on_host({"ports": [{"driver": "dxo", "hba_name": list(b"\xff\x1b[2J\\" + b"x" * 26), "port_state": 9, "pcie_width": 9,
                         "sessions": [{"tgt_iqn": "iqn.\u202e\n\u00e9", "luns": [{"vendor": "<b>", "lun": "0xC101000200030004"}]}]}]})
    def test_strange_names_and_numbers(self):
        with varnok.Library() as library, library[0] as port:
            info, (target,) = port.info(), port.targets()
            (lun,) = port.luns(0)
            self.assertEqual(port.send_scsi(INQUIRY, target=target, lun=lun, data_in=36).check()[8:16], b"<b>     ")
        self.assertEqual(info.hba_name.encode("utf-8", "surrogateescape"), b"\xff\x1b[2J\\" + b"x" * 26)
        self.assertEqual(varnok.printable(info.hba_name), r"\udcff\x1b[2J\\" + "x" * 26)
        self.assertEqual(varnok.printable(target.target_name), "iqn.\\u202e\\n\u00e9")
        self.assertTrue(repr((info, target, lun)).isprintable())
        self.assertEqual((info.port_state, info.pcie_width), (varnok.PortState.OTHER, varnok.PcieWidth.OTHER))
        self.assertEqual((lun.vendor_name, lun.scsi_lun_num, lun.scsi_lun_num_ext, lun.number),
                         ("<b>", 0x0002C101, 0x00040003, 0x000400030002C101))

    @on_host({"ports": [{"driver": "pelt", "repeat": 8, "sessions": [{"repeat": 3, "luns": [{"repeat": 3}]}]}, {"driver": "tepli"}],
              "faults": [fault("port_info", instance=1, nth=2, status=3), fault("sess_info", instance=2, target=1, status=7),
                         fault("tgt_info", instance=3, target=2, errno="EIO"), fault("tgt_info", instance=4, status=99),
                         fault("scsi_cmd", instance=5, target=0, lun=1, cdb="0x12", status=12),
                         fault("scsi_cmd", instance=6, cdb="0xa0", status=10),
                         fault("sess_info", instance=7, status=9), fault("open", driver="tepli", nth=3)]})
    def test_failures_have_names_and_keep_what_was_read(self):
        with varnok.Library() as library:
            ports = {port.instance: port for port in library}
            self.fails(varnok.Error, "ENOENT", "OpenAdapter", ports.pop(0).open)
            ports = {number - 1: port for number, port in ports.items()}
            for port in ports.values():
                port.open()
            for name in ("info", "portal", "sessions", "targets"):
                self.fails(varnok.Error, "VARNOK_STATUS_DRIVER_3", "GetPhyPortInfo", getattr(ports[1], name))
            for name, call, query, read in [
                    ("NOT_FOUND", "GetSessionInfo", ports[2].sessions, 1), ("DRIVER_FAILED", "GetTgtInfo", ports[3].targets, 2),
                    ("DRIVER_FAILED", "GetTgtInfo", ports[4].targets, 0), ("DRIVER_12", "GetLunInfo", lambda: ports[5].luns(0), 1),
                    ("NO_MEMORY", "GetLunInfo", lambda: ports[6].luns(1), 0),
                    ("INSUFFICIENT_BUFFER", "GetSessionInfo", ports[7].sessions, 0)]:
                error = self.fails(varnok.ListError, "VARNOK_STATUS_" + name, call, query)
                self.assertEqual(len(error.records), read, name)
            self.assertEqual([lun.number for lun in ports[5].luns(ports[5].targets()[1])], [0, 1, 2])
            self.assertEqual([target.lun_count for target in ports[6].targets()], [0, 0, 0])

    @on_host({"ports": [{"driver": "pelt", "session_cnt": 0xFFFFFFFF, "sessions": [{"repeat": 5000, "luns": []}]},
                        {"driver": "pelt", "session_cnt": 1, "sessions": [{"repeat": 3}]},
                        {"driver": "pelt", "sessions": [{"luns": [{"repeat": 2047}]}, {"luns": [{"repeat": 2048}]}, {"luns": []}]}]})
    def test_counts_that_lie(self):
        with varnok.Library() as library, library[0] as first, library[1] as second, library[2] as third:
            error = self.fails(varnok.ListError, "VARNOK_STATUS_NOT_FOUND", "GetSessionInfo", first.sessions)
            self.assertEqual([session.session_num for session in error.records], list(range(5000)))
            self.assertEqual(len(second.sessions()), 1)
            self.assertEqual([len(third.luns(0)), len(third.luns(2))], [2047, 0])
            error = self.fails(varnok.ListError, "VARNOK_STATUS_SUCCESS", "GetLunInfo", third.luns, 1)
            self.assertEqual(len(error.records), 2047)
            self.assertIn("2048 LUNs", str(error))

    def test_lists_that_change_meanwhile(self):
        """Each query's turns: how many entries the list has then, how many of them are written, and the status."""
        full, short = Status.VARNOK_STATUS_SUCCESS, Status.VARNOK_STATUS_INSUFFICIENT_BUFFER
        grows = [(n, 0, short) for n in range(5, 100)]
        for turns, expected in [([(3, 0, short), (3, 3, full)], (full, 3)), ([(3, 0, short), (2, 2, full)], (full, 2)),
                                ([(3, 0, short), (9, 0, short), (9, 9, full)], (full, 9)), ([(0, 0, short)], (short, 0)),
                                ([(3, 0, short), (3, 2, 7)], (7, 2)), (grows, (short, 0)), ([(7000, 0, short), (0, 7000, full)], (full, 7000))]:
            left = list(turns)

            def query(count, array):
                asks, writes, status = left.pop(0)
                room, count._obj.value = count._obj.value, asks or count._obj.value
                self.assertLessEqual(writes, room)
                for index in range(min(writes, _lists.MOST_MARKED)):
                    _records.TgtInfo.from_address(array._obj.value + 304 * index).ScsiTgtNum = index
                return status

            status, _, records = _lists.read_list(_records.TgtInfo, query)
            self.assertEqual((status, len(records)), expected)
            self.assertGreaterEqual(len(left), len(grows) - 20 if turns is grows else 0)

    @on_host({"ports": [{"driver": "pelt", "sessions": [{}, {}]}, {"driver": "tepli", "sessions": [{}, {}]}],
              "faults": [fault("scsi_cmd", driver=driver, target=1, sense="03/11/00", status=5) for driver in ("pelt", "tepli")]})
    def test_scsi_commands(self):
        with varnok.Library() as library, library[0] as legacy, library[1] as native:
            for port in (legacy, native):
                (lun,) = port.luns(0)
                answer = port.send_scsi(INQUIRY, target=0, lun=lun, data_in=300)
                self.assertEqual((len(answer.data), answer.check()[8:16], answer.data[36:], answer.sense, answer.sense_bytes),
                                 (300, b"MOLVAR  ", bytes(264), None, b""))
                block = bytes(range(256)) * 2
                self.assertEqual(port.send_scsi(WRITE, target=0, lun=0, data_out=bytearray(block)).data, b"")
                self.assertEqual(port.send_scsi(READ, target=0, lun=0, data_in=512).check(), block)
                self.assertEqual(port.send_scsi(bytes(6), target=port.targets()[0], lun=0).check(), b"")
                answer = port.send_scsi(READ, target=0, lun=1, data_in=512, sense_length=14)
                self.assertEqual((answer.data, str(answer.sense), len(answer.sense_bytes)), (bytes(512), "sense 05/25/00", 14))
                self.assertRaisesRegex(varnok.SenseError, "05/25/00", answer.check)
            call = (varnok.ScsiError, "VARNOK_STATUS_DRIVER_5", "SendScsiCommand")
            error = self.fails(*call, legacy.send_scsi, READ, target=1, lun=0, data_in=512)
            self.assertEqual((str(error.answer.sense), len(error.answer.data)), ("sense 03/11/00", 512))
            self.assertIsNone(self.fails(*call, native.send_scsi, READ, target=1, lun=0, data_in=512).answer.sense)
            self.fails(varnok.ScsiError, "VARNOK_STATUS_INVALID_PARAMETER", "SendScsiCommand",
                       native.send_scsi, READ, target=0, lun=0, data_in=262145)
            for wrong in [{"cdb": b""}, {"cdb": bytes(17)}, {"target": -1}, {"target": 1 << 32}, {"lun": 1 << 64},
                          {"data_in": -1}, {"data_in": 1 << 32}, {"sense_length": 257}, {"data_in": 1, "data_out": b"x"}]:
                with self.assertRaises(ValueError):
                    native.send_scsi(**{"cdb": bytes(6), "target": 0, "lun": 0, **wrong})
            self.assertRaises(ValueError, native.luns, -1)

    def test_sense_data(self):
        command = varnok.ScsiCommand(bytes(6), 0, 0)
        for text, expected, refused in [
                ("70000300000000 06 00000000 1100", "sense 03/11/00", True), ("70000100000000 06 00000000 1701", "sense 01/17/01", False),
                ("71000100000000 06 00000000 1701", "sense 01/17/01, deferred", True), ("70000500000000 00 00000000 2500", "sense 05/00/00", True),
                ("7205240000000000", "sense 05/24/00", True), ("730f000000000000", "sense 0f/00/00, deferred", True),
                ("7f05240000000000", "None", True), ("7205", "None", True), ("", "None", False)]:
            answer = varnok.ScsiAnswer(command, b"data", bytes.fromhex(text))
            self.assertEqual(str(answer.sense), expected)
            if refused:
                self.assertRaises(varnok.SenseError, answer.check)
            else:
                self.assertEqual(answer.check(), b"data")

    @on_host(TWO_PORTS)
    def test_what_is_closed_is_not_used(self):
        library, other = varnok.Library(), varnok.Library()
        self.assertRaises(varnok.UsageError, len, library)
        with library:
            with library:
                other.open()
                other[0].open()
                other.close()
            self.assertEqual(len(library), 2)
            self.assertEqual(_library.call("VARNOK_CloseAdapter", 1), Status.VARNOK_STATUS_FAILED)
        with library, library, library[0] as port:
            with port, other, other[0] as same:
                self.assertEqual(same.info(), port.info())
            self.assertRaises(varnok.UsageError, same.info)
            port.info()
            self.assertRaises(IndexError, library.__getitem__, 2)
            self.assertRaises(IndexError, library.__getitem__, -1)
            self.assertRaises(TypeError, library.__getitem__, 0.5)
            port.close()
            self.assertRaisesRegex(varnok.UsageError, "port 0 is not open", port.info)
            port.close()
            with other, other[1] as kept:
                kept.open()
                library.close()
                library.close()
                self.assertTrue(SHARED_FILE.exists())
                self.assertRaisesRegex(varnok.UsageError, "library is not open", port.open)
                kept.info()
        self.assertFalse(SHARED_FILE.exists())
        with library:
            for call in (port.open, kept.sessions, lambda: kept.luns(0), lambda: kept.send_scsi(bytes(6), target=0, lun=0)):
                self.assertRaisesRegex(varnok.UsageError, "library is not open", call)
            self.assertRaises(ZeroDivisionError, self.fails_inside, library)
            library[0].open()
        self.assertFalse(SHARED_FILE.exists())
        library.open()  # the end of the process closes it

    @staticmethod
    def fails_inside(library):
        with library[0]:
            return 1 / 0

    @on_host(TWO_PORTS)
    def test_the_end_of_the_process_frees_the_library(self):
        program = "import varnok; library = varnok.Library(); library.open(); print(len(library))"
        result = subprocess.run([sys.executable, "-B", "-c", program], env={**os.environ, "PYTHONPATH": str(PACKAGE)},
                                capture_output=True, text=True, check=True)
        self.assertEqual((result.stdout, SHARED_FILE.exists()), ("2\n", False))

    def in_child(self, function):
        child = os.fork()
        if child == 0:
            try:
                function()
                os._exit(0)
            except BaseException as error:  # pylint: disable=broad-except
                print(repr(error), file=sys.stderr)
                os._exit(1)
        self.assertEqual(os.waitpid(child, 0)[1], 0)

    @on_host(TWO_PORTS)
    def test_a_forked_process_leaves_its_parents_library_alone(self):
        def lists():
            with varnok.Library() as library, library[0] as port:
                port.info()

        def refused():
            for call in (port.info, port.open, lambda: len(library), library.open, lists):
                self.assertRaisesRegex(varnok.UsageError, "forked", call)
            port.close()
            library.close()

        self.in_child(lists)
        with varnok.Library() as library, library[0] as port:
            self.in_child(refused)
            self.assertTrue(SHARED_FILE.exists())
            port.info()
        locked, done = threading.Event(), threading.Event()

        def hold():
            with _library.lock:
                locked.set()
                done.wait()

        thread = threading.Thread(target=hold)
        thread.start()
        locked.wait()
        self.in_child(varnok.library_version)
        done.set()
        thread.join()
        self.in_child(lists)

    @on_host(TWO_PORTS)
    def test_calls_of_threads_never_overlap(self):
        inside, faults, real = [], [], None
        varnok.library_version()
        sys.setswitchinterval(1e-6)

        class Watched:
            def __getattr__(self, name):
                def function(*arguments):
                    inside.append(name)
                    result = getattr(real, name)(*arguments)
                    if inside != [name]:
                        faults.append(list(inside))
                    inside.remove(name)
                    return result
                return function

        real, _library._library = _library._library, Watched()

        def work():
            try:
                for _ in range(100):
                    with varnok.Library() as library, library[1] as port:
                        varnok.library_version()
                        port.luns(port.targets()[0])
                        port.send_scsi(bytes(6), target=0, lun=0)
            except BaseException as error:  # pylint: disable=broad-except
                faults.append(error)

        with varnok.Library():
            threads = [threading.Thread(target=work) for _ in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(faults, [])

    @on_host({"drivers": ["rovani"]})
    def test_a_host_without_adapters(self):
        with varnok.Library() as library, varnok.Library() as again:
            self.assertEqual((len(library), list(again), bool(library)), (0, [], False))

    @on_host({"host": {"sysname": "Linux"}, "ports": [{"driver": "pelt"}]})
    def test_a_machine_that_is_no_host(self):
        for _ in range(2):
            self.fails(varnok.Error, "VARNOK_STATUS_FAILED", "LoadLibrary", varnok.Library().open)
            self.in_child(lambda: self.assertRaises(varnok.Error, varnok.Library().open))
        self.assertEqual(varnok.library_version(), (5, 0, 2))

    def test_a_machine_without_the_library(self):
        program = "import varnok\nvarnok._library.SONAME = 'no-such.so'\nvarnok.library_version()"
        result = subprocess.run([sys.executable, "-B", "-c", program], env={**os.environ, "PYTHONPATH": str(PACKAGE)},
                                capture_output=True, text=True, check=False)
        self.assertRegex(result.stderr, "LibraryNotFoundError: no-such.so cannot be used .* Install libvarnok")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *(name.split(".", 1)[1] for name in sys.argv[4:])], verbosity=2)
