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

`Library` is a sequence of ports. `Port` has the queries and sends SCSI commands. What they return are frozen dataclasses:
`PhyPortInfo`, `IscsiPortal`, `SessionInfo`, `TargetInfo`, `LunInfo` and `ScsiAnswer`. What they raise is an `Error`, which
has the name of the library's status. The package has no state beside the library's, and every query asks the driver anew.

Requirements: the shared library libvarnok.so.5 is installed, the process runs as root, and the machine is a host with such
adapters. ``varnok-host run FILE -- python3 ...`` simulates a host and needs no root.

Threads: any thread may use the package. Calls of the library must not overlap, so the package makes one at a time.

Processes: several may use the library at once. A process that is forked while the library is open cannot use it, and gets
a `UsageError`. With multiprocessing, use the start method "spawn".
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
