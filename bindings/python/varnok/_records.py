"""The records of varnok_mgmt.h, byte for byte. A test has the C compiler compare them with the header."""

from __future__ import annotations

import ctypes
from typing import Any

RECORD_VERSION_2 = 2
"""The Version that asks for the whole record."""

_u8, _u16, _u32, _u64 = ctypes.c_uint8, ctypes.c_uint16, ctypes.c_uint32, ctypes.c_uint64


def _bytes(size: int) -> Any:
    return _u8 * size


class Record(ctypes.LittleEndianStructure):
    """A packed record. It begins as zeros, because the library does not clear it."""

    _pack_ = 1
    _layout_ = "ms"
    Version: int


class IscsiPortal(Record):
    _pack_ = 1
    _layout_ = "ms"
    _fields_ = [
        ("Version", _u32),
        ("IsIPv4", _u8),
        ("IPv4Addr", _bytes(4)),
        ("IPv4PortNum", _u16),
        ("IPv6Addr", _bytes(16)),
        ("IPv6PortNum", _u16),
    ]


class PhyPortInfo(Record):
    _pack_ = 1
    _layout_ = "ms"
    _fields_ = [
        ("Version", _u32),
        ("ModelName", _bytes(32)),
        ("ModelDesc", _bytes(128)),
        ("DriverVersion", _bytes(32)),
        ("DriverDate", _bytes(32)),
        ("DriverName", _bytes(16)),
        ("DriverLoaded", _u8),
        ("SerialNum", _bytes(32)),
        ("FWVersion", _bytes(32)),
        ("MAC", _bytes(6)),
        ("MTU", _u32),
        ("VendorID", _u16),
        ("DeviceID", _u16),
        ("SubVendorID", _u16),
        ("SubSystemID", _u16),
        ("PciDomainNum", _u16),
        ("PciBusNum", _u16),
        ("PciDeviceNum", _u16),
        ("PciFunctionNum", _u16),
        ("PciRevision", _u16),
        ("PhyPortNum", _u16),
        ("SessCount", _u32),
        ("PCIESpeed", _u32),
        ("PCIEWidth", _u32),
        ("ChipRevId", _u32),
        ("PortState", _u32),
        ("PortSpeed", _u32),
        ("MediaType", _u32),
        ("HbaName", _bytes(32)),
        ("MFWVersion", _bytes(32)),
    ]


class SessInfo(Record):
    _pack_ = 1
    _layout_ = "ms"
    _fields_ = [
        ("Version", _u32),
        ("SessionNum", _u32),
        ("SessionUnique", _u64),
        ("SessionState", _u8),
        ("InitiatorName", _bytes(256)),
        ("InitIsIPv4", _u16),
        ("InitIPv4Addr", _bytes(4)),
        ("InitIPv4PortNum", _u16),
        ("InitIPv6Addr", _bytes(16)),
        ("InitIPv6PortNum", _u16),
        ("TargetName", _bytes(256)),
        ("TgtIsIPv4", _u8),
        ("TgtIPv4Addr", _bytes(4)),
        ("TgtIPv4PortNum", _u16),
        ("TgtIPv6Addr", _bytes(16)),
        ("TgtIPv6PortNum", _u16),
        ("InitialR2T", _u8),
        ("ImmediateData", _u8),
        ("DataSequenceInOrder", _u8),
        ("DataPDUInOrder", _u8),
        ("MaxOutstandingR2T", _u32),
        ("FirstBurstLength", _u32),
        ("ErrorRecoveryLevel", _u32),
        ("ConnID", _u64),
        ("InitiatorSocket", _u16),
        ("TargetSocket", _u16),
        ("AuthType", _u32),
        ("HeaderDigest", _u8),
        ("DataDigest", _u8),
    ]


class TgtInfo(Record):
    _pack_ = 1
    _layout_ = "ms"
    _fields_ = [
        ("Version", _u32),
        ("ScsiTgtNum", _u32),
        ("TargetName", _bytes(256)),
        ("MAC", _bytes(6)),
        ("Isid", _bytes(6)),
        ("IPv4Port", _u16),
        ("IPv4Addr", _bytes(4)),
        ("IPv6Port", _u16),
        ("IPv6Addr", _bytes(16)),
        ("LunCount", _u32),
    ]


class LunInfo(Record):
    _pack_ = 1
    _layout_ = "ms"
    _fields_ = [
        ("Version", _u32),
        ("ScsiLunNum", _u32),
        ("DeviceType", _u8),
        ("Capacity", _u64),
        ("VendorName", _bytes(16)),
        ("ProductName", _bytes(32)),
        ("ProductRevision", _bytes(16)),
        ("DeviceName", _bytes(32)),
        ("VolumeName", _bytes(32)),
        ("MountPath", _bytes(64)),
        ("PhysicalDrive", _u32),
        ("ScsiLunNumExt", _u32),
    ]


class ScsiCmnd(Record):
    _pack_ = 1
    _layout_ = "ms"
    _fields_ = [
        ("Version", _u32),
        ("ScsiLunNumExt", _u32),
        ("ScsiTgtNum", _u32),
        ("ScsiLunNum", _u32),
        ("Direction", _u8),
        ("CDBLength", _u8),
        ("CDB", _bytes(16)),
        ("SenseLength", _u16),
        ("Sense", _bytes(256)),
    ]
