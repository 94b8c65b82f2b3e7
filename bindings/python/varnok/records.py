"""What the library says of ports, sessions, targets and LUNs.

A text is UTF-8. Bytes that are not UTF-8 become lone surrogates, as in names of files, so nothing
is lost: ``text.encode("utf-8", "surrogateescape")`` gives the bytes back. Use `varnok.printable`
before you show a text.

An address or an identifier is None where the record has only zeros, which stand for "not known".
"From the driver" means that the driver defines the values, and nobody checks them.
"""

from __future__ import annotations

import dataclasses
import ipaddress
from typing import Optional

from .codes import MediaType, PcieSpeed, PcieWidth, PortSpeed, PortState


def printable(text: str) -> str:
    r"""Return the text with escapes for what does not print, such as ``\x1b`` for a terminal's escape byte.

    Names come from targets, and nobody checks them. A backslash is doubled, so that different
    texts stay different.
    """
    return "".join(
        char if char.isprintable() and char != "\\" else char.encode("unicode_escape").decode() for char in text
    )


@dataclasses.dataclass(frozen=True)
class IscsiPortal:
    """The iSCSI portal of a port: where the port itself is reached.

    ipv4_address, ipv6_address  None when the port has none
    ipv4_port, ipv6_port        TCP ports
    """

    ipv4_address: Optional[ipaddress.IPv4Address]
    ipv4_port: int
    ipv6_address: Optional[ipaddress.IPv6Address]
    ipv6_port: int


@dataclasses.dataclass(frozen=True)
class PhyPortInfo:
    """The physical port of an adapter.

    model_name, model_desc    the model and its description
    driver_version, driver_date, driver_name
    driver_loaded             always true
    serial_num                serial number of the adapter
    fw_version                firmware version
    mac                       iSCSI MAC address as "02:1e:2b:40:71:80"
    mtu                       bytes
    vendor_id, device_id      PCI IDs
    sub_vendor_id, sub_system_id
                              PCI subsystem IDs
    pci_domain_num, pci_bus_num, pci_device_num, pci_function_num, pci_revision
                              where the adapter is
    phy_port_num              the port's number on the adapter, 0 to 255
    sess_count                sessions of the port
    pcie_speed, pcie_width    the PCIe link
    chip_rev_id               chip revision, from the driver
    port_state, port_speed    the port's link now
    media_type                always the same: no driver reports a medium
    hba_name                  the port's adapter name, such as "vmhba64"
    mfw_version               management firmware as "08.20.10.00"; None for adapters of the
                              older family, which have none
    """

    model_name: str
    model_desc: str
    driver_version: str
    driver_date: str
    driver_name: str
    driver_loaded: bool
    serial_num: str
    fw_version: str
    mac: Optional[str]
    mtu: int
    vendor_id: int
    device_id: int
    sub_vendor_id: int
    sub_system_id: int
    pci_domain_num: int
    pci_bus_num: int
    pci_device_num: int
    pci_function_num: int
    pci_revision: int
    phy_port_num: int
    sess_count: int
    pcie_speed: PcieSpeed
    pcie_width: PcieWidth
    chip_rev_id: int
    port_state: PortState
    port_speed: PortSpeed
    media_type: MediaType
    hba_name: str
    mfw_version: Optional[str]


@dataclasses.dataclass(frozen=True)
class SessionInfo:
    """An iSCSI session of a port.

    The negotiated values are those of RFC 7143, as the driver gives them. In a session that never
    logged in they are zero.

    session_num           number, from the driver
    session_unique        identifier, from the driver
    session_state         from the driver; ``varnokctl`` reads 1 as logged in
    initiator_name        iSCSI name
    init_ipv4_address, init_ipv4_port, init_ipv6_address, init_ipv6_port
                          the initiator's end, with TCP ports
    target_name           iSCSI name
    tgt_ipv4_address, tgt_ipv4_port, tgt_ipv6_address, tgt_ipv6_port
                          the target's end, with TCP ports
    initial_r2t, immediate_data, data_sequence_in_order, data_pdu_in_order
                          negotiated
    max_outstanding_r2t   negotiated
    first_burst_length    negotiated, in bytes
    error_recovery_level  negotiated
    conn_id               connection identifier
    """

    session_num: int
    session_unique: int
    session_state: int
    initiator_name: str
    init_ipv4_address: Optional[ipaddress.IPv4Address]
    init_ipv4_port: int
    init_ipv6_address: Optional[ipaddress.IPv6Address]
    init_ipv6_port: int
    target_name: str
    tgt_ipv4_address: Optional[ipaddress.IPv4Address]
    tgt_ipv4_port: int
    tgt_ipv6_address: Optional[ipaddress.IPv6Address]
    tgt_ipv6_port: int
    initial_r2t: int
    immediate_data: int
    data_sequence_in_order: int
    data_pdu_in_order: int
    max_outstanding_r2t: int
    first_burst_length: int
    error_recovery_level: int
    conn_id: int


@dataclasses.dataclass(frozen=True)
class TargetInfo:
    """An iSCSI target of a port.

    scsi_tgt_num                the target's number on the port, from 0: its place in the list
    target_name                 iSCSI name
    mac                         MAC address as "02:aa:10:00:01:0a"
    isid                        initiator session identifier, 6 bytes
    ipv4_address, ipv6_address  from the driver
    ipv4_port, ipv6_port        TCP ports
    lun_count                   LUNs that the target claims to have. It is also 0 when the target
                                does not tell
    """

    scsi_tgt_num: int
    target_name: str
    mac: Optional[str]
    isid: Optional[bytes]
    ipv4_address: Optional[ipaddress.IPv4Address]
    ipv4_port: int
    ipv6_address: Optional[ipaddress.IPv6Address]
    ipv6_port: int
    lun_count: int


@dataclasses.dataclass(frozen=True)
class LunInfo:
    """A logical unit behind a target.

    scsi_lun_num      LUN levels 1 (low 16 bits) and 2 (high 16 bits)
    scsi_lun_num_ext  LUN levels 3 (low 16 bits) and 4 (high 16 bits)
    device_type       byte 0 of the INQUIRY data: qualifier (high 3 bits) and device type (low 5
                      bits, 0 for a disk)
    capacity          bytes; None when the device does not tell, for example without a medium
    vendor_name, product_name, product_revision
                      without the spaces at the end. All are empty when the device does not tell;
                      device_type then means nothing
    """

    scsi_lun_num: int
    scsi_lun_num_ext: int
    device_type: int
    capacity: Optional[int]
    vendor_name: str
    product_name: str
    product_revision: str

    @property
    def number(self) -> int:
        """All four levels as one number, with `scsi_lun_num_ext` in the upper half.

        LUNs below 256 usually have their own number. The address method is part of it: flat LUN 300 is 0x412C.
        """
        return self.scsi_lun_num | self.scsi_lun_num_ext << 32
