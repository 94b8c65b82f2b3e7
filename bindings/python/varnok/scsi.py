"""SCSI commands and what comes back."""

from __future__ import annotations

import dataclasses
from typing import Optional

from .codes import Direction
from .errors import SenseError

MAX_CDB = 16
MAX_SENSE = 256
_UINT32_MAX = 0xFFFFFFFF


@dataclasses.dataclass(frozen=True)
class ScsiCommand:
    """A SCSI command for a LUN. It moves data in one direction at most.

    cdb           the command descriptor block, 1 to 16 bytes
    target        `TargetInfo.scsi_tgt_num`
    lun           `LunInfo.number`
    data_in       the number of bytes to read
    data_out      the bytes to write
    sense_length  the number of sense bytes to accept, at most 256

    ValueError says what is out of range.
    """

    cdb: bytes
    target: int
    lun: int
    data_in: int = 0
    data_out: bytes = b""
    sense_length: int = MAX_SENSE

    def __post_init__(self) -> None:
        object.__setattr__(self, "cdb", bytes(memoryview(self.cdb)))
        object.__setattr__(self, "data_out", bytes(memoryview(self.data_out)))
        for name, number, low, high in (
            ("len(cdb)", len(self.cdb), 1, MAX_CDB),
            ("target", self.target, 0, _UINT32_MAX),
            ("lun", self.lun, 0, 0xFFFFFFFFFFFFFFFF),
            ("data_in", self.data_in, 0, _UINT32_MAX),
            ("len(data_out)", len(self.data_out), 0, _UINT32_MAX),
            ("sense_length", self.sense_length, 0, MAX_SENSE),
        ):
            if not low <= number <= high:
                raise ValueError(f"{name} is {number}, not {low} to {high}")
        if self.data_in and self.data_out:
            raise ValueError("a command has data_in or data_out, not both")

    @property
    def direction(self) -> Direction:
        """Where the command moves data."""
        if self.data_in:
            return Direction.DATA_IN
        return Direction.DATA_OUT if self.data_out else Direction.NO_DATA


@dataclasses.dataclass(frozen=True)
class Sense:
    """Sense data: what a device says of a command that it did not simply carry out.

    key       sense key, such as 5 for an illegal request
    asc       additional sense code
    ascq      additional sense code qualifier
    deferred  true if this is about an earlier command; the command itself was not begun
    """

    key: int
    asc: int
    ascq: int
    deferred: bool

    @property
    def refused(self) -> bool:
        """False if the device carried the command out all the same."""
        no_sense, recovered, completed = 0, 1, 15
        return self.deferred or self.key not in (no_sense, recovered, completed)

    def __str__(self) -> str:
        return f"sense {self.key:02x}/{self.asc:02x}/{self.ascq:02x}" + (", deferred" if self.deferred else "")


@dataclasses.dataclass(frozen=True)
class ScsiAnswer:
    """What came back for a SCSI command.

    command      the command
    data         as many bytes as `ScsiCommand.data_in` asks for; those that did not come are zeros
    sense_bytes  the sense data as they came, `ScsiCommand.sense_length` bytes; empty if none came

    The library tells neither a SCSI status nor how many bytes came. A command that the device
    refused therefore looks like one whose data are zeros: look at `sense`, or take the data with
    `check`.
    """

    command: ScsiCommand
    data: bytes
    sense_bytes: bytes

    @property
    def sense(self) -> Optional[Sense]:
        """The sense data. None if none came, or if they are of an unknown form."""
        header, fixed_codes_end = 8, 14
        raw = self.sense_bytes
        response = raw[0] & 0x7F if len(raw) >= header else 0
        if not 0x70 <= response <= 0x73:
            return None
        raw = raw[: header + raw[7]]
        deferred = response in (0x71, 0x73)
        if response >= 0x72:
            return Sense(raw[1] & 0x0F, raw[2], raw[3], deferred)
        asc, ascq = (raw[12], raw[13]) if len(raw) >= fixed_codes_end else (0, 0)
        return Sense(raw[2] & 0x0F, asc, ascq, deferred)

    def check(self) -> bytes:
        """Return the data.

        Raises SenseError if the device refused the command, or if it gave sense data of an unknown
        form.
        """
        sense = self.sense
        if sense.refused if sense else self.sense_bytes:
            raise SenseError(self)
        return self.data
