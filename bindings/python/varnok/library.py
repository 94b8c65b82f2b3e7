"""The library and the ports of the host."""

from __future__ import annotations

import ctypes
import operator
from types import TracebackType
from typing import Iterator, NamedTuple, Optional, Type

from . import _library
from ._load import Use
from .errors import UsageError
from .port import Port


class LibraryVersion(NamedTuple):
    """The version of the shared library."""

    major: int
    minor: int
    build: int


def library_version() -> LibraryVersion:
    """Return the version of the shared library. This needs neither root nor a host with adapters."""
    number = _library.call("VARNOK_GetVersion", None, 0)
    return LibraryVersion(number >> 24, number >> 16 & 0xFF, number >> 8 & 0xFF)


class Library:
    """The library, and the ports of this host.

    A ``with`` block loads the library and frees it. Inside, it is a sequence of the host's ports:

        with varnok.Library() as library:
            print(len(library), "ports")
            for port in library:
                with port:
                    print(port.info().hba_name)

    Blocks may be nested, and several `Library` objects may be open at once. The library stays
    loaded until the last block ends. The ports are those that the load found; a new load looks
    again. The number of ports is 0 when a driver is there but has no adapter.

    The load raises `Error` when it finds no driver, when the process does not run as root, and when
    the machine is no host with such adapters. ``varnok-host`` simulates one.
    """

    def __init__(self) -> None:
        self._use: Optional[Use] = None
        self._opens = 0

    def __repr__(self) -> str:
        return f"<varnok.Library, {'open' if self._use and self._use.is_active else 'closed'}>"

    def open(self) -> None:
        """Load the library. Every open requires a `close` of its own."""
        with _library.lock:
            if self._use is None:
                self._use = Use()
            self._use.check()
            self._opens += 1

    def close(self) -> None:
        """Undo one `open`. The last one closes the ports. Closing a closed library does nothing."""
        with _library.lock:
            self._opens = max(0, self._opens - 1)
            if self._use is not None and self._opens == 0:
                self._use.end()
                self._use = None

    def __enter__(self) -> Library:
        self.open()
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def __len__(self) -> int:
        """The number of ports."""
        return self._used().ports

    def __getitem__(self, instance: int) -> Port:
        """The port with this number, from 0. It is not open yet. IndexError when there is none."""
        instance = operator.index(instance)
        use = self._used()
        if not 0 <= instance < use.ports:
            raise IndexError(f"there is no port {instance}: the host has {use.ports}")
        return Port(use, instance)

    def __iter__(self) -> Iterator[Port]:
        """The ports of the host. They are not open yet."""
        return iter([self[instance] for instance in range(len(self))])

    def _used(self) -> Use:
        if self._use is None:
            raise UsageError("the library is not open: use it in a 'with' block")
        self._use.check()
        return self._use
