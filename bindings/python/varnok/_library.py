"""The shared library: its functions, and the one lock that all calls share.

The library locks nothing, and ctypes releases the interpreter's lock during a call. So every call
is made with `lock` held, and so are several calls that belong together.
"""

from __future__ import annotations

import ctypes
import os
import threading
from typing import Optional

from . import _records as c
from .errors import Error, LibraryNotFoundError

SONAME = "libvarnok.so.5"

lock = threading.RLock()

_u32 = ctypes.c_uint32
_u32_out = ctypes.POINTER(ctypes.c_uint32)
_array = ctypes.POINTER(ctypes.c_void_p)
_PROTOTYPES = {
    "VARNOK_GetVersion": [ctypes.c_void_p, _u32],
    "VARNOK_LoadLibrary": [],
    "VARNOK_FreeLibrary": [],
    "VARNOK_GetPortCount": [_u32_out],
    "VARNOK_OpenAdapter": [_u32, _u32_out],
    "VARNOK_CloseAdapter": [_u32],
    "VARNOK_GetPhyPortInfo": [_u32, ctypes.POINTER(c.PhyPortInfo)],
    "VARNOK_GetIscsiPortal": [_u32, _u32_out, _array],
    "VARNOK_GetSessionInfo": [_u32, _u32_out, _array],
    "VARNOK_GetTgtInfo": [_u32, _u32_out, _array],
    "VARNOK_GetLunInfo": [_u32, _u32, _u32_out, _array],
    "VARNOK_SendScsiCommand": [_u32, ctypes.POINTER(c.ScsiCmnd), _u32_out, ctypes.c_void_p],
}
_library: Optional[ctypes.CDLL] = None


def _open() -> ctypes.CDLL:
    try:
        library = ctypes.CDLL(SONAME)
        for name, arguments in _PROTOTYPES.items():
            function = getattr(library, name)
            function.argtypes, function.restype = arguments, _u32
    except (OSError, AttributeError) as error:
        raise LibraryNotFoundError(
            f"{SONAME} cannot be used ({error}). Install libvarnok (on Debian: the package libvarnok5), "
            "or put the folder that has it into LD_LIBRARY_PATH"
        ) from error
    return library


def call(name: str, *arguments: object) -> int:
    """Call a function of the library and return what it returns."""
    global _library
    with lock:
        if _library is None:
            _library = _open()
        return int(getattr(_library, name)(*arguments))


def check(name: str, *arguments: object, advice: str = "") -> None:
    """Call a function of the library. Raise Error if it fails."""
    status = call(name, *arguments)
    if status != 0:
        raise Error(name, status, advice)


def _make_lock() -> None:
    """Another thread of the parent may have held the lock when this process was forked."""
    global lock
    lock = threading.RLock()


os.register_at_fork(after_in_child=_make_lock)
