"""The library's records as those of `varnok.records`. Reserved fields and those that are never written are left out."""

from __future__ import annotations

import ipaddress
from typing import Any, Optional

from . import _records
from .codes import MediaType, PcieSpeed, PcieWidth, PortSpeed, PortState
from .records import IscsiPortal, LunInfo, PhyPortInfo, SessionInfo, TargetInfo


def _text(field: Any) -> str:
    return bytes(field).split(b"\0")[0].decode("utf-8", "surrogateescape")


def _mac(field: Any) -> Optional[str]:
    return bytes(field).hex(":") if any(field) else None


def _ipv4(field: Any) -> Optional[ipaddress.IPv4Address]:
    return ipaddress.IPv4Address(bytes(field)) if any(field) else None


def _ipv6(field: Any) -> Optional[ipaddress.IPv6Address]:
    return ipaddress.IPv6Address(bytes(field)) if any(field) else None


def portal_from(record: _records.IscsiPortal) -> IscsiPortal:
    r: Any = record
    return IscsiPortal(
        ipv4_address=_ipv4(r.IPv4Addr),
        ipv4_port=r.IPv4PortNum,
        ipv6_address=_ipv6(r.IPv6Addr),
        ipv6_port=r.IPv6PortNum,
    )


def port_from(record: _records.PhyPortInfo) -> PhyPortInfo:
    r: Any = record
    return PhyPortInfo(
        model_name=_text(r.ModelName),
        model_desc=_text(r.ModelDesc),
        driver_version=_text(r.DriverVersion),
        driver_date=_text(r.DriverDate),
        driver_name=_text(r.DriverName),
        driver_loaded=r.DriverLoaded != 0,
        serial_num=_text(r.SerialNum),
        fw_version=_text(r.FWVersion),
        mac=_mac(r.MAC),
        mtu=r.MTU,
        vendor_id=r.VendorID,
        device_id=r.DeviceID,
        sub_vendor_id=r.SubVendorID,
        sub_system_id=r.SubSystemID,
        pci_domain_num=r.PciDomainNum,
        pci_bus_num=r.PciBusNum,
        pci_device_num=r.PciDeviceNum,
        pci_function_num=r.PciFunctionNum,
        pci_revision=r.PciRevision,
        phy_port_num=r.PhyPortNum,
        sess_count=r.SessCount,
        pcie_speed=PcieSpeed(r.PCIESpeed),
        pcie_width=PcieWidth(r.PCIEWidth),
        chip_rev_id=r.ChipRevId,
        port_state=PortState(r.PortState),
        port_speed=PortSpeed(r.PortSpeed),
        media_type=MediaType(r.MediaType),
        hba_name=_text(r.HbaName),
        mfw_version=_text(r.MFWVersion) or None,
    )


def session_from(record: _records.SessInfo) -> SessionInfo:
    r: Any = record
    return SessionInfo(
        session_num=r.SessionNum,
        session_unique=r.SessionUnique,
        session_state=r.SessionState,
        initiator_name=_text(r.InitiatorName),
        init_ipv4_address=_ipv4(r.InitIPv4Addr),
        init_ipv4_port=r.InitIPv4PortNum,
        init_ipv6_address=_ipv6(r.InitIPv6Addr),
        init_ipv6_port=r.InitIPv6PortNum,
        target_name=_text(r.TargetName),
        tgt_ipv4_address=_ipv4(r.TgtIPv4Addr),
        tgt_ipv4_port=r.TgtIPv4PortNum,
        tgt_ipv6_address=_ipv6(r.TgtIPv6Addr),
        tgt_ipv6_port=r.TgtIPv6PortNum,
        initial_r2t=r.InitialR2T,
        immediate_data=r.ImmediateData,
        data_sequence_in_order=r.DataSequenceInOrder,
        data_pdu_in_order=r.DataPDUInOrder,
        max_outstanding_r2t=r.MaxOutstandingR2T,
        first_burst_length=r.FirstBurstLength,
        error_recovery_level=r.ErrorRecoveryLevel,
        conn_id=r.ConnID,
    )


def target_from(record: _records.TgtInfo) -> TargetInfo:
    r: Any = record
    return TargetInfo(
        scsi_tgt_num=r.ScsiTgtNum,
        target_name=_text(r.TargetName),
        mac=_mac(r.MAC),
        isid=bytes(r.Isid) if any(r.Isid) else None,
        ipv4_address=_ipv4(r.IPv4Addr),
        ipv4_port=r.IPv4Port,
        ipv6_address=_ipv6(r.IPv6Addr),
        ipv6_port=r.IPv6Port,
        lun_count=r.LunCount,
    )


def lun_from(record: _records.LunInfo) -> LunInfo:
    r: Any = record
    return LunInfo(
        scsi_lun_num=r.ScsiLunNum,
        scsi_lun_num_ext=r.ScsiLunNumExt,
        device_type=r.DeviceType,
        capacity=r.Capacity or None,
        vendor_name=_text(r.VendorName).rstrip(" "),
        product_name=_text(r.ProductName).rstrip(" "),
        product_revision=_text(r.ProductRevision).rstrip(" "),
    )
