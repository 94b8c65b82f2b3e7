"""The load of the library. Several users in a process share one."""

from __future__ import annotations

import atexit
import ctypes
import os
from typing import List

from . import _library
from .errors import UsageError

_LOAD_ADVICE = "run as root on a host with such adapters; VARNOK_API_DEBUG=4 in the environment tells what is missing"

_users: List[Use] = []
_loader = 0  # the process that loaded; 0 when none did


class Use:
    """A user's part in the load, from `Use()` to `end`. Its callers hold the lock."""

    def __init__(self) -> None:
        global _loader
        _require_own_process()
        before, _loader = _loader, os.getpid()
        try:
            if not _users or _port_count() == 0:
                _library.check("VARNOK_LoadLibrary", advice=_LOAD_ADVICE)
        except BaseException:
            _loader = before
            raise
        _users.append(self)
        self.ports = _port_count()
        self.handles: List[int] = []

    def check(self) -> None:
        """Raise UsageError when the use has ended or is another process's."""
        _require_own_process()
        if self not in _users:
            raise UsageError("the library is not open: use it in a 'with' block")

    @property
    def is_active(self) -> bool:
        return self in _users and _loader == os.getpid()

    def open(self, instance: int) -> int:
        """Open a port and return its handle."""
        handle = ctypes.c_uint32()
        self.check()
        _library.check("VARNOK_OpenAdapter", instance, ctypes.byref(handle))
        self.handles.append(handle.value)
        return handle.value

    def close(self, handle: int) -> None:
        """Undo one `open`. A port that cannot be closed stays open."""
        self.check()
        _library.check("VARNOK_CloseAdapter", handle)
        self.handles.remove(handle)

    def end(self) -> None:
        """Close what is open. The last user frees the library, which closes whatever is left."""
        global _loader
        if not self.is_active:
            return
        _users.remove(self)
        if _users:
            for handle in self.handles:
                _library.call("VARNOK_CloseAdapter", handle)
        else:
            _library.call("VARNOK_FreeLibrary")
            _loader = 0


def _port_count() -> int:
    count = ctypes.c_uint32()
    # This call fails only when nothing is loaded. A load may succeed and find no adapter.
    return count.value if _library.call("VARNOK_GetPortCount", ctypes.byref(count)) == 0 else 0


def _require_own_process() -> None:
    """A forked process has its parent's place in the database that all processes share. It must leave that alone."""
    if _loader not in (0, os.getpid()):
        raise UsageError(
            "this process was forked while the library was open, and cannot use it: "
            "fork before, or start a new program (multiprocessing: start method 'spawn')"
        )


@atexit.register
def _end_all() -> None:
    with _library.lock:
        for use in list(_users):
            use.end()
