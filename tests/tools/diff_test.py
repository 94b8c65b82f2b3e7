"""varnokctl diff of captures that were changed: diff_test.py SOURCE_DIR BIN_DIR"""

import copy
import json
import os
import subprocess

import jsonschema

from tools_support import BIN, LAB, SOURCE, ToolCase, main, on_host

VALIDATOR = jsonschema.Draft202012Validator(json.loads((SOURCE / "varnokctl/schema/varnok-1.json").read_text()))
LAB_CAPTURE = json.loads(on_host(LAB, "capture").stdout)
A, B, NAS = "iqn.2012-04.com.example:array-1.a", "iqn.2012-04.com.example:array-1.b", "iqn.2007-09.org.example:nas-basement.backup"
DISK, GATE, NAS_DISK = ("36021e2b000000000000000000000000" + last for last in "1a1")
PORT = "port vmhba64 (02:1e:2b:40:71:80): "


def diff(*arguments, text=None):
    return subprocess.run([BIN / "varnokctl", "diff", *arguments], capture_output=True, text=True, check=False, input=text,
                          env={**os.environ, "LC_ALL": "C.UTF-8"})


def changed(steps, host=None):
    """A copy with a value set at each path, or taken out."""
    host = copy.deepcopy(host or LAB_CAPTURE)
    for path, *value in steps:
        *above, last = path
        place = host
        for key in above:
            place = place[key]
        if value:
            place[last] = value[0]
        else:
            del place[last]
    return host


def failing(call, port, target=None, status=2**31 + 6):
    failure = {"call": "VARNOK_" + call, "port": port, "target": target, "status": status, "name": "n", "meaning": "why", "next": "x"}
    return [(("complete",), False), (("failures",), [failure])]


def places(value, path=()):
    if path:
        yield path
    for key, inner in value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ():
        yield from places(inner, (*path, key))


