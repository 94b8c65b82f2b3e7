"""varnokctl --json on simulated hosts, against its schema: json_test.py SOURCE_DIR BIN_DIR"""

import json
import resource

import jsonschema

from tools_support import FAULT, LAB, LISTINGS, SOURCE, ToolCase, main, on_host

SCHEMA = json.loads((SOURCE / "varnokctl/schema/varnok-1.json").read_text())
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)
COMMANDS = [*LISTINGS, "tree", "version"]


def pairs_once(pairs):
    assert len(dict(pairs)) == len(pairs), pairs
    return dict(pairs)


class JsonTest(ToolCase):
    def document(self, scenario, *arguments, status=0, **options):
        result = on_host(scenario, *arguments, "--json", **options)
        self.assertEqual((result.returncode, result.stderr), (status, ""), result.stdout)
        document = json.loads(result.stdout, object_pairs_hook=pairs_once)
        self.assertEqual(next(iter(document)), "schema")
        self.assertEqual(document["command"], arguments[0])
        VALIDATOR.validate(document)
        return document

    def test_the_schema_takes_no_less_and_no_more(self):
        VALIDATOR.check_schema(SCHEMA)
        for command in COMMANDS:
            document = self.document(LAB, command)
            for place in [document, document.get(command, document.get("ports", [{}]))[0:1] or [{}]]:
                record = place if isinstance(place, dict) else place[0]
                for key in list(record):
                    value = record.pop(key)
                    self.assertFalse(VALIDATOR.is_valid(document), (command, key))
                    record[key] = value
            document["more"] = 1
            self.assertFalse(VALIDATOR.is_valid(document), command)

    def test_documents_hold_the_lab(self):
        self.compare("luns_port_2.json", on_host(LAB, "luns", "--port", "2", "--json").stdout)
        tree = self.document(LAB, "tree")
        targets = [target for port in tree["ports"] for target in port["targets"]]
        inside = {"ports": tree["ports"], "portals": [port["portal"] for port in tree["ports"]], "targets": targets,
                  "sessions": [target["session"] for target in targets],
                  "luns": [lun for target in targets for lun in target["luns"]]}
        for command in LISTINGS:
            listed = self.document(LAB, command)[command]
            self.assertTrue(listed)
            self.assertEqual(listed, [{key: record[key] for key in listed[0]} for record in inside[command]])
        self.assertEqual(self.document(LAB, "luns", "--port", "2")["luns"],
                         [l for l in self.document(LAB, "luns")["luns"] if l["port"] == 2])

    def test_devices_and_findings_hold_the_lab(self):
        for command, key, status in ("paths", "devices", 0), ("health", "findings", 2):
            document = self.document(LAB, command, status=status)
            places = [document, document[key][0]]
            if command == "paths":
                places += [document[key][0]["paths"][0]]
                luns = [(p["port"], p["target"], p["lun"]["raw"]) for device in document[key] for p in device["paths"]]
                listed = [(l["port"], l["target"], l["lun"]["raw"]) for l in self.document(LAB, "luns")["luns"]]
                self.assertEqual(sorted(luns), sorted(listed))
            for record in places:
                for name in list(record):
                    value = record.pop(name)
                    self.assertFalse(VALIDATOR.is_valid(document), name)
                    record[name] = value
                record["more"] = 1
                self.assertFalse(VALIDATOR.is_valid(document))
                del record["more"]
        lab = json.loads(LAB.read_text())
        lab["ports"][1] = {**lab["ports"][0], "hba_name": "a\x1b", "port_num": 2}
        for command, status in ("paths", 3), ("health", 2):
            path = self.scenario({**lab, "faults": [{**FAULT, "status": 6}]})
            self.assertFalse(self.document(path, command, status=status)["complete"])
        for host, status in ({"drivers": ["rovani"]}, 3), ({"host": {"euid": 1}}, 3):
            self.assertEqual(self.document(self.scenario(host), "health", status=status)["status"], "unknown")

    def test_nothing_there_gives_empty_lists(self):
        hosts = [{"drivers": ["rovani"]}, {"ports": [{"driver": "dxo"}]},
                 {"ports": [{"driver": "pelt", "sessions": [{"luns": []}]}]}]
        empty = [LISTINGS + ["tree"], ["sessions", "targets", "luns"], ["luns"]]
        for host, commands in zip(hosts, empty):
            for command in commands:
                document = self.document(self.scenario(host), command)
                self.assertEqual(document["ports" if command == "tree" else command], [])

    def test_wrong_usage(self):
        for arguments in ["lunes"], ["luns", "--sort", "x"], ["scsi", "--in", "8", "tur"], ["luns", "\xff\x1b\n"], []:
            result = on_host(LAB, *arguments, "--json")
            self.assertEqual((result.returncode, result.stderr), (2, ""))
            VALIDATOR.validate(json.loads(result.stdout))
            self.assertEqual(json.loads(result.stdout)["failures"][0]["name"], "wrong usage")

    def test_large_numbers_are_decimal_strings(self):
        most = 2**64 - 1
        path = self.scenario({"ports": [{"driver": "dxo", "sessions": [
            {"sess_unique": most, "cid": 2**32 - 1, "luns": [{"size": most - 511}]}]}]})
        self.assertEqual(self.document(path, "luns")["luns"][0]["bytes"], str(most - 511))
        session, = self.document(path, "sessions")["sessions"]
        self.assertEqual((session["identifier"], session["connection"]), (str(most), str(2**32 - 1)))

    def test_luns_by_their_addressing_method(self):
        luns = [("0001000200000000", "levels", None), ("0007000000000000", "peripheral", 7), ("0107000000000000", "peripheral", None),
                ("412c000000000000", "flat", 300), ("8123000000000000", "logical unit", None),
                ("c101000000000000", "well-known", 1), ("d200012c00000000", "extended flat", 300),
                ("e1000001aabb0000", "other", None)]
        path = self.scenario({"ports": [{"driver": "pelt", "sessions": [
            {"luns": [{"lun": "0x" + raw} for raw, _, _ in luns]}]}]})
        got = [lun["lun"] for lun in self.document(path, "luns")["luns"]]
        self.assertEqual([(l["raw"], l["method"], l["number"]) for l in got], luns)

    def test_hostile_texts_are_escaped_as_in_tables(self):
        name = "a\x1b[2J\u009b\r\u202e\x7f\\\"é z"
        path = self.scenario({"ports": [{"driver": "pelt", "hba_name": name, "model_name": "x" * 32}]})
        escaped = "a\\x1B[2J\\xC2\\x9B\\x0D\\xE2\\x80\\xAE\\x7F\\x5C\"é z"
        for flags, locale in ((), "C.UTF-8"), ((), "C"), (("--ascii",), "C.UTF-8"):
            port, = self.document(path, "ports", *flags, locale=locale)["ports"]
            self.assertEqual((port["name"], port["model"]), (escaped, "x" * 32))
        self.assertTrue(on_host(path, "ports", "--json", "--ascii").stdout.isascii())

    def test_identities_are_read_when_they_are_asked_for(self):
        unit = {"serial": " S1", "provisioning": "thin", "block_size": 4096, "physical_block_size": 8192, "size": "1 MiB",
                "designators": [{"t10": "VENDOR  a \x1b"}, {"eui64": "0x0011223344556677"}, {"naa": "0x3000000000000001"},
                                {"naa": "0x5000000000000002"}, {"scsi_name": "iqn.a"}]}
        host = {"ports": [{"driver": "dxo", "sessions": [{"luns": [unit, {"device_type": 5, "serial": "", "designators": []}]}]}]}
        path = self.scenario(host)
        known = {"wwid": "35000000000000002", "serial": "S1", "naa": "5000000000000002", "eui64": "0011223344556677",
                 "t10": "VENDOR  a \\x1B", "scsi_name": "iqn.a", "block_size": 4096, "physical_block_size": 8192,
                 "provisioning": "thin"}
        nothing = dict.fromkeys(known)
        self.assertEqual([lun["identity"] for lun in self.document(path, "luns")["luns"]], [None, None])
        for luns in (self.document(path, "luns", "--identity")["luns"], self.document(path, "luns", "--details")["luns"],
                     self.document(path, "tree", "--identity")["ports"][0]["targets"][0]["luns"]):
            self.assertEqual([lun["identity"] for lun in luns], [known, nothing])
        # A device may refuse and the others be read; when the adapter fails, nothing more is asked.
        fault = {"driver": "dxo", "request": "scsi_cmd", "nth": 8}
        for more, expected in ({"sense": "04/44/00"}, [None, nothing]), ({"status": 6}, [None, None]):
            path = self.scenario({**host, "faults": [{**fault, **more}]})
            got = self.document(path, "luns", "--identity", status=3)
            self.assertEqual([lun["identity"] for lun in got["luns"]], expected)
            self.assertEqual(got["failures"][0]["lun"]["number"], 0)
            self.assertIn("it does not tell its identity: ", got["failures"][0]["meaning"])

    def test_failures_keep_what_was_read(self):
        lab = json.loads(LAB.read_text())
        scsi = {"driver": "rovani", "request": "scsi_cmd", "instance": 0, "nth": 3, "times": 0, "status": 12}
        cases = [
            (4, {"host": {"euid": 1000}}, ["ports"], "LoadLibrary", None, None, 0),
            (3, {**lab, "faults": [{**FAULT, "status": 6}]}, ["ports"], "GetPhyPortInfo", 3, None, 4),
            (3, {**lab, "faults": [{**FAULT, "status": 6}]}, ["tree"], "GetPhyPortInfo", 3, None, 5),
            (3, {**lab, "faults": [{"driver": "dxo", "request": "open", "nth": 3,
                                    "errno": "EBUSY"}]}, ["sessions"], "OpenAdapter", 2, None, 4),
            (1, {**lab, "faults": [scsi]}, ["luns", "--port", "0", "--target", "1"], "GetLunInfo", 0, 1, 0),
            (1, lab, ["luns", "--port", "9"], "OpenAdapter", 9, None, 0),
            (1, lab, ["targets", "--target", "7"], "GetTgtInfo", None, 7, 0),
        ]
        for status, host, arguments, call, port, target, kept in cases:
            with self.subTest(arguments=arguments, call=call):
                document = self.document(self.scenario(host), *arguments, status=status)
                failure, = document["failures"]
                self.assertEqual((failure["call"], failure["port"], failure["target"]),
                                 ("VARNOK_" + call, port, target))
                self.assertFalse(document["complete"])
                self.assertEqual(len(document["ports" if arguments[0] == "tree" else arguments[0]]), kept)

    def test_devices_that_answer_with_sense_data(self):
        fault = {"driver": "dxo", "request": "scsi_cmd", "times": 0}
        not_ready, attention = {"sense": "02/04/01"}, {"sense": "06/29/00"}
        becoming, listing = "not ready: .*becoming ready", "VARNOK_GetLunInfo"
        asked = "VARNOK_SendScsiCommand"
        cases = [  # command; faults from the nth command on; exit status, records, and each failure
            ("luns", 1, not_ready, {}, 1, 0, [(listing, None, becoming)]),
            ("targets", 1, not_ready, {}, 3, 1, [("VARNOK_GetTgtInfo", None, becoming)]),
            ("tree", 1, not_ready, {}, 3, 1, [(listing, None, becoming)]),
            ("luns", 3, not_ready, {}, 3, 2, [(asked, lun, becoming) for lun in (0, 1)]),
            ("luns", 5, not_ready, {}, 3, 2, [(asked, 1, becoming)]),
            ("luns", 6, not_ready, {}, 3, 2, [(asked, 1, becoming)]),
            ("luns", 6, {"sense": "02/3a/00"}, {}, 0, 2, []),
            ("luns", 2, {"status": 6}, {}, 1, 0, [(listing, None, "driver status 6")]),
            *(("luns", nth, attention, {"times": 3}, 0, 2, []) for nth in range(1, 7)),
            ("targets", 1, attention, {"times": 3}, 0, 1, []),
            ("luns", 3, attention, {}, 3, 2, [(asked, lun, "unit attention") for lun in (0, 1)]),
        ]
        for command, nth, fails, more, status, records, failures in cases:
            with self.subTest(command=command, nth=nth, fails=fails, **more):
                host = {"ports": [{"driver": "dxo", "sessions": [{"luns": [{}, {"lun": 1}]}]}]}
                path = self.scenario({**host, "faults": [{**fault, "nth": nth, **fails, **more}]})
                got = self.document(path, command, status=status)
                self.assertEqual(len(got["ports" if command == "tree" else command]), records)
                self.assertEqual([(f["call"], f["lun"] and f["lun"]["number"]) for f in got["failures"]],
                                 [failure[:2] for failure in failures])
                for failure, (_, _, meaning) in zip(got["failures"], failures):
                    self.assertRegex(failure["meaning"], meaning)
                    self.assertNotIn("SUCCESS", str(failure))
                if status == 0:
                    self.assertEqual(got, {**self.document(self.scenario(host), command),
                                           **({"luns": got["luns"]} if "3a" in str(fails) else {})})

    def test_claims_take_no_memory(self):
        path = self.scenario({"ports": [{"driver": "dxo", "session_cnt": 2**32 - 1, "sessions": [{}, {}]}]})
        for command in "sessions", "targets", "luns":
            self.assertEqual(len(self.document(path, command, status=3)[command]), 2)
        self.assertLess(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, 1 << 20)  # in KiB, of any so far

    def test_scsi_commands_and_their_sense_data(self):
        lun = ["scsi", "--port", "0", "--target", "0", "--lun"]
        shown = self.document(LAB, *lun, "1", "readcap")
        self.assertEqual((shown["direction"], shown["length"], shown["data"][:24], shown["sense"]),
                         ("in", 32, "000000003e7fffff00000200", None))
        for key in list(shown):
            self.assertFalse(VALIDATOR.is_valid({k: v for k, v in shown.items() if k != key}), key)
        self.assertEqual(self.document(LAB, *lun, "0", "inquiry")["data"][16:28], b"MOLVAR".hex())
        nothing = self.document(LAB, *lun, "0", "tur")
        self.assertEqual([nothing[key] for key in ("data", "decoded", "operation")], [None, None, "Test Unit Ready"])

        lab = json.loads(LAB.read_text())
        fault = {"driver": "rovani", "request": "scsi_cmd", "times": 0}
        cases = [  # after the faults: exit status, whether data come, sense key and its word
            ({"sense": "05/25/00"}, 1, False, 5, "illegal request", "logical unit not supported"),
            ({"sense": "01/5d/00"}, 0, True, 1, "recovered error", "failure prediction threshold exceeded"),
            ({"sense": "0b/ee/ee"}, 1, False, 11, "aborted command", None),
            ({"status": 6}, 1, False, None, None, None),
        ]
        for more, status, data, key, word, text in cases:
            with self.subTest(**more):
                path = self.scenario({**lab, "faults": [{**fault, **more}]})
                got = self.document(path, *lun, "0", "inquiry", status=status)
                self.assertEqual((got["data"] is not None, got["complete"]), (data, status == 0))
                sense = got["sense"] and (got["sense"]["key"], got["sense"]["text"])
                self.assertEqual(sense, key and ({"code": key, "text": word}, text))
        for host, status, call in (({"host": {"euid": 1}}, 4, "LoadLibrary"), (lab, 1, "OpenAdapter")):
            port = "0" if status == 4 else "9"
            got = self.document(self.scenario(host), "scsi", "-p", port, "-t", "0", "-l", "0", "tur", status=status)
            self.assertEqual([f["call"] for f in got["failures"]], ["VARNOK_" + call])

    def test_scsi_data_in_words(self):
        names = [{"t10": "VENDOR  \\ a"}, *({"scsi_name": f"iqn.{n}." + "x" * 200} for n in range(3)), {"naa": "0x5000000000000002"}]
        path = self.scenario({"ports": [{"driver": "dxo", "sessions": [{"luns": [
            {"size": "8 TiB", "block_size": 4096, "physical_block_size": 8192, "provisioning": "thin", "serial": "S\x1b",
             "designators": names}, {"lun": 300, "size": 0}]}]}]})
        lun = ["scsi", "-p", "0", "-t", "0", "-l", "0"]
        cases = [
            (["inquiry"], {"type": {"code": 0, "text": "disk"}, "vendor": "MOLVAR", "removable": False}),
            (["vpd"], {"pages": ["00", "80", "83", "b0", "b2"]}), (["vpd", "80"], {"serial": "S\\x1B"}),
            (["vpd", "b0"], {"optimal_granularity": 2, "maximum_transfer": None}),
            (["vpd", "b2"], {"provisioning": {"code": 2, "text": "thin"}}),
            (["readcap"], {"last_block": 2**31 - 1, "block_size": 4096, "bytes": str(2**43), "physical_block_size": 8192, "managed": True}),
            (["readcap10"], {"last_block": 2**31 - 1, "bytes": str(2**43)}), (["reportluns"], {"count": 2}),
            (["030000001200"], {"cause": "no sense: no additional sense information"}),
        ]
        for words, expected in cases:
            got = self.document(path, *lun, *words)["decoded"]
            self.assertEqual({key: got[key] for key in expected}, expected)
        self.assertEqual([l["number"] for l in self.document(path, *lun, "reportluns")["decoded"]["luns"]], [0, 300])
        page = self.document(path, *lun, "vpd", "83")  # longer than the first answer
        self.assertEqual([d["value"] for d in page["decoded"]["designators"]],
                         ["VENDOR  \\x5C a", *(name["scsi_name"] for name in names[1:4]), "5000000000000002"])
        self.assertEqual([d["type"]["text"] for d in page["decoded"]["designators"]][::4], ["T10 vendor identification", "NAA"])
        block = self.document(path, *lun, "28000000000000000300")
        self.assertEqual((block["operation"], block["length"], len(block["data"]), block["decoded"]), ("Read(10)", 3 * 4096, 6 * 4096, None))
        large = self.document(path, *lun, "28000000000000100100", status=1)  # by its block size
        self.assertIn("16 MiB", large["failures"][0]["meaning"])
        cut = self.document(path, *lun, "--in", "9", "120183010000")
        self.assertEqual(cut["decoded"], {"designators": []})
        self.assertEqual(self.document(path, *lun, "--in", "3", "120183010000")["decoded"], None)


if __name__ == "__main__":
    main()
