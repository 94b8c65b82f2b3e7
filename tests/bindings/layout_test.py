"""The package's view of the C header, compared by the C compiler: layout_test.py SOURCE_DIR CC"""

import copy
import ctypes
import dataclasses
import pathlib
import pickle
import re
import subprocess
import sys
import unittest

SOURCE, CC = pathlib.Path(sys.argv[1]), sys.argv[2]
sys.path.insert(0, str(SOURCE / "bindings/python"))

import varnok  # noqa: E402
from varnok import _decode, _library, _records  # noqa: E402

HEADER = (SOURCE / "libvarnok/include/varnok_mgmt.h").read_text()
RECORDS = {"ISCSI_PORTAL": _records.IscsiPortal, "PHY_PORT_INFO": _records.PhyPortInfo, "SESS_INFO": _records.SessInfo,
           "TGT_INFO": _records.TgtInfo, "LUN_INFO": _records.LunInfo, "SCSI_CMND": _records.ScsiCmnd}
DECODERS = {_records.IscsiPortal: _decode.portal_from, _records.PhyPortInfo: _decode.port_from,
            _records.SessInfo: _decode.session_from, _records.TgtInfo: _decode.target_from,
            _records.LunInfo: _decode.lun_from}
# What an address says anyway, and what the library never writes.
LEFT_OUT = {"Version", "IsIPv4", "InitIsIPv4", "TgtIsIPv4", "InitiatorSocket", "TargetSocket", "AuthType", "HeaderDigest",
            "DataDigest", "DeviceName", "VolumeName", "MountPath", "PhysicalDrive"}
NUMBERS = {"STATUS": varnok.Status, "PCIE_SPEED": varnok.PcieSpeed, "PCIE_WIDTH": varnok.PcieWidth,
           "PORT_STATE": varnok.PortState, "PORT_SPEED": varnok.PortSpeed, "MEDIA_TYPE": varnok.MediaType,
           "SCSI": varnok.Direction}
OTHER_DEFINES = "MGMT_H|API|PACKED|DBG_.*|PHY_PORT_INFO_VERSION|LUN_INFO_VERSION|LUN_INFO_SIZE_1"


def key(name):
    """What a macro and the package's member have in common: the digits, or else the words."""
    return re.findall(r"\d+", name) or name.replace("VARNOK_STATUS_", "")


class LayoutTest(unittest.TestCase):
    def compile(self, claims):
        program = "#include <stddef.h>\n#include <varnok_mgmt.h>\n"
        program += "".join(f'_Static_assert({claim}, "{claim}");\n' for claim in claims)
        result = subprocess.run([CC, "-std=c11", "-fsyntax-only", "-I", SOURCE / "libvarnok/include", "-xc", "-"],
                                input=program, text=True, capture_output=True, check=False)
        self.assertEqual(result.stderr, "")

    def test_records(self):
        self.assertEqual(set(re.findall(r"typedef struct VARNOK_(\w+)", HEADER)), set(RECORDS))
        claims = [f"VARNOK_RECORD_VERSION_2 == {_records.RECORD_VERSION_2}"]
        for name, record in RECORDS.items():
            claims.append(f"sizeof(VARNOK_{name}) == {ctypes.sizeof(record)}")
            for field, *_ in record._fields_:
                layout = getattr(record, field)
                claims += [f"offsetof(VARNOK_{name}, {field}) == {layout.offset}",
                           f"sizeof(((VARNOK_{name} *)0)->{field}) == {layout.size}"]
        self.compile(claims)

    def test_numbers(self):
        claims, members = [], set()
        for name in re.findall(r"#define VARNOK_(\w+)", HEADER):
            for prefix, numbers in NUMBERS.items():
                if name.startswith(prefix):
                    found = [m for m in numbers if name == prefix or key(m.name) == key(name[len(prefix) + 1:])]
                    self.assertEqual(len(found), 1, name)
                    claims.append(f"VARNOK_{name} == {found[0].value}u")
                    members.update((numbers, member) for member in found)
                    break
            else:
                self.assertRegex(name, f"^({OTHER_DEFINES}|RECORD_VERSION_2)$")
        self.compile(claims)
        unknown = {(numbers, 0) for numbers in (varnok.PcieSpeed, varnok.PcieWidth, varnok.PortSpeed)}
        self.assertEqual({(c, m) for c in NUMBERS.values() for m in c} - members, unknown)

    def test_functions(self):
        def stars(kind):
            target = getattr(kind, "_type_", None)
            return 1 + stars(target) if isinstance(target, type) else int(kind is ctypes.c_void_p)

        functions = re.findall(r"VARNOK_API uint32_t (\w+)\(([^)]*)\)", HEADER)
        declared = {name: [text.count("*") for text in arguments.split(",") if text != "void"]
                    for name, arguments in functions}
        self.assertEqual({name: [stars(kind) for kind in kinds] for name, kinds in _library._PROTOTYPES.items()}, declared)

    def test_every_field_of_a_record_goes_to_the_attribute_of_its_name(self):
        def plain(name):
            return name.replace("_", "").lower().replace("address", "addr").replace("portnum", "port")

        def decoded(record):
            return dataclasses.asdict(DECODERS[type(record)](record))

        for kind in DECODERS:
            zeros = decoded(kind())
            for field, *_ in kind._fields_:
                record, layout = kind(), getattr(kind, field)
                ctypes.memset(ctypes.addressof(record) + layout.offset, ord("1"), layout.size)
                changed = [name for name, value in decoded(record).items() if value != zeros[name]]
                self.assertEqual([plain(name) for name in changed], [] if field in LEFT_OUT else [plain(field)], field)

    def test_a_text_ends_with_its_first_nul_byte(self):
        record = _records.LunInfo()
        for text, expected in [(b"A  \0rest", "A"), (b"\0rest", ""), (b" A B\xff".ljust(16, b"x"), " A B\udcffxxxxxxxxxxx")]:
            ctypes.memmove(record.VendorName, text, len(text))
            self.assertEqual(_decode.lun_from(record).vendor_name, expected)

    def test_numbers_without_a_name_are_kept(self):
        for numbers in NUMBERS.values():
            for number in (numbers(77777), copy.deepcopy(numbers(77777)), pickle.loads(pickle.dumps(numbers(77777)))):
                self.assertEqual((type(number), int(number), number.name), (numbers, 77777, "UNKNOWN_0x12FD1"))
        self.assertEqual(varnok.Status(2).name, "ENOENT")
        self.assertEqual([s.gbits_per_second for s in [*varnok.PortSpeed, varnok.PortSpeed(5)]],
                         [None, 10, 20, 25, 40, 50, None])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
