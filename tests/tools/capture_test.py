"""A host that varnokctl captured shows itself again: capture_test.py SOURCE_DIR BIN_DIR"""

import json

import jsonschema

from tools_support import FAULT, LAB, SOURCE, ToolCase, main, on_host

VALIDATOR = jsonschema.Draft202012Validator(json.loads((SOURCE / "varnokctl/schema/varnok-1.json").read_text()))
SHOWN = [["tree"], ["tree", "--json"], *([command, *flags] for command in ["ports", "portals", "sessions", "targets", "luns"]
                                         for flags in ([], ["--json"])), ["luns", "--bytes"], ["capture"]]
MOST = 2**64 - 1
ESCAPES = "\u001b[2J\"\\\u202e"
BROKEN = [105, 113, 110, 255, 27, 92, 128]
LUNS = [{"lun": 300, "size": 0}, {"lun": 7, "size": MOST, "block_size": 1}, {"lun": "0x4005000000000000", "size": 512},
        {"lun": "0x0001000200030004", "device_type": 0x7F}, {"lun": "0xd200012c00000000", "size": 1000, "block_size": 8},
        {"lun": 0, "device_type": 5}, {"lun": 1, "device_type": 1, "size": "1 TiB", "vendor": [255] * 8, "product": "x" * 16},
        {"lun": 2, "device_type": 0x20, "size": "4 MiB", "block_size": 4096, "product": " a\u0000b", "revision": ESCAPES[:4]}]
SESSIONS = [{"sess_num": 77, "sess_unique": MOST, "cid": 2**32 - 1, "state": 255, "initial_r2t": 1, "imm_data": 0, "erl": 2,
             "max_r2t": 9, "first_burst_len": 2**32 - 1, "pdu_inorder": 0, "dataseq_inorder": 0, "tgt_iqn": BROKEN,
             "init_iqn": "i" * 256, "target": {"iqn": ESCAPES, "isid": "no digits", "ipv4_port": 1}, "luns": LUNS},
            {"tgt_ipv6addr": "fe80::7", "isid": "00023d0a0b0c", "luns": []},
            {"tgt_ipv4addr": "0.0.0.0", "luns": [{"repeat": 3, "size": 512}]},
            {"logged_in": False, "state": 7, "tgt_iqn": "iqn.x:never", "target": {"mac": "02:00:00:00:00:01"}, "luns": []}]
ODD = {"hba_name": ESCAPES, "model_name": "m" * 32, "model_desc": BROKEN, "serial_num": "", "fw_version": "é\u0000z",
       "mac": "ff:00:ff:00:ff:00", "mtu": 2**32 - 1, "port_state": 7, "port_speed": 1, "pcie_speed": 99, "pcie_width": 12,
       "mfw_version": "0xff630a00", "chip_rev_id": 2**32 - 1, "domain_num": 65535, "function_num": 7, "port_num": 300,
       "ipv4addr": "0.0.0.0", "ipv6addr": "::", "ipv6_port": 1, "sessions": SESSIONS}


