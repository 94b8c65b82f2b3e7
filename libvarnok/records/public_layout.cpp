// The records that callers compile into their programs: a field that moves here corrupts data
// there.
#include "include/varnok_mgmt.h"
#include "records/layout_assert.h"

// clang-format off

#define RECORD VARNOK_ISCSI_PORTAL
SIZE(29);
AT(Version, 0);       AT(IsIPv4, 4);        AT(IPv4Addr, 5);      AT(IPv4PortNum, 9);
AT(IPv6Addr, 11);     AT(IPv6PortNum, 27);
#undef RECORD

#define RECORD VARNOK_PHY_PORT_INFO
SIZE(431);
AT(Version, 0);           AT(ModelName, 4);         AT(ModelDesc, 36);
AT(DriverVersion, 164);   AT(DriverDate, 196);      AT(DriverName, 228);
AT(DriverLoaded, 244);    AT(SerialNum, 245);       AT(FWVersion, 277);
AT(MAC, 309);             AT(MTU, 315);             AT(VendorID, 319);
AT(DeviceID, 321);        AT(SubVendorID, 323);     AT(SubSystemID, 325);
AT(PciDomainNum, 327);    AT(PciBusNum, 329);       AT(PciDeviceNum, 331);
AT(PciFunctionNum, 333);  AT(PciRevision, 335);     AT(PhyPortNum, 337);
AT(SessCount, 339);       AT(PCIESpeed, 343);       AT(PCIEWidth, 347);
AT(ChipRevId, 351);       AT(PortState, 355);       AT(PortSpeed, 359);
AT(MediaType, 363);       AT(HbaName, 367);         AT(MFWVersion, 399);
#undef RECORD

#define RECORD VARNOK_SESS_INFO
SIZE(614);
AT(Version, 0);                AT(SessionNum, 4);             AT(SessionUnique, 8);
AT(SessionState, 16);          AT(InitiatorName, 17);         AT(InitIsIPv4, 273);
AT(InitIPv4Addr, 275);         AT(InitIPv4PortNum, 279);      AT(InitIPv6Addr, 281);
AT(InitIPv6PortNum, 297);      AT(TargetName, 299);           AT(TgtIsIPv4, 555);
AT(TgtIPv4Addr, 556);          AT(TgtIPv4PortNum, 560);       AT(TgtIPv6Addr, 562);
AT(TgtIPv6PortNum, 578);       AT(InitialR2T, 580);           AT(ImmediateData, 581);
AT(DataSequenceInOrder, 582);  AT(DataPDUInOrder, 583);       AT(MaxOutstandingR2T, 584);
AT(FirstBurstLength, 588);     AT(ErrorRecoveryLevel, 592);   AT(ConnID, 596);
AT(InitiatorSocket, 604);      AT(TargetSocket, 606);         AT(AuthType, 608);
AT(HeaderDigest, 612);         AT(DataDigest, 613);
#undef RECORD

#define RECORD VARNOK_TGT_INFO
SIZE(304);
AT(Version, 0);     AT(ScsiTgtNum, 4);  AT(TargetName, 8);  AT(MAC, 264);
AT(Isid, 270);      AT(IPv4Port, 276);  AT(IPv4Addr, 278);  AT(IPv6Port, 282);
AT(IPv6Addr, 284);  AT(LunCount, 300);
#undef RECORD

#define RECORD VARNOK_LUN_INFO
SIZE(217);
AT(Version, 0);           AT(ScsiLunNum, 4);        AT(DeviceType, 8);
AT(Capacity, 9);          AT(VendorName, 17);       AT(ProductName, 33);
AT(ProductRevision, 65);  AT(DeviceName, 81);       AT(VolumeName, 113);
AT(MountPath, 145);       AT(PhysicalDrive, 209);   AT(ScsiLunNumExt, 213);
#undef RECORD

#define RECORD VARNOK_SCSI_CMND
SIZE(292);
AT(Version, 0);        AT(ScsiLunNumExt, 4);  AT(ScsiTgtNum, 8);     AT(ScsiLunNum, 12);
AT(Direction, 16);     AT(CDBLength, 17);     AT(CDB, 18);           AT(SenseLength, 34);
AT(Sense, 36);
#undef RECORD

// clang-format on

static_assert(offsetof(VARNOK_LUN_INFO, ScsiLunNumExt) == VARNOK_LUN_INFO_SIZE_1);
