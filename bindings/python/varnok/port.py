"""A port and the queries for what is behind it."""

from __future__ import annotations

import ctypes
from types import TracebackType
from typing import Any, Callable, List, Optional, Type, TypeVar, Union

from . import _decode, _library, _lists, _records
from ._load import Use
from .errors import ListError, ScsiError, UsageError
from .records import IscsiPortal, LunInfo, PhyPortInfo, SessionInfo, TargetInfo
from .scsi import MAX_SENSE, ScsiAnswer, ScsiCommand

_R = TypeVar("_R", bound=_records.Record)
_D = TypeVar("_D")
_UINT32_MAX = 0xFFFFFFFF


class Port:
    """A port of the host. `Library` gives it; a ``with`` block opens and closes it.

    instance  the port's number on the host, from 0

    Blocks may be nested. The port closes with the last one, or when its library closes. Every query
    asks the port's driver anew. It raises `Error` when the driver fails, and `UsageError` when the
    port is not open.
    """

    def __init__(self, use: Use, instance: int) -> None:
        self.instance = instance
        self._use = use
        self._handle = 0
        self._opens = 0

    def __repr__(self) -> str:
        return f"<varnok.Port {self.instance}, {'open' if self._opens and self._use.is_active else 'closed'}>"

    def open(self) -> None:
        """Open the port. Every open requires a `close` of its own."""
        with _library.lock:
            self._handle = self._use.open(self.instance)
            self._opens += 1

    def close(self) -> None:
        """Undo one `open`. Closing a closed port does nothing."""
        with _library.lock:
            if self._opens and self._use.is_active:
                self._use.close(self._handle)
                self._opens -= 1

    def __enter__(self) -> Port:
        self.open()
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def info(self) -> PhyPortInfo:
        """Return what the driver says of the port now."""
        record = _records.PhyPortInfo(Version=_records.RECORD_VERSION_2)
        self._query("VARNOK_GetPhyPortInfo", ctypes.byref(record))
        return _decode.port_from(record)

    def portal(self) -> IscsiPortal:
        """Return the iSCSI portal of the port."""
        return self._list("VARNOK_GetIscsiPortal", _records.IscsiPortal, _decode.portal_from, [])[0]

    def sessions(self) -> List[SessionInfo]:
        """List the port's iSCSI sessions.

        Raises `ListError` when one cannot be read.
        """
        return self._list("VARNOK_GetSessionInfo", _records.SessInfo, _decode.session_from, [])

    def targets(self) -> List[TargetInfo]:
        """List the port's iSCSI targets, one for each session.

        Raises `ListError` when one cannot be read. A target that does not tell its LUNs is listed with none.
        """
        return self._list("VARNOK_GetTgtInfo", _records.TgtInfo, _decode.target_from, [])

    def luns(self, target: Union[TargetInfo, int]) -> List[LunInfo]:
        """List the LUNs of a target, which is given as a record or by its number.

        Raises `ListError` when one cannot be read, or when the target has more LUNs than the
        library lists (2047).
        """
        number = target if isinstance(target, int) else target.scsi_tgt_num
        _check_uint32("target", number)
        return self._list("VARNOK_GetLunInfo", _records.LunInfo, _decode.lun_from, [number], 1, _lists.MOST_LUNS)

    def send_scsi(
        self,
        cdb: bytes,
        *,
        target: Union[TargetInfo, int],
        lun: Union[LunInfo, int],
        data_in: int = 0,
        data_out: bytes = b"",
        sense_length: int = MAX_SENSE,
    ) -> ScsiAnswer:
        """Send a SCSI command to a LUN and wait until it has ended. There is no limit of time.

        cdb           the command descriptor block, 1 to 16 bytes
        target, lun   records, or `TargetInfo.scsi_tgt_num` and `LunInfo.number`
        data_in       the number of bytes to read
        data_out      the bytes to write; a command has data_in or data_out, not both
        sense_length  the number of sense bytes to accept, at most 256

        A port of a native driver moves at most 262144 bytes with one command.

        Raises `ScsiError` when the driver fails the command, and ValueError when an argument is out
        of range. A command that the device refused returns: look at `ScsiAnswer.sense`, or take the
        data with `ScsiAnswer.check`.
        """
        command = ScsiCommand(
            cdb=cdb,
            target=target if isinstance(target, int) else target.scsi_tgt_num,
            lun=lun if isinstance(lun, int) else lun.number,
            data_in=data_in,
            data_out=data_out,
            sense_length=sense_length,
        )
        record: Any = _records.ScsiCmnd(
            ScsiLunNumExt=command.lun >> 32,
            ScsiTgtNum=command.target,
            ScsiLunNum=command.lun & _UINT32_MAX,
            Direction=command.direction,
            CDBLength=len(command.cdb),
            SenseLength=command.sense_length,
        )
        ctypes.memmove(record.CDB, command.cdb, len(command.cdb))
        buffer = ctypes.create_string_buffer(command.data_out, max(1, command.data_in, len(command.data_out)))
        size = ctypes.c_uint32(command.data_in or len(command.data_out))
        call = "VARNOK_SendScsiCommand"
        with _library.lock:
            self._check_open()
            status = _library.call(call, self._handle, ctypes.byref(record), ctypes.byref(size), buffer)
        sense = bytes(record.Sense)[: command.sense_length]
        answer = ScsiAnswer(command, buffer.raw[: command.data_in], sense if any(sense) else b"")
        if status != 0:
            raise ScsiError(call, status, str(answer.sense or ""), answer)
        return answer

    def _check_open(self) -> None:
        self._use.check()
        if not self._opens:
            raise UsageError(f"port {self.instance} is not open: use it in a 'with' block")

    def _query(self, name: str, *arguments: object) -> None:
        with _library.lock:
            self._check_open()
            _library.check(name, self._handle, *arguments)

    def _list(
        self,
        name: str,
        record: Type[_R],
        decode: Callable[[_R], _D],
        arguments: List[object],
        count: int = 0,
        most: int = _UINT32_MAX,
    ) -> List[_D]:
        with _library.lock:
            if name != "VARNOK_GetLunInfo":
                self.info()  # Only so does the library learn the portal and the number of sessions.
            self._check_open()
            status, claimed, found = _lists.read_list(
                record, lambda count, array: _library.call(name, self._handle, *arguments, count, array), count, most
            )
        records = [decode(one) for one in found]
        if status != 0:
            raise ListError(name, status, f"read {len(records)} of the list before", records)
        if claimed > most and len(records) == most:
            raise ListError(name, status, f"the target has {claimed} LUNs, and the library lists {most}", records)
        return records


def _check_uint32(name: str, number: int) -> None:
    if not 0 <= number <= _UINT32_MAX:
        raise ValueError(f"{name} is {number}, not 0 to {_UINT32_MAX}")