class CaptureTest(ToolCase):
    def test_what_never_logged_in_has_names_only(self):
        path = self.scenario({"ports": [{"driver": driver, "sessions": [{"logged_in": False, "luns": []}]} for driver in ("pelt", "tepli")]})
        for port in json.loads(on_host(path, "capture").stdout)["ports"]:
            session = port["sessions"][0]
            self.assertEqual(set(session), {"sess_num", "init_iqn", "tgt_iqn", "luns", "target", "logged_in"})
            self.assertEqual(set(session["target"]), {"iqn"})

    def replayed(self, host, status=0):
        """Captures the host, and compares what the commands show of the two."""
        first = self.scenario(host)
        captured = on_host(first, "capture", "--json")
        self.assertEqual((captured.returncode, captured.stderr), (status, ""))
        self.assertEqual(on_host(first, "capture").stdout, captured.stdout)
        VALIDATOR.validate(json.loads(captured.stdout))
        second = self.scenario(captured.stdout)
        for arguments in SHOWN:
            seen, again = on_host(first, *arguments), on_host(second, *arguments)
            self.assertIn(seen.returncode, (0, status), (arguments, seen.stderr))
            self.assertEqual((seen.returncode, seen.stdout, seen.stderr), (again.returncode, again.stdout, again.stderr))
        return json.loads(captured.stdout)

    def test_every_driver(self):
        for driver, other in ("rovani", "dxo"), ("tepli", "pelt"), ("pelt", "tepli"), ("dxo", "rovani"):
            with self.subTest(driver):
                ports = [ODD, {"repeat": 2, "pcie_width": 32, "port_speed": 50000, "port_state": 1, "sessions": [{"repeat": 3}]}]
                self.replayed({"ports": [{"driver": driver, **port} for port in ports] + [{"driver": other}]})

    def test_other_hosts(self):
        lab = json.loads(LAB.read_text())
        own_names = [{"driver": driver, "driver_name": "", "sessions": [{}]} for driver in ("rovani", "pelt")]
        for host in lab, {"drivers": ["tepli"]}, {"ports": own_names}:
            self.assertNotIn("faults", self.replayed(host))

    def test_identities(self):
        naa, eui = "0x6" + "0" * 30 + "1", "0x0123456789abcdef01234567"
        disk = {"size": 2**40, "block_size": 4096, "physical_block_size": 32768, "vendor": "V", "product": "P", "revision": "R",
                "serial": " S  ", "designators": [{"naa": naa}, {"t10": "VENDOR  1 "}, {"eui64": eui}, {"scsi_name": "iqn.x:é"},
                                                  {"t10": [1, 2, 3, 4, 5, 6, 7, 0]}], "provisioning": "thin"}
        tape = {**disk, "size": 0, "device_type": 1, "serial": [255], "designators": [{"naa": "0x3000000000000001"}]}
        for key in "block_size", "physical_block_size", "provisioning":
            tape.pop(key)
        bare = {**disk, "serial": "", "designators": [], "provisioning": "resource"}
        other = {**disk, "provisioning": "full"}
        luns = [[{"lun": 0, **disk}, {"lun": 1, "device": "t"}, {"lun": 2, **bare}, {"lun": 3, **other}, {"lun": 4, **other}],
                [{"lun": 300, **disk}, {"lun": 5, **bare}], [{"lun": 0, "device": "t"}, {"lun": 9, "device": "t"}]]
        first = {"devices": {"t": tape}, "ports": [
            {"driver": "dxo", "sessions": [{"luns": luns[0]}, {"luns": luns[1]}]}, {"driver": "dxo", "sessions": [{"luns": luns[2]}]}]}
        captured = self.replayed(first)
        self.assertEqual(captured["devices"], {"device-1": disk, "device-2": tape})
        refer = [{"lun": lun, "device": f"device-{n}"} for lun, n in ((0, 1), (1, 2), (300, 1), (0, 2), (9, 2))]
        self.assertEqual([session["luns"] for port in captured["ports"] for session in port["sessions"]],
                         [refer[:2] + luns[0][2:], [refer[2], luns[1][1]], refer[3:]])
        paths = [self.scenario(first), self.scenario(captured)]
        for lun in range(4):
            for cdb in *(f"12 1 {page} 1 0 0" for page in ("0", "80", "83", "b0", "b2")), "9e 10" + " 0" * 11 + " 20 0 0":
                raw = ["scsi", "-p", "0", "-t", "0", "-l", str(lun), "--in", "256", "--", *cdb.split()]
                self.assertEqual(*(on_host(path, *raw).stdout for path in paths))
        # What the device lacks is left out, what fails is told. The fifth command and those after it ask for the pages.
        for nth, gone in (5, {"serial": "", "designators": [], "provisioning": None}), (6, {"serial": ""}), \
                (7, {"designators": []}), (8, {"provisioning": None}), (9, {"block_size": None, "physical_block_size": None}):
            refused = "medium error: unrecovered read error"
            for fails, check_condition, why in ({"sense": "05/24/00"}, 0, None), ({"sense": "05/24/00"}, 6, None), \
                    ({"sense": "06/29/00"}, 0, ""), ({"sense": "06/29/00"}, 6, ""), ({"sense": "03/11/00"}, 0, refused), \
                    ({"sense": "03/11/00"}, 6, refused), ({"status": 6}, 0, "driver status 6"):
                with self.subTest(nth=nth, fails=fails, check_condition=check_condition):
                    path = self.scenario({"host": {"check_condition_status": check_condition},
                                          "ports": [{"driver": "dxo", "sessions": [{"luns": [disk]}]}],
                                          "faults": [{"driver": "dxo", "request": "scsi_cmd", "nth": nth, **fails}]})
                    result = on_host(path, "capture")
                    lun, = json.loads(result.stdout)["ports"][0]["sessions"][0]["luns"]
                    unknown = {"serial": "", "designators": [], "provisioning": None, "block_size": None, "physical_block_size": None}
                    lost = gone if why is None else unknown if why else {}
                    expected = {k: v for k, v in {"lun": 0, **disk, **lost}.items() if v is not None}
                    self.assertEqual((result.returncode, lun), (3 if why else 0, expected))
                    self.assertIn(f"it does not tell its identity: {why}; next:" if why else "", result.stderr)
                    self.assertEqual(result.stderr == "", not why)

    def test_failures(self):
        lab = json.loads(LAB.read_text())
        for fails in ({"status": 6}, {"errno": "ENXIO"}):
            for first, fault in (lab, FAULT), ({"ports": lab["ports"][3:]}, {**FAULT, "instance": 0}):
                captured = self.replayed({**first, "faults": [{**fault, **fails}]}, status=3)
                self.assertEqual(captured["faults"], [{**fault, **({"errno": "EIO"} if "errno" in fails else fails)}])
        # Of so many LUNs some are counted but never listed, and a target may not answer for its list.
        more = {"ports": [{"driver": "dxo", "sessions": [{"luns": [{"repeat": 2050, "size": 512}]}]}]}
        silent = {"ports": [{"driver": "dxo", "sessions": [{}]}],
                  "faults": [{"driver": "dxo", "request": "scsi_cmd", "nth": 2, "times": 0, "sense": "03/11/00"}]}
        self.assertEqual(self.replayed(more, status=3)["failures"][0]["name"], "list incomplete")
        self.assertEqual(on_host(self.scenario(silent), "luns").returncode, 1)
        scsi = {"driver": "rovani", "request": "scsi_cmd", "instance": 0, "nth": 8, "status": 12}
        partial = on_host(self.scenario({**lab, "faults": [scsi]}), "capture")
        document = json.loads(partial.stdout)
        VALIDATOR.validate(document)
        self.assertEqual((partial.returncode, document["complete"]), (3, False))
        self.assertIn("VARNOK_GetLunInfo, port 0, target 0", partial.stderr)
        # What fails below the port fails there, too.
        below = {"driver": "dxo", "request": "scsi_cmd", "instance": 0, "times": 0}
        lun, inquiry = {"driver": "rovani", "target": 1, "lun": 0}, {"cdb": "0x1200", "sense": "02/04/01"}
        for fault in {**below, "sense": "02/04/01"}, {**below, "errno": "EIO"}, {**below, "nth": 3, "sense": "03/11/00"}, \
                {**below, **lun, **inquiry}, {**below, **lun, "cdb": "0x1201", "status": 6}, \
                {**below, **lun, "cdb": "0x25", "sense": "03/11/00"}, {**below, "driver": "rovani", "target": 1, "cdb": "0x12", "status": 6}, \
                {**below, "driver": "rovani", "nth": 8, "status": 12}, \
                {"driver": "rovani", "request": "tgt_info", "instance": 0, "times": 0, "target": 1, "status": 5}, \
                {"driver": "rovani", "request": "sess_info", "instance": 0, "times": 0, "errno": "EIO"}:
            with self.subTest(fault):
                host = self.scenario({**lab, "faults": [fault]})
                result = on_host(host, "capture")
                VALIDATOR.validate(json.loads(result.stdout))
                replay = self.scenario(result.stdout)
                again = on_host(replay, "capture")
                unread = [[[failure[key] for key in ("call", "status", "port", "target", "lun", "meaning")] for failure in
                           json.loads(text)["failures"]] for text in (result.stdout, again.stdout)]
                self.assertEqual((result.returncode, again.returncode, unread[0]), (3, 3, unread[1]))
                self.assertNotEqual(unread[0], [])
                for command in ["health"], ["targets"], ["luns", "--json"]:
                    self.assertEqual(*((run.returncode, run.stdout, run.stderr) for run in
                                       (on_host(path, *command) for path in (host, replay))), command)
        refused = on_host(self.scenario({"host": {"euid": 1}}), "capture")
        self.assertEqual((refused.returncode, refused.stdout), (4, ""))


if __name__ == "__main__":
    main()