class DiffTest(ToolCase):
    def compared(self, after, *flags, before=None):
        """The lines, after a look at the document, and the lines on standard error."""
        names = [self.scenario(before or LAB_CAPTURE), self.scenario(after)]
        shown, document = diff(*flags, *names), diff(*flags, "--json", *names)
        self.assertEqual((shown.returncode, document.stderr), (document.returncode, ""), shown.stderr)
        got = json.loads(document.stdout)
        VALIDATOR.validate(got)
        lines = shown.stdout.splitlines()
        self.assertEqual([(e["what"], e["name"]) for e in got["entries"]],
                         [(line.split(" ")[0], e["name"]) for e, line in zip(got["entries"], lines)])
        self.assertEqual(len(got["not_compared"]), shown.stderr.count(": not compared: "))
        self.assertEqual(shown.returncode, 1 if got["entries"] or got["not_compared"] else 0)
        sides = dict(zip(names, ("BEFORE", "AFTER")))
        return ([] if lines == ["no differences"] else lines,
                [f"{sides[name]} {rest}" for name, rest in (line.split(": not compared: ")[1].split(": ", 1)
                                                            for line in shown.stderr.splitlines())])

    def test_differences(self):
        one = ("ports", 0)
        luns, session = (*one, "sessions", 0, "luns"), (*one, "sessions", 0)
        disk = ("devices", "device-1")
        own = {key: value for key, value in LAB_CAPTURE["devices"]["device-1"].items() if key not in ("serial", "designators")}
        bare = {"lun": 7, **own, "serial": "", "designators": []}
        other_name = [((*session, "tgt_iqn"), "iqn.z"), ((*session, "target", "iqn"), "iqn.z")]
        cases = [
            ([], [], []),
            ([((*one, "mtu"), 1500), ((*one, "port_state"), 1), ((*one, "port_speed"), 25000), ((*one, "model_name"), [255, 65])],
             [PORT + "model_name MH2120-2I -> \\xFFA", PORT + "mtu 9000 -> 1500", PORT + "port_state online -> offline",
              PORT + "port_speed 10 Gbit/s -> 25 Gbit/s"], []),
            # Another MAC address on the same board, and another board behind it all.
            ([((*one, "mac"), "02:00:00:00:00:01")], [PORT + "mac 02:1e:2b:40:71:80 -> 02:00:00:00:00:01"], []),
            ([((*one, "serial_num"), "X"), ((*one, "ipv4addr"), "0.0.0.0")],
             [PORT + "serial_num MH21A40718 -> X", PORT + "ipv4addr 10.20.30.11 -> none"], []),
            ([(("ports", 4),)], ["port vmhba68 (02:1e:2b:c0:19:36): gone"], []),
            ([((*one, "mtu"),)], [], ["AFTER port vmhba64 (02:1e:2b:40:71:80): no mtu"]),
            (other_name, [f"target {A} (vmhba64): gone", "target iqn.z (vmhba64): added"], []),
            ([((*one, "sessions", 1),)], [f"target {NAS} (vmhba64): gone", "device 1GENERIC 9f3c2ad41b7e: gone"], []),
            # A session that ended tells its state alone.
            ([((*session, key), 0) for key in ("state", "max_r2t", "first_burst_len", "initial_r2t")]
             + [((*session, "tgt_ipv4addr"), "0.0.0.0")], [f"target {A} (vmhba64): state logged in -> not logged in"], []),
            ([((*session, "tgt_ipv4addr"), "10.0.0.1"), ((*session, "target", "ipv4addr"), "10.0.0.1"), ((*session, "imm_data"), 0)],
             [f"target {A} (vmhba64): tgt_ipv4addr 10.20.30.101 -> 10.0.0.1", f"target {A} (vmhba64): imm_data yes -> no"], []),
            # Two paths lead to the disk: it changed once. One path of two is not the device.
            ([((*disk, "size"), "18446744073709551104 B"), ((*disk, "provisioning"),)],
             [f"device {DISK}: size 500.0 GiB (536870912000 B) -> 16.0 EiB (18446744073709551104 B)",
              f"device {DISK}: provisioning full -> none"], []),
            ([((*luns, 0),)], [f"path {DISK} ({A}, vmhba64): gone"], []),
            ([((*luns, 3),)], [f"device {GATE}: gone"], []),
            ([((*luns, 3), {"lun": 10, **own, "serial": "S", "designators": []})],
             [f"device {GATE}: gone", "device serial number S: added"], []),
            ([((*luns, 3), bare)], [f"device {GATE}: gone", f"LUN 7 ({A}, vmhba64): added"], []),
            # The device moved to another target, and changed.
            ([((*luns, 3),), (("ports", 4, "sessions"), [{"tgt_iqn": "q", "target": {"iqn": "q"},
                                                         "luns": [{**LAB_CAPTURE["ports"][0]["sessions"][0]["luns"][3], "revision": "4"}]}])],
             ["target q (vmhba68): added", f"path {GATE} ({A}, vmhba64): gone", f"device {GATE}: revision 3.10 -> 4"], []),
            # What could not be read is not gone.
            ([((*luns, 3),), *failing("GetLunInfo", 0, 0)], [], [f"AFTER LUNs of target {A} (vmhba64): VARNOK_GetLunInfo: why"]),
            ([((*luns, 3), {**bare, "lun": 10, "size": 64 << 20, "product": "GATEKEEPER"}), *failing("SendScsiCommand", 0, 0)], [],
             [f"AFTER identities of the LUNs of target {A} (vmhba64): VARNOK_SendScsiCommand: why"]),
            ([((*one, "sessions", 1),), *failing("GetTgtInfo", 0)], [], ["AFTER targets of port vmhba64: VARNOK_GetTgtInfo: why"]),
            ([((*one, "ipv4addr"),), *failing("GetIscsiPortal", 0)], [], ["AFTER portal of port vmhba64: VARNOK_GetIscsiPortal: why"]),
            ([(("ports", 4), {"driver": "dxo", "sessions": []}), *failing("GetPhyPortInfo", 4)], [],
             ["AFTER port 4: VARNOK_GetPhyPortInfo: why",
              "AFTER port vmhba68 (02:1e:2b:c0:19:36): not every port could be read"]),
            ([(("ports", 1),), *failing("OpenAdapter", 1, status=2**31 + 7)], [],
             ["AFTER port 1: VARNOK_OpenAdapter: why", "AFTER port vmhba65 (02:1e:2b:40:71:82): not every port could be read"]),
        ]
        turned = {": gone": ": added", ": added": ": gone"}
        for steps, lines, unread in cases:
            with self.subTest(steps=steps):
                after = changed(steps)
                self.assertEqual(self.compared(after), (lines, unread))
                # The other way round the same lines say the opposite.
                back, unread_back = self.compared(LAB_CAPTURE, before=after)
                count = {word: sum(line.endswith(word) for line in lines) for word in turned}
                self.assertEqual({word: sum(line.endswith(other) for line in back) for word, other in turned.items()}, count)
                self.assertEqual((len(back), [line.replace("BEFORE", "AFTER") for line in unread_back]), (len(lines), unread))

    def test_numbers(self):
        session = ("ports", 0, "sessions", 0)
        steps = [((*session, key), 99) for key in ("sess_num", "sess_unique", "cid", "init_ipv4_port", "tgt_ipv4_port")]
        steps += [((*session, "luns", 3, "lun"), 99), ((*session, "target", "isid"), "00"),
                  (("ports", 0, "sessions"), LAB_CAPTURE["ports"][0]["sessions"][::-1])]
        for step in steps:
            after = changed([step])
            self.assertEqual(self.compared(after), ([], []), step)
            self.assertNotEqual(self.compared(after, "--numbers"), ([], []), step)
        lun = changed([steps[5]])
        self.assertEqual(self.compared(lun, "--numbers")[0], [f"path {GATE} ({A}, vmhba64): lun 10 -> 99"])

    def test_this_host(self):
        before = self.scenario(LAB_CAPTURE)
        self.assertEqual(on_host(LAB, "diff", before).stdout, "no differences\n")
        lab = json.loads(LAB.read_text())
        lab["ports"][0]["mtu"] = 1500
        cases = [(1, PORT + "mtu 9000 -> 1500\n", "", lab), (2, "", "not loaded", {"host": {"euid": 1}}),
                 (1, "", "not compared: this host: port 4: VARNOK_GetPhyPortInfo: driver status 6",
                  {**json.loads(LAB.read_text()), "faults": [{"driver": "dxo", "request": "port_info", "instance": 2, "nth": 2,
                                                             "times": 0, "status": 6}]})]
        for status, output, error, host in cases:
            result = on_host(self.scenario(host), "diff", before)
            self.assertEqual((result.returncode, result.stdout), (status, output), result.stderr)
            self.assertIn(error, result.stderr)
            document = json.loads(on_host(self.scenario(host), "diff", "--json", before).stdout)
            VALIDATOR.validate(document)
            self.assertEqual((document["after"], document["complete"]), (None, error == ""))

    def test_what_is_no_capture(self):
        good = self.scenario(LAB_CAPTURE)
        port = {"driver": "dxo", "sessions": [{"luns": [{"device": "nobody"}]}]}
        cases = [("[" * 100000, "deeper than 64 levels"), ("{\"a\":" * 100 + "1" + "}" * 100, "deeper than 64 levels"),
                 ("", "parse error"), ("{} x", "parse error"), ("[]", "document: not an object"), ("{}", "schema: missing"),
                 (changed([(("schema",), "varnok/2")]), "schema: not varnok/1"), (changed([(("command",), "tree")]), "command: not"),
                 (changed([(("complete",), False)]), "failures: do not fit"), (changed([(("ports", 0), port)]), "device: not one of"),
                 (changed([(("ports", 0, "repeat"), 2)]), "ports[0].repeat: not in a capture"),
                 (changed([(("ports",), []), *failing("LoadLibrary", None)]), "nothing could be read"),
                 ('"' + "\x1b[2J\u202e" * 5000 + '"', "parse error")]
        for text, why in cases:
            name = self.scenario(text)
            for arguments in ([name], [good, name], ["-", good]):
                result = diff(*arguments, text=text if isinstance(text, str) else json.dumps(text))
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertIn(("standard input" if arguments[0] == "-" else name) + ": ", result.stderr)
                self.assertIn(why, result.stderr)
                self.assertTrue(len(result.stderr) < 700 and result.stderr.strip().isprintable(), ascii(result.stderr))
        for arguments, why in (["/no/\x1bfile"], "/no/\\x1Bfile: No such file"), (["/"], "Is a directory"), (["-", "-"], "only one"):
            result = diff(*arguments)
            self.assertEqual(result.returncode, 2)
            self.assertIn(why, result.stderr)
        twice = self.scenario(json.dumps(LAB_CAPTURE)[:-1] + ', "ports": []}')
        self.assertEqual(diff(twice, self.scenario(changed([(("ports",), [])]))).returncode, 0)

    def test_hostile_values(self):
        ports = copy.deepcopy(LAB_CAPTURE["ports"][:1])
        del ports[0]["sessions"][0]["luns"][1:3], ports[0]["sessions"][1:]
        small = changed([(("ports",), ports), (("devices", "device-2"),), (("devices", "device-3"),),
                         (("ports", 0, "hba_name"), [27, 91]), *failing("GetLunInfo", 0, 0)])
        good = self.scenario(small)
        for path in list(places(small)):
            for value in (None, [], {}, -1, "x\u202e", [{}]):
                result = diff("--numbers", self.scenario(changed([(path, value)], small)), good)
                self.assertIn(result.returncode, (0, 1, 2), (path, value, result.stderr))
                self.assertEqual(result.stdout == "no differences\n", result.returncode == 0)
                self.assertTrue(result.stdout or result.stderr)
                self.assertTrue((result.stdout + result.stderr).replace("\n", "").isprintable(), (path, value))


if __name__ == "__main__":
    main()
