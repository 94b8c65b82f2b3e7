"""varnokctl on simulated hosts, against golden outputs: tools_test.py SOURCE_DIR BIN_DIR"""

import json
import os
import subprocess
import unicodedata
import xml.etree.ElementTree

from tools_support import BIN, FAULT, GOLDEN, LAB, LISTINGS, SOURCE, ToolCase, main, on_host


def drawn(svg):
    """The names of a picture's nodes, and its texts from top to bottom of the file."""
    tag = "{http://www.w3.org/2000/svg}"
    tree = xml.etree.ElementTree.fromstring(svg)
    nodes = [group.find(tag + "title").text for group in tree.iter(tag + "g") if group.get("class") == "node"]
    return nodes, [text.text.replace("\xa0", " ") for text in tree.iter(tag + "text")]


def columns(text):
    return sum(0 if unicodedata.combining(c) else 1 + (unicodedata.east_asian_width(c) in "WF") for c in text)


class ToolsTest(ToolCase):
    def test_outputs(self):
        for arguments in (*([listing] for listing in LISTINGS), ["tree"], ["tree", "--ascii", "--port", "2"],
                          ["luns", "--bytes", "--port", "0", "--target", "0"], ["luns", "--bytes", "--port", "3"],
                          ["tree", "--bytes", "--identity", "--port", "0"], ["luns", "--identity", "--port", "0"],
                          ["luns", "--details", "--port", "3"], ["ports", "--details", "--port", "4"]):
            with self.subTest(arguments):
                result = on_host(LAB, *arguments)
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertLessEqual(max(map(len, result.stdout.splitlines())), 80)
                self.compare("_".join(a.strip("-") for a in arguments) + ".txt", result.stdout)

    def test_names_of_any_width_stay_in_their_columns(self):
        names = ["m\u00f6del \u65e5\u672c", "\u00e9" * 16, "e\u0301" * 10, "\u65e5" * 10, "v" * 32]
        path = self.scenario({"ports": [{"driver": "dxo", "hba_name": name, "model_name": name, "sessions": [
            {"tgt_iqn": name * 6, "tgt_ipv4addr": "0.0.0.0", "tgt_ipv6_port": 65535,
             "tgt_ipv6addr": "fd00:1111:2222:3333:4444:5555:6666:7777",
             "luns": [{"vendor": name[:2], "product": name[:5]}, {"lun": 300}]}]} for name in names]})
        text = ""
        for locale in ("C.UTF-8", "C"):
            for command in ("ports", "sessions", "luns", "tree"):
                output = on_host(path, command, locale=locale).stdout
                self.assertLessEqual(max(map(columns, output.splitlines())), 80, output)
                text += f"$ {command}, {locale}\n{output}"
        self.compare("wide_names.txt", text)

    def test_endings(self):
        lab = json.loads(LAB.read_text())
        luns_fail = {"driver": "rovani", "request": "scsi_cmd", "instance": 0, "times": 0, "status": 12}
        endings = [
            (0, "no_adapters", {"drivers": ["rovani"]}, ["ports"]),
            (0, "help", lab, ["--help"]),
            (1, "scsi_without_adapters", {"drivers": ["rovani"]}, ["scsi", "-p", "0", "-t", "0", "-l", "0", "tur"]),
            (1, "port_without_adapters", {"drivers": ["rovani"]}, ["luns", "-p", "1", "-t", "2"]),
            (1, "no_such_port", lab, ["luns", "--port", "9"]),
            (1, "no_such_target", lab, ["luns", "--target", "7"]),
            (1, "no_lun_answers", {**lab, "faults": [luns_fail]}, ["luns", "--port", "0"]),
            (1, "no_open", {"ports": [{"driver": "dxo"}], "faults": [{"driver": "dxo", "request": "open", "nth": 3,
                                                                     "errno": "EBUSY"}]}, ["ports"]),
            (2, "usage", lab, ["lunes"]),
            (2, "wrong_scenario", {"ports": [{"driver": "pelt"}, {"driver": "dxo", "mac": "x"}]}, ["ports"]),
            (3, "third_port_fails", {**lab, "faults": [{**FAULT, "status": 6}]}, ["ports"]),
            (3, "second_target_fails", {**lab, "faults": [{**luns_fail, "nth": 15}]}, ["luns", "--port", "0"]),
            (4, "not_root", {"host": {"euid": 1000}}, ["ports"]),
            (4, "no_host", {"host": {"sysname": "Linux"}}, ["tree"]),
        ]
        for status, name, document, arguments in endings:
            with self.subTest(name):
                path = self.scenario(document)
                result = on_host(path, *arguments)
                self.assertEqual(result.returncode, status, result.stderr)
                self.compare(name + ".txt", (result.stdout + "--\n" + result.stderr).replace(path, "SCENARIO"))

    def test_the_printed_example_is_a_scenario(self):
        example = subprocess.run([BIN / "varnok-host", "example"], capture_output=True, text=True, check=True).stdout
        path = self.scenario(example)
        subprocess.run([BIN / "varnok-host", "check", path], check=True)
        self.assertIn("2 targets", on_host(path, "tree", "--port", "0").stdout)
        wrong = subprocess.run([BIN / "varnok-host", "check", self.scenario(example + "]")], capture_output=True, check=False)
        self.assertEqual(wrong.returncode, 2)

    def test_wrong_usage_of_the_host(self):
        portal = ["--portal", "127.0.0.1:1"]
        reason = "not host:port with a port from 1 to 65535"
        full = [">/dev/full"]
        cases = [  # the arguments are a shell's words
            (2, "--driver requires --portal", ["run", "--driver", "dxo", LAB, "--", "echo"]),
            (2, "--portal excludes SCENARIO", ["run", *portal, LAB, "--", "echo"]),
            (2, "the scenario is missing", ["run", "--", LAB, "echo"]),
            (2, "the program is missing", ["run", LAB, "--"]),
            (2, "--portal: " + reason, ["run", "--portal", "127.0.0.1:99999", "--", "echo"]),
            (2, "--portal: " + reason, ["run", "--portal", ":1", "--", "echo"]),
            (2, "/tmp: Is a directory", ["check", "/tmp"]),
            (2, "/tmp: Is a directory", ["run", "/tmp", "--", "echo"]),
            (1, "output: No space left on device", ["example", *full]),
            (1, "output: No space left on device", ["--help", *full]),
        ]
        for status, message, arguments in cases:
            with self.subTest(arguments):
                result = subprocess.run(" ".join(map(str, [BIN / "varnok-host", *arguments])), shell=True,
                                        capture_output=True, text=True, check=False)
                self.assertEqual((result.returncode, result.stdout), (status, ""))
                self.assertIn(message, result.stderr)
        behind = [BIN / "varnok-host", "run", LAB, "--", "echo", "--", "--help"]
        self.assertEqual(subprocess.run(behind, capture_output=True, text=True, check=True).stdout, "-- --help\n")

    def test_scsi_commands(self):
        lun = ["scsi", "--port", "0", "--target", "0", "--lun"]
        disk = [*lun, "0"]
        write, read = "2a 00 00 00 00 01 00 00 01 00".split(), "28 00 00 00 00 01 00 00 01 00".split()
        folder = self.folder()
        block, saved = folder / "block", folder / "saved"
        block.write_bytes(bytes(range(256)) * 2)
        path = self.scenario({"ports": [{"driver": "dxo", "sessions": [{"luns": [
            {"size": "8 TiB", "file": str(folder / "disk")}, {"lun": 300, "device_type": 5}]}]}]})
        steps = [(0, [*disk, "inquiry"]), (0, [*disk, "readcap"]), (0, [*disk, "readcap10"]), (0, [*disk, "reportluns"]),
                 (0, [*disk, "tur"]), *((0, [*disk, "vpd", *page]) for page in ([], ["83"], ["0x80"], ["b0"])),
                 (1, [*disk, "vpd", "99"]), (2, [*disk, "vpd", "831"]), (2, [*disk, "vpd", "8380"]), (2, [*disk, "vpd", "8", "3"]),
                 (2, [*disk, "tur", "1"]), (0, [*disk, "1201", "0x80", "00ff00"]), (0, [*disk, "03 00 00 00 ff 00".replace(" ", "")]),
                 (0, [*disk, "280000000000", "00000100"]), (2, [*disk, "2800000000000080010000"]), (2, [*disk, "12345"]),
                 (2, [*disk, "88" + "00" * 9 + "0000ffff" + "0000"]),
                 (0, [*lun, "300", "--in", "300", "--", *"12 0 0 1 2c 0".split()]),
                 (0, [*lun, "0x412c000000000000", "tur"]),
                 (1, [*lun, "1", "tur"]), (1, [*disk, "--", "ff"]), (1, [*disk, "--in", "8", "--", "88", *["ff"] * 15]),
                 (2, [*disk, "--out", block, "--", *write]), (2, [*disk, "--", "93", *["0"] * 15]),
                 (0, [*disk, "--out", block, "--yes", "--", *write]),
                 (0, [*disk, "--in", "512", "--save", saved, "--", *read]),
                 (1, [*disk, "--in", "16", "--save", folder / "no/file", "--", *read]),
                 (2, [*disk, "--save", saved, "tur"]), (2, [*disk, "--in", "8", "inquiry"]), (2, [*lun, "16384", "tur"]),
                 (2, [*lun, "0x412c", "tur"]), (2, [*disk, "--", *["0"] * 17]), (2, [*disk, "--", "123"]),
                 (2, [*disk, "--", "0x"]), (2, [*disk]), (2, [*disk, "--in", "0", "--", *read])]
        text = ""
        for status, arguments in steps:
            result = on_host(path, *arguments)
            text += f"$ {' '.join(map(str, arguments))}\n{result.stdout}{result.stderr}-> {result.returncode}\n"
            self.assertEqual(result.returncode, status, text)
        self.assertEqual(saved.read_bytes(), block.read_bytes())
        self.compare("scsi.txt", text.replace(str(folder), "FOLDER"))

    def test_choices(self):
        path = self.scenario({**json.loads(LAB.read_text()), "faults": [{**FAULT, "status": 6}]})
        text = ""
        for status, words in [
                (3, "-p vmhba66 luns -t *flash-7*"), (3, "ports -p 02-1E-2B-40-71-82 -q"), (1, "luns -p vmhba99"),
                (3, "-o port,size,lun,lun_bytes --sort -size,port luns"), (0, "luns -p 0 --no-headings --sort vendor,-lun"),
                (0, "luns -p 2 --width 40 --bytes"), (1, "targets -p 3 --width 0"), (3, "ports --color always --quiet"),
                (0, "tree -p 4 --color always"), (0, "-q -b tree -p 4"), (2, "ports --port="), (3, "health --only single-path --ignore single-path"), (2, "luns -o port,nonsense"), (2, "luns --json -o port"), (0, "sessions --help"),
                (0, "scsi -p vmhba66 -t iqn.2016-11.com.example:flash-7.spa.p0 -l 300_flat tur"), (1, "scsi -p 0 -t * -l 0 tur"),
                (1, "scsi -p 0 -t nobody -l 0 tur")]:
            result = on_host(path, *(word.replace("_flat", " flat") for word in words.split()))
            self.assertEqual(result.returncode, status, result.stderr)
            text += f"$ {words}\n{result.stdout}{result.stderr}-> {status}\n"
        self.compare("choices.txt", text)
        order = [(lun["port"], lun["lun"]["number"]) for lun in
                 json.loads(on_host(LAB, "luns", "--json", "--sort", "-lun,-port", "-t", "0").stdout)["luns"]]
        self.assertEqual(order, sorted(order, key=lambda pair: (-pair[1], -pair[0])))

    def test_off_a_terminal_nothing_is_cut(self):
        name = "iqn.2026-01.com.example:" + "x" * 180
        path = self.scenario({"ports": [{"driver": "pelt", "sessions": [{"tgt_iqn": name}]}]})
        for command in ("sessions", "targets", "tree"):
            self.assertIn(name, on_host(path, command, width=None).stdout)
            self.assertNotIn(name, on_host(path, command).stdout)

    def test_the_readme_shows_what_is_there(self):
        readme = (SOURCE / "README.md").read_text()
        self.assertIn((GOLDEN / "tree.txt").read_text(), readme)
        self.assertIn((SOURCE / "examples/inventory.c").read_text(), readme)
        result = subprocess.run([BIN / "varnok-host", "run", LAB, "--", BIN / "inventory"], capture_output=True, text=True,
                                check=True, env={**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0"})
        self.assertEqual(result.stdout.splitlines()[:2],
                         ["vmhba64, MH2120-2I", "  iqn.2012-04.com.example:array-1.a, 4 LUNs"])

    def test_hostile_names_do_not_reach_the_terminal(self):
        name = "a\x1b[2J\u009b\r\u202e\x7fz"
        path = self.scenario({"ports": [{"driver": "pelt", "hba_name": name, "model_name": name,
                                         "sessions": [{"tgt_iqn": name, "luns": [
                                             {"vendor": "\x1b[1m", "serial": name, "designators": [{"t10": "VENDOR\x1b[" + name}]}]}]}]})
        for command in (["tree", "-i"], ["ports"], ["targets"], ["sessions"], ["luns", "-i"], ["luns", "-d"]):
            output = on_host(path, *command).stdout
            self.assertTrue(output.replace("\n", "").isprintable(), ascii(output))
        for word in name, "w" * 100000:
            for arguments in ([word], ["luns", "--port", word], ["luns", word], ["scsi", *"-p 0 -t 0 -l 0".split(), word],
                              ["scsi", *"-p 0 -t 0 -l 0 tur --out".split(), word]):
                message = subprocess.run([BIN / "varnokctl", *arguments], capture_output=True, text=True, check=False).stderr
                self.assertTrue(message.replace("\n", "").isascii() and message.replace("\n", "").isprintable(), ascii(message))
                self.assertLess(len(message), 400)

    def picture(self, scenario, *options, status=0):
        result = on_host(scenario, "tree", "--dot", *options)
        self.assertEqual((result.returncode, result.stderr == ""), (status, status == 0), result.stderr)
        return drawn(subprocess.run(["dot", "-Tsvg"], input=result.stdout, capture_output=True, text=True,
                                    check=True).stdout)

    def test_the_picture_in_the_readme_is_up_to_date(self):
        self.assertEqual(self.picture(LAB), drawn((SOURCE / "docs/demo-host.svg").read_text()))

    def test_pictures(self):
        plain = ['"]; evil [label="', "</td></table>>]", "<!--&amp;&#1;", "\u00e9", ""]
        names = [*plain, "\\N\\", "\x1b]0;x\x07\u202e", [255, 60, 98, 62, 195]]
        shown = [*plain, r"\x5CN\x5C", r"\x1B]0;x\x07\xE2\x80\xAE", r"\xFF<b>\xC3"]
        path = self.scenario({
            "ports": [{"driver": "dxo", "hba_name": name, "model_name": name, "sessions": [
                {"tgt_iqn": name, "luns": [{"vendor": "of", "product": name[:10]}]}, {"luns": []}]} for name in names],
            "faults": [{**FAULT, "status": 6}, {**FAULT, "request": "scsi_cmd", "instance": 0, "nth": 6, "status": 6}]})
        nodes, texts = self.picture(path, status=3)
        whole = [0, *range(2, len(names))]  # port 1 is not readable
        self.assertEqual(sorted(nodes), sorted(["host", "port1"] + [
            f"port{i}{of}" for i in whole for of in ("", "_target0", "_target0_luns", "_target1")]))
        self.assertEqual([text for text in texts if text in shown], [shown[i] for i in whole if shown[i]] * 2)
        self.assertEqual([text for text in texts if "readable" in text],
                         ["not readable", "192.168.128.11:3260, LUNs not readable", "not all readable"])
        self.assertTrue("".join(texts).isprintable())
        self.assertIn("100.0 GiB (107374182400 B)", self.picture(path, "--bytes", status=3)[1])
        self.assertTrue("".join(self.picture(path, "--ascii", status=3)[1]).isascii())
        self.assertEqual(self.picture(self.scenario({"drivers": ["rovani"]}))[0], ["host"])
        self.assertEqual(on_host(self.scenario({"host": {"euid": 1000}}), "tree", "--dot").stdout, "")
        self.assertEqual(on_host(LAB, "tree", "--dot", "--json").returncode, 2)

    def test_a_large_host_lists_its_sessions(self):
        path = self.scenario({"ports": [{"driver": "dxo", "repeat": 256, "sessions": [{"repeat": 256}]}]})
        result = on_host(path, "sessions")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(len(result.stdout.splitlines()), 1 + 256 * 256)


if __name__ == "__main__":
    main()
