"""What the library says of ports, sessions, targets and LUNs.

A text is UTF-8. Bytes that are not UTF-8 become lone surrogates, as in the names of files, so nothing is lost:
``text.encode("utf-8", "surrogateescape")`` gives the bytes back. Use `varnok.printable` before you show a text.

An address or an identifier is None where the record has only zeros, which stand for "not known". A number without a name
in `varnok.codes` is kept as a number.
"""

from __future__ import annotations

import dataclasses
import ipaddress
from typing import Optional

from .codes import MediaType, PcieSpeed, PcieWidth, PortSpeed, PortState


def printable(text: str) -> str:
    r"""The text with escapes for what does not print, such as ``\x1b`` for the escape byte of terminals.

    Names come from targets, and nobody checks them. A backslash is doubled, so different texts stay different.
    """
    return "".join(
        char if char.isprintable() and char != "\\" else char.encode("unicode_escape").decode() for char in text
    )


@dataclasses.dataclass(frozen=True)
class IscsiPortal:
    """The iSCSI portal of a port: where the port itself is reached."""

    ipv4_address: Optional[ipaddress.IPv4Address]
    ipv4_port: int
    """TCP port."""
    ipv6_address: Optional[ipaddress.IPv6Address]
    ipv6_port: int
    """TCP port."""


@dataclasses.dataclass(frozen=True)
class PhyPortInfo:
    """The physical port of an adapter."""

    model_name: str
    model_desc: str
    driver_version: str
    driver_date: str
    driver_name: str
    driver_loaded: bool
    """Always true."""
    serial_num: str
    """Serial number of the adapter."""
    fw_version: str
    """Firmware version."""
    mac: Optional[str]
    """iSCSI MAC address as "02:1e:2b:40:71:80"."""
    mtu: int
    """Bytes."""
    vendor_id: int
    """PCI vendor ID."""
    device_id: int
    """PCI device ID."""
    sub_vendor_id: int
    """PCI subsystem vendor ID."""
    sub_system_id: int
    """PCI subsystem ID."""
    pci_domain_num: int
    pci_bus_num: int
    pci_device_num: int
    pci_function_num: int
    pci_revision: int
    phy_port_num: int
    """The port's number on the adapter, 0 to 255."""
    sess_count: int
    """Sessions of the port."""
    pcie_speed: PcieSpeed
    pcie_width: PcieWidth
    chip_rev_id: int
    """Chip revision, from the driver."""
    port_state: PortState
    port_speed: PortSpeed
    media_type: MediaType
    hba_name: str
    """The port's adapter name, such as "vmhba64"."""
    mfw_version: Optional[str]
    """Management firmware as "08.20.10.00". None for adapters of the older family, which have none."""


@dataclasses.dataclass(frozen=True)
class SessionInfo:
    """An iSCSI session of a port. The negotiated values are those of RFC 7143, as the driver gives them.

    If a session never logged in, all its numbers are zero.
    """

    session_num: int
    """Number from the driver."""
    session_unique: int
    """Identifier from the driver."""
    session_state: int
    """From the driver; ``varnokctl`` reads 1 as logged in."""
    initiator_name: str
    """iSCSI name."""
    init_ipv4_address: Optional[ipaddress.IPv4Address]
    init_ipv4_port: int
    """TCP port."""
    init_ipv6_address: Optional[ipaddress.IPv6Address]
    init_ipv6_port: int
    """TCP port."""
    target_name: str
    """iSCSI name."""
    tgt_ipv4_address: Optional[ipaddress.IPv4Address]
    tgt_ipv4_port: int
    """TCP port."""
    tgt_ipv6_address: Optional[ipaddress.IPv6Address]
    tgt_ipv6_port: int
    """TCP port."""
    initial_r2t: int
    immediate_data: int
    data_sequence_in_order: int
    data_pdu_in_order: int
    max_outstanding_r2t: int
    first_burst_length: int
    """Bytes."""
    error_recovery_level: int
    conn_id: int
    """Connection identifier."""


@dataclasses.dataclass(frozen=True)
class TargetInfo:
    """An iSCSI target of a port."""

    scsi_tgt_num: int
    """The target's number on the port, from 0: its place in the list."""
    target_name: str
    """iSCSI name."""
    mac: Optional[str]
    """MAC address as "02:aa:10:00:01:0a"."""
    isid: Optional[bytes]
    """Initiator session identifier, 6 bytes."""
    ipv4_address: Optional[ipaddress.IPv4Address]
    ipv4_port: int
    """TCP port."""
    ipv6_address: Optional[ipaddress.IPv6Address]
    ipv6_port: int
    """TCP port."""
    lun_count: int
    """LUNs that the target claims to have. It is also 0 when the target did not tell."""


@dataclasses.dataclass(frozen=True)
class LunInfo:
    """A logical unit behind a target."""

    scsi_lun_num: int
    """LUN levels 1 (low 16 bits) and 2 (high 16 bits)."""
    scsi_lun_num_ext: int
    """LUN levels 3 (low 16 bits) and 4 (high 16 bits)."""
    device_type: int
    """Byte 0 of the INQUIRY data: qualifier (high 3 bits) and device type (low 5 bits, 0 for a disk)."""
    capacity: Optional[int]
    """Bytes. None when the device did not tell, for example because it has no medium."""
    vendor_name: str
    """Without the spaces at its end, as the other texts. All three are empty when the device did not tell."""
    product_name: str
    product_revision: str

    @property
    def number(self) -> int:
        """All four levels as one number, with `scsi_lun_num_ext` in the upper half.

        LUNs below 256 usually have their own number. The address method is part of it: flat LUN 300 is 0x412C.
        """
        return self.scsi_lun_num | self.scsi_lun_num_ext << 32
