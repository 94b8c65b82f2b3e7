"""The numbers of the library's interface that have names.

Every class keeps a number that has no name here: ``PortState(7)`` is a member, too. Members are
integers.
"""

from __future__ import annotations

import enum
import errno
from typing import Optional, Tuple, TypeVar

_Code = TypeVar("_Code", bound="Code")


class Code(enum.IntEnum):
    """A number of the library's, with its name where it has one."""

    @classmethod
    def _missing_(cls: type[_Code], value: object) -> Optional[_Code]:
        if not isinstance(value, int):
            return None
        member = int.__new__(cls, value)
        member._name_ = cls._name_of(value)
        member._value_ = value
        return member

    def __reduce_ex__(self, proto: object) -> Tuple[type, Tuple[int]]:
        """Copies and pickles by number: a number without a name is no attribute of its class."""
        return type(self), (int(self),)

    @classmethod
    def _name_of(cls, value: int) -> str:
        return f"UNKNOWN_0x{value & 0xFFFFFFFFFFFFFFFF:X}"


class Status(Code):
    """What a call of the library returns. The names are those of the C header.

    A port of a legacy driver may also fail to open or close with an error number of the operating
    system. Such a status has the error's name, such as ``ENOENT``.
    """

    VARNOK_STATUS_SUCCESS = 0x00000000
    VARNOK_STATUS_FAILED = 0x80000001
    VARNOK_STATUS_DRIVER_2 = 0x80000002
    VARNOK_STATUS_DRIVER_3 = 0x80000003
    VARNOK_STATUS_INVALID_PARAMETER = 0x80000004
    VARNOK_STATUS_DRIVER_5 = 0x80000005
    VARNOK_STATUS_DRIVER_6 = 0x80000006
    VARNOK_STATUS_NOT_FOUND = 0x80000007
    VARNOK_STATUS_DRIVER_8 = 0x80000008
    VARNOK_STATUS_INSUFFICIENT_BUFFER = 0x80000009
    VARNOK_STATUS_NO_MEMORY = 0x8000000A
    VARNOK_STATUS_DRIVER_FAILED = 0x8000000B
    VARNOK_STATUS_DRIVER_12 = 0x8000000C
    VARNOK_STATUS_DRIVER_13 = 0x8000000D

    @classmethod
    def _name_of(cls, value: int) -> str:
        return errno.errorcode.get(value) or super()._name_of(value)


class PcieSpeed(Code):
    """The speed of the adapter's PCIe link in GT/s. OTHER is any other speed, or none reported."""

    OTHER = 0
    GT_2_5 = 25
    GT_5_0 = 50
    GT_8_0 = 80


class PcieWidth(Code):
    """The lanes of the adapter's PCIe link. OTHER is any other number, or none reported."""

    OTHER = 0
    X1 = 3
    X2 = 4
    X4 = 5
    X8 = 6
    X16 = 8
    X32 = 9


class PortState(Code):
    """The link's state by the driver's number. ``varnokctl`` reads 0 as online and 1 as offline."""

    STATE_0 = 4
    STATE_1 = 8
    OTHER = 0x80000000


class PortSpeed(Code):
    """The link's speed now, in Gbit/s. OTHER is any other speed."""

    OTHER = 0
    GBIT_10 = 0x8
    GBIT_20 = 0x80
    GBIT_25 = 0x800
    GBIT_40 = 0x100
    GBIT_50 = 0x200

    @property
    def gbits_per_second(self) -> Optional[int]:
        """The speed in Gbit/s, or None for any other speed."""
        prefix, _, number = self.name.partition("_")
        return int(number) if prefix == "GBIT" else None


class MediaType(Code):
    """The medium. No driver reports one, so every port has this number."""

    UNSPECIFIED = 4


class Direction(Code):
    """Where a SCSI command moves data: in is from the device to the program."""

    NO_DATA = 0
    DATA_IN = 1
    DATA_OUT = 2
