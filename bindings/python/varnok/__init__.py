"""Inspect the iSCSI offload adapters of a hypervisor host.

    import varnok

    with varnok.Library() as library:
        for port in library:
            with port:
                print(port.info().hba_name)
                for target in port.targets():
                    print(" ", varnok.printable(target.target_name))
                    for lun in port.luns(target):
                        print("   ", lun.number, lun.capacity)

`Library` is a sequence of ports. `Port` has the queries, and sends SCSI commands. Each query asks
the driver anew and returns frozen dataclasses: `PhyPortInfo`, `IscsiPortal`, `SessionInfo`,
`TargetInfo` or `LunInfo`. When a call of the library fails, an `Error` has the name of its status.
Begin with ``python3 -m pydoc varnok.Library``, then read ``varnok.Port``.

What it requires: the shared library libvarnok.so.5 is installed, the process runs as root, and the
machine is a host with such adapters. ``varnok-host run FILE -- python3 ...`` simulates a host, and
requires no root.

Threads: any thread may use the package. Calls of the library must not overlap, so the package makes
one at a time: a slow SCSI command holds up the other threads' calls.

Processes: several may use the library at once. A process that is forked while the library is open
cannot use it, and gets a `UsageError`. With multiprocessing, use the start method "spawn".
"""

from .codes import Direction, MediaType, PcieSpeed, PcieWidth, PortSpeed, PortState, Status
from .errors import Error, LibraryNotFoundError, ListError, ScsiError, SenseError, UsageError
from .library import Library, LibraryVersion, library_version
from .port import Port
from .records import IscsiPortal, LunInfo, PhyPortInfo, SessionInfo, TargetInfo, printable
from .scsi import ScsiAnswer, ScsiCommand, Sense

__all__ = [
    "Direction",
    "Error",
    "IscsiPortal",
    "Library",
    "LibraryNotFoundError",
    "LibraryVersion",
    "ListError",
    "LunInfo",
    "MediaType",
    "PcieSpeed",
    "PcieWidth",
    "PhyPortInfo",
    "Port",
    "PortSpeed",
    "PortState",
    "ScsiAnswer",
    "ScsiCommand",
    "ScsiError",
    "Sense",
    "SenseError",
    "SessionInfo",
    "Status",
    "TargetInfo",
    "UsageError",
    "library_version",
    "printable",
]
