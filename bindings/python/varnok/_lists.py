"""Lists of the library's records, as long as they really are."""

from __future__ import annotations

import ctypes
import mmap
import os
from typing import Callable, List, Tuple, Type, TypeVar

from . import _records
from .codes import Status

# The library does not tell how many entries it wrote: fewer than there is room for when an entry
# failed or when a list became shorter. So an entry starts with a mark where the library writes
# something else. A device cannot know the random one. Entries beyond the first few thousand start as
# zeros: they take memory only when they are written, however many a driver claims to have.
MOST_MARKED = 4096
MOST_LUNS = 2047
_TURNS = 10
_NORESERVE = getattr(mmap, "MAP_NORESERVE", 0x4000)  # Linux's number, for which older Pythons have no name
_NEVER = {"IsIPv4": b"\xff", "TgtIsIPv4": b"\xff", "ScsiTgtNum": b"\xff" * 4, "ProductName": os.urandom(16)}
_MARKED_FIELD = {
    _records.IscsiPortal: "IsIPv4",
    _records.SessInfo: "TgtIsIPv4",
    _records.TgtInfo: "ScsiTgtNum",
    _records.LunInfo: "ProductName",
}
_R = TypeVar("_R", bound=_records.Record)


class _Room:
    """Room for an array of the library's."""

    def __init__(self, record: Type[_records.Record], count: int) -> None:
        self.size, self.count = ctypes.sizeof(record), count
        self.marked = min(count, MOST_MARKED)
        field = _MARKED_FIELD[record]
        self.mark, self.at = _NEVER[field], getattr(record, field).offset
        self.memory = mmap.mmap(-1, max(1, self.size * count), flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | _NORESERVE)
        for start in range(0, self.marked * self.size, self.size):
            version = _records.RECORD_VERSION_2.to_bytes(4, "little")
            self.memory[start : start + len(version)] = version
            self.memory[start + self.at : start + self.at + len(self.mark)] = self.mark
        self.address = ctypes.c_void_p(ctypes.addressof(ctypes.c_char.from_buffer(self.memory)))

    def is_written(self, index: int) -> bool:
        start = index * self.size
        if index < self.marked:
            return self.memory[start + self.at : start + self.at + len(self.mark)] != self.mark
        return any(self.memory[start : start + self.size])

    def written(self, record: Type[_R], complete: bool) -> List[_R]:
        """The entries that were written. A complete list that is longer than the marks has no gap in its rest."""
        records: List[_R] = []
        while len(records) < self.count and (
            (complete and len(records) >= self.marked) or self.is_written(len(records))
        ):
            records.append(record.from_buffer_copy(self.memory, len(records) * self.size))
        return records


def read_list(
    record: Type[_R], query: Callable[[object, object], int], count: int = 0, most: int = 0xFFFFFFFF
) -> Tuple[int, int, List[_R]]:
    """Ask query(count, array) with room for count entries, and again with more room when the library asks for it.

    The library writes at most so many entries. Return its status, the number of entries that the list has by its own
    account, and those that were written, whatever the status. The caller holds the lock.
    """
    for _ in range(_TURNS):  # the list may grow meanwhile
        try:
            room = _Room(record, min(count, most))
        except (OSError, MemoryError, OverflowError, ValueError):
            return Status.VARNOK_STATUS_NO_MEMORY, count, []
        needed = ctypes.c_uint32(count)
        status = query(ctypes.byref(needed), ctypes.byref(room.address))
        if status != Status.VARNOK_STATUS_INSUFFICIENT_BUFFER or needed.value <= count:
            break
        count = needed.value
    return status, needed.value, room.written(record, complete=status == 0)
