/*
 * varnok_mgmt.h - the public interface of libvarnok, the Molvar Halcyon iSCSI API library.
 *
 * This is plain C and needs no other header of the library. Every function has a manual page.
 *
 * Calling order
 *   VARNOK_LoadLibrary     finds the host's iSCSI ports
 *   VARNOK_GetPortCount    tells how many there are
 *   VARNOK_OpenAdapter     turns an instance number below that count into a handle
 *   the queries            take the handle
 *   VARNOK_CloseAdapter    is called once for every successful open
 *   VARNOK_FreeLibrary     comes last
 *   VARNOK_GetVersion may be called at any time.
 *
 * Threads
 *   The library starts no thread and locks nothing inside a process. Every call runs to its end on
 *   the caller's thread. Any thread may call, but no two calls may overlap: a program with several
 *   threads must serialise its calls. Several processes may use the library at the same time.
 *
 * Memory
 *   The caller owns every record and every array. The library only fills them: it never allocates,
 *   keeps or frees them. Records are packed, so a record may lie at any address. Do not take the
 *   address of a field that is wider than one byte, because it may be misaligned.
 *
 * Fields
 *   The library does not clear a record. A field that it does not write keeps the caller's value.
 *   Integers are little-endian. IP and MAC addresses are bytes in network order.
 *   A text that is shorter than its field ends with a NUL byte, and the bytes after the NUL mean
 *   nothing. A text that fills its field has no NUL byte.
 *   A field "from the driver" is passed on as it is: the driver defines its values, and the library
 *   neither checks nor translates them.
 *
 * Errors
 *   Every function except VARNOK_GetVersion returns a VARNOK_STATUS_* code. The debug log tells the
 *   details. The environment variable VARNOK_API_DEBUG turns it on.
 */
#ifndef VARNOK_MGMT_H
#define VARNOK_MGMT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Marks what the shared library exports to applications. */
#define VARNOK_API __attribute__((visibility("default")))

/* Records have no gaps between their fields. */
#define VARNOK_PACKED __attribute__((packed))

/* ---- Status codes -------------------------------------------------------------------------- */

#define VARNOK_STATUS_SUCCESS 0x00000000u

/* The library is not loaded, the load found no adapter, the handle matches no open port, or a
 * load, open or close failed. Also driver status 1. */
#define VARNOK_STATUS_FAILED 0x80000001u

/* The driver statuses without a code of their own. The driver defines what they mean. */
#define VARNOK_STATUS_DRIVER_2 0x80000002u
#define VARNOK_STATUS_DRIVER_3 0x80000003u
#define VARNOK_STATUS_DRIVER_5 0x80000005u
#define VARNOK_STATUS_DRIVER_6 0x80000006u
#define VARNOK_STATUS_DRIVER_8 0x80000008u
#define VARNOK_STATUS_DRIVER_12 0x8000000Cu
#define VARNOK_STATUS_DRIVER_13 0x8000000Du

/* A required pointer is null, a LUN query offers no entries, or a SCSI command has more data than
 * the driver can carry. Also driver status 4. */
#define VARNOK_STATUS_INVALID_PARAMETER 0x80000004u

/* No port has this instance number. Also driver status 7. */
#define VARNOK_STATUS_NOT_FOUND 0x80000007u

/* The caller's array is too short. The count argument now holds the number of entries that the
 * list needs. Also driver status 9; the count is then unchanged. */
#define VARNOK_STATUS_INSUFFICIENT_BUFFER 0x80000009u

/* The library could not allocate working memory. Also driver status 10. */
#define VARNOK_STATUS_NO_MEMORY 0x8000000Au

/* A request to the driver failed without a usable status: the call itself failed, or the driver's
 * status is not one of 1 to 13. Also driver status 11. */
#define VARNOK_STATUS_DRIVER_FAILED 0x8000000Bu

/* One exception: on a port of a legacy driver, VARNOK_OpenAdapter and VARNOK_CloseAdapter return
 * the operating system's error number (a small positive value such as ENOENT) when the driver's
 * character device cannot be opened or closed. */

/* ---- Record versions ----------------------------------------------------------------------- */

/* Every record begins with Version. The caller sets it and the library never writes it. This value
 * selects the newer form of two records, and any other value the older form:
 *   VARNOK_PHY_PORT_INFO   the fields from PCIESpeed on are written, too
 *   VARNOK_LUN_INFO        entries of 217 bytes; the first entry's Version counts for the array
 * The other records have one form, and their Version is ignored. */
#define VARNOK_RECORD_VERSION_2 2u

/* The Version for the whole record, as this header declares it. */
#define VARNOK_PHY_PORT_INFO_VERSION VARNOK_RECORD_VERSION_2
#define VARNOK_LUN_INFO_VERSION VARNOK_RECORD_VERSION_2

/* ---- Codes --------------------------------------------------------------------------------- */

/* PCIESpeed. 0 stands for any other speed, or for none reported. */
#define VARNOK_PCIE_SPEED_2_5GT 25u /* 2.5 GT/s */
#define VARNOK_PCIE_SPEED_5_0GT 50u /* 5.0 GT/s */
#define VARNOK_PCIE_SPEED_8_0GT 80u /* 8.0 GT/s */

/* PCIEWidth, in lanes. 0 stands for any other width (x12 is one), or for none reported. */
#define VARNOK_PCIE_WIDTH_X1 3u
#define VARNOK_PCIE_WIDTH_X2 4u
#define VARNOK_PCIE_WIDTH_X4 5u
#define VARNOK_PCIE_WIDTH_X8 6u
#define VARNOK_PCIE_WIDTH_X16 8u
#define VARNOK_PCIE_WIDTH_X32 9u

/*
 * PortState. The driver defines what its link states mean; the library only renumbers them. To read
 * state 0 as online and state 1 as offline, as varnokctl does, is our interpretation.
 */
#define VARNOK_PORT_STATE_0 4u              /* the driver reports state 0 */
#define VARNOK_PORT_STATE_1 8u              /* the driver reports state 1 */
#define VARNOK_PORT_STATE_OTHER 0x80000000u /* the driver reports any other state */

/* PortSpeed, the link's current speed. 0 stands for any other speed. The speeds that a port
 * supports are not passed on. */
#define VARNOK_PORT_SPEED_10G 0x8u   /* 10 Gbit/s */
#define VARNOK_PORT_SPEED_20G 0x80u  /* 20 Gbit/s */
#define VARNOK_PORT_SPEED_25G 0x800u /* 25 Gbit/s */
#define VARNOK_PORT_SPEED_40G 0x100u /* 40 Gbit/s */
#define VARNOK_PORT_SPEED_50G 0x200u /* 50 Gbit/s */

/* MediaType is this on every port: no driver reports a medium. */
#define VARNOK_MEDIA_TYPE 4u

/* Direction of a VARNOK_SCSI_CMND. Any other value counts as VARNOK_SCSI_NO_DATA. */
#define VARNOK_SCSI_NO_DATA 0u
#define VARNOK_SCSI_DATA_IN 1u  /* from the device to the caller */
#define VARNOK_SCSI_DATA_OUT 2u /* from the caller to the device */

/* ---- Records ------------------------------------------------------------------------------- */

/* The iSCSI portal of a port (29 bytes). */
typedef struct VARNOK_ISCSI_PORTAL {
    uint32_t Version;     /* ignored */
    uint8_t IsIPv4;       /* 1 when any byte of IPv4Addr is not zero, else 0 */
    uint8_t IPv4Addr[4];  /* all zero when the port has no IPv4 address */
    uint16_t IPv4PortNum; /* TCP port */
    uint8_t IPv6Addr[16]; /* from the driver */
    uint16_t IPv6PortNum; /* TCP port */
} VARNOK_PACKED VARNOK_ISCSI_PORTAL;

/* The physical port behind a handle (431 bytes). MTU, SessCount, PortState and PortSpeed are what
 * the driver says now; the other fields are what the load found. MFWVersion is written only for
 * adapters of the newer generation, whose DeviceID is 0x7A24, 0x7B24 or 0x2E31. */
typedef struct VARNOK_PHY_PORT_INFO {
    uint32_t Version;          /* in: 2 asks for the whole record */
    uint8_t ModelName[32];     /* text */
    uint8_t ModelDesc[128];    /* text: the model's description */
    uint8_t DriverVersion[32]; /* text */
    uint8_t DriverDate[32];    /* text */
    uint8_t DriverName[16];    /* text */
    uint8_t DriverLoaded;      /* always 1 */
    uint8_t SerialNum[32];     /* text: the adapter's serial number */
    uint8_t FWVersion[32];     /* text: firmware version */
    uint8_t MAC[6];            /* iSCSI MAC address of the port */
    uint32_t MTU;              /* bytes */
    uint16_t VendorID;         /* PCI vendor ID */
    uint16_t DeviceID;         /* PCI device ID */
    uint16_t SubVendorID;      /* PCI subsystem vendor ID */
    uint16_t SubSystemID;      /* PCI subsystem ID */
    uint16_t PciDomainNum;     /* PCI domain (segment) */
    uint16_t PciBusNum;        /* PCI bus */
    uint16_t PciDeviceNum;     /* PCI device */
    uint16_t PciFunctionNum;   /* PCI function */
    uint16_t PciRevision;      /* PCI revision */
    uint16_t PhyPortNum;       /* physical port number on the adapter, 0 to 255 */
    uint32_t SessCount;        /* sessions of the port, and entries that VARNOK_GetSessionInfo and
                                  VARNOK_GetTgtInfo need */
    /* From here on only for Version 2. */
    uint32_t PCIESpeed;     /* VARNOK_PCIE_SPEED_*, or 0 */
    uint32_t PCIEWidth;     /* VARNOK_PCIE_WIDTH_*, or 0 */
    uint32_t ChipRevId;     /* chip revision, from the driver */
    uint32_t PortState;     /* VARNOK_PORT_STATE_* */
    uint32_t PortSpeed;     /* VARNOK_PORT_SPEED_*, or 0 */
    uint32_t MediaType;     /* VARNOK_MEDIA_TYPE */
    uint8_t HbaName[32];    /* text: the port's adapter name */
    uint8_t MFWVersion[32]; /* text with a NUL: management firmware as "08.20.10.00" */
} VARNOK_PACKED VARNOK_PHY_PORT_INFO;

/* One iSCSI session of a port (614 bytes). The negotiated values are those of the iSCSI standard,
 * RFC 7143. */
typedef struct VARNOK_SESS_INFO {
    uint32_t Version;            /* ignored */
    uint32_t SessionNum;         /* session number, from the driver */
    uint64_t SessionUnique;      /* unique session identifier, from the driver */
    uint8_t SessionState;        /* from the driver, low 8 bits; varnokctl reads 1 as logged in */
    uint8_t InitiatorName[256];  /* text: initiator iSCSI name */
    uint16_t InitIsIPv4;         /* 1 when any byte of InitIPv4Addr is not zero, else 0 */
    uint8_t InitIPv4Addr[4];     /* all zero when the session does not use IPv4 */
    uint16_t InitIPv4PortNum;    /* TCP port */
    uint8_t InitIPv6Addr[16];    /* from the driver */
    uint16_t InitIPv6PortNum;    /* TCP port */
    uint8_t TargetName[256];     /* text: target iSCSI name */
    uint8_t TgtIsIPv4;           /* 1 when any byte of TgtIPv4Addr is not zero, else 0 */
    uint8_t TgtIPv4Addr[4];      /* all zero when the session does not use IPv4 */
    uint16_t TgtIPv4PortNum;     /* TCP port */
    uint8_t TgtIPv6Addr[16];     /* from the driver */
    uint16_t TgtIPv6PortNum;     /* TCP port */
    uint8_t InitialR2T;          /* negotiated, from the driver, low 8 bits */
    uint8_t ImmediateData;       /* negotiated, from the driver, low 8 bits */
    uint8_t DataSequenceInOrder; /* negotiated, from the driver, low 8 bits */
    uint8_t DataPDUInOrder;      /* negotiated, from the driver, low 8 bits */
    uint32_t MaxOutstandingR2T;  /* negotiated, from the driver */
    uint32_t FirstBurstLength;   /* negotiated, from the driver, in bytes */
    uint32_t ErrorRecoveryLevel; /* negotiated, from the driver */
    uint64_t ConnID;             /* connection identifier, 32 bits from the driver */
    uint16_t InitiatorSocket;    /* never written, like the four fields below */
    uint16_t TargetSocket;
    uint32_t AuthType;
    uint8_t HeaderDigest;
    uint8_t DataDigest;
} VARNOK_PACKED VARNOK_SESS_INFO;

/* One iSCSI target of a port (304 bytes). */
typedef struct VARNOK_TGT_INFO {
    uint32_t Version;        /* ignored */
    uint32_t ScsiTgtNum;     /* the target's number on the port, from 0: its place in the list */
    uint8_t TargetName[256]; /* text: target iSCSI name */
    uint8_t MAC[6];          /* from the driver */
    uint8_t Isid[6];         /* initiator session identifier; zeros where the driver's is short */
    uint16_t IPv4Port;       /* TCP port */
    uint8_t IPv4Addr[4];     /* from the driver */
    uint16_t IPv6Port;       /* TCP port */
    uint8_t IPv6Addr[16];    /* from the driver */
    uint32_t LunCount;       /* LUNs that the target claims to have, see VARNOK_GetTgtInfo */
} VARNOK_PACKED VARNOK_TGT_INFO;

/* One logical unit behind a target. An entry has 217 bytes when the Version of the array's first
 * entry is 2. Else it has 213 bytes and no ScsiLunNumExt, and entry k begins at byte 213 * k. */
typedef struct VARNOK_LUN_INFO {
    uint32_t Version;            /* in, in the first entry: 2 for entries of 217 bytes */
    uint32_t ScsiLunNum;         /* LUN levels 1 (low 16 bits) and 2 (high 16 bits) */
    uint8_t DeviceType;          /* INQUIRY byte 0: qualifier (high 3 bits) and device type */
    uint64_t Capacity;           /* bytes */
    uint8_t VendorName[16];      /* only the first 8 bytes are written */
    uint8_t ProductName[32];     /* only the first 16 bytes are written */
    uint8_t ProductRevision[16]; /* only the first 4 bytes are written */
    uint8_t DeviceName[32];      /* never written */
    uint8_t VolumeName[32];      /* never written */
    uint8_t MountPath[64];       /* never written */
    uint32_t PhysicalDrive;      /* never written */
    uint32_t ScsiLunNumExt;      /* LUN levels 3 (low 16 bits) and 4 (high 16 bits) */
} VARNOK_PACKED VARNOK_LUN_INFO;

/* Bytes of an entry when the first Version is not 2. */
#define VARNOK_LUN_INFO_SIZE_1 213u

/* A SCSI command, and its sense data on return (292 bytes). */
typedef struct VARNOK_SCSI_CMND {
    uint32_t Version;       /* ignored */
    uint32_t ScsiLunNumExt; /* in: LUN levels 3 and 4, as in VARNOK_LUN_INFO */
    uint32_t ScsiTgtNum;    /* in: target number, as in VARNOK_TGT_INFO */
    uint32_t ScsiLunNum;    /* in: LUN levels 1 and 2, as in VARNOK_LUN_INFO */
    uint8_t Direction;      /* in: VARNOK_SCSI_* */
    uint8_t CDBLength;      /* in: length of the command in CDB, 1 to 16; not checked */
    uint8_t CDB[16];        /* in: the command descriptor block */
    uint16_t SenseLength;   /* in: sense bytes that the caller accepts; never written */
    uint8_t Sense[256];     /* out: sense data */
} VARNOK_PACKED VARNOK_SCSI_CMND;

/* ---- Functions ----------------------------------------------------------------------------- */

/* Returns the library's version: a byte each for major, minor and build, from the most significant
 * down, and 0. When pVersion is not null and VersionSize, the buffer's size in bytes, is at least
 * 13, it also writes the version as a text of 12 characters with its NUL byte. A smaller buffer is
 * left alone. */
VARNOK_API uint32_t VARNOK_GetVersion(uint8_t *pVersion, uint32_t VersionSize);

/* Finds the host's ports and joins the database that all processes share. Requires root and ESXi.
 * Reads VARNOK_API_DEBUG. A load of a loaded library does nothing.
 *
 * Returns 0 when there are ports. It also returns 0 when there are none and a driver of the older
 * family answered: then nothing stays loaded, and the next load looks again.
 *   VARNOK_STATUS_FAILED in every other case */
VARNOK_API uint32_t VARNOK_LoadLibrary(void);

/* Closes every port whatever its open count, leaves the shared database and forgets all ports.
 * Every handle becomes invalid. Does no harm when nothing is loaded. Returns 0. */
VARNOK_API uint32_t VARNOK_FreeLibrary(void);

/* Stores the number of ports. Instance numbers run from 0 to that number less 1. They stay the same
 * until the library is freed. On failure *pPortCount is unchanged.
 *   VARNOK_STATUS_FAILED             the library is not loaded
 *   VARNOK_STATUS_INVALID_PARAMETER  pPortCount is null */
VARNOK_API uint32_t VARNOK_GetPortCount(uint32_t *pPortCount);

/* Opens a port and stores its handle, which is the instance number plus 1. A port may be opened
 * several times: every open gives the same handle and requires a close of its own. The first open
 * of a legacy driver's port opens its character device. Reads VARNOK_API_DEBUG. On failure *Handle
 * is unchanged.
 *   VARNOK_STATUS_INVALID_PARAMETER  Handle is null
 *   VARNOK_STATUS_FAILED             the library is not loaded
 *   VARNOK_STATUS_NOT_FOUND          Instance is not below the port count
 *   an error number                  the character device cannot be opened */
VARNOK_API uint32_t VARNOK_OpenAdapter(uint32_t Instance, uint32_t *Handle);

/* Takes one open back. After the last one the handle is invalid and the device is closed.
 *   VARNOK_STATUS_FAILED  the handle is not open
 *   an error number       the character device cannot be closed; the port stays open */
VARNOK_API uint32_t VARNOK_CloseAdapter(uint32_t Handle);

/* Asks the driver for the port's data and fills the record. The caller sets Version first. Only
 * this call refreshes the number of sessions, which the session and target queries use. On failure
 * the record is unchanged.
 *   VARNOK_STATUS_INVALID_PARAMETER  pPhyPort is null
 *   VARNOK_STATUS_FAILED             the handle is not open
 *   a driver's status                the driver failed the request */
VARNOK_API uint32_t VARNOK_GetPhyPortInfo(uint32_t Handle, VARNOK_PHY_PORT_INFO *pPhyPort);

/* List queries. *pArray is the caller's array, and *pCount the number of entries that it has room
 * for. Both pointers must be valid; they are not checked. When the list has more entries, the query
 * stores their number in *pCount and returns VARNOK_STATUS_INSUFFICIENT_BUFFER. A call with a count
 * of 0 therefore asks for the number (except in VARNOK_GetLunInfo). On success *pCount stays as it
 * was: it does not tell how many entries were filled. The queries return these errors, the last two
 * never from VARNOK_GetIscsiPortal:
 *   VARNOK_STATUS_FAILED               the handle is not open
 *   VARNOK_STATUS_INSUFFICIENT_BUFFER  the array is too short
 *   VARNOK_STATUS_INVALID_PARAMETER    *pArray is null
 *   VARNOK_STATUS_NO_MEMORY            no working memory
 *   a driver's status                  the driver failed an entry; those before it are filled */

/* Fills entry 0 with the port's only portal. It does not ask the driver: the portal is what the
 * load or the last VARNOK_GetPhyPortInfo learned. */
VARNOK_API uint32_t VARNOK_GetIscsiPortal(uint32_t Handle, uint32_t *pPortalCount,
                                          VARNOK_ISCSI_PORTAL **pPortal);

/* Lists the port's sessions, as many as the load or the last VARNOK_GetPhyPortInfo found. When
 * there are none, it stores 0 in *pSessCount and succeeds, even when the array is null. */
VARNOK_API uint32_t VARNOK_GetSessionInfo(uint32_t Handle, uint32_t *pSessCount,
                                          VARNOK_SESS_INFO **pSessInfo);

/* Lists the port's targets, one for each session, by the same rules. It sends REPORT LUNS to each
 * target. LunCount is the number of LUNs that the answer claims. It may exceed the 2047 LUNs that
 * VARNOK_GetLunInfo fills. A target that fails REPORT LUNS is listed all the same: LunCount is then
 * read from what came back, and is 0 when nothing did. */
VARNOK_API uint32_t VARNOK_GetTgtInfo(uint32_t Handle, uint32_t *pTgtCount,
                                      VARNOK_TGT_INFO **pTgtInfo);

/* Sends one command to a LUN and waits for its end. pData is a buffer of *pDataLen bytes, and
 * *pDataLen is never written. Both pointers are used only when Direction moves data, and are then
 * not checked. A native driver carries at most 262144 bytes in one command.
 *
 * Returns 0 when the driver carried the command out. There is no SCSI status and no count of the
 * bytes that came: a caller zeroes Sense, and the buffer that it reads into, before the call. Sense
 * receives at most SenseLength bytes. It is written when the driver fails, too: with the driver's
 * sense data on a legacy port, with zeros on a native one.
 *   VARNOK_STATUS_FAILED             the handle is not open
 *   VARNOK_STATUS_INVALID_PARAMETER  pScsiCmnd is null, or there is too much data
 *   VARNOK_STATUS_NO_MEMORY          no working memory
 *   a driver's status                the driver failed the command */
VARNOK_API uint32_t VARNOK_SendScsiCommand(uint32_t Handle, VARNOK_SCSI_CMND *pScsiCmnd,
                                           uint32_t *pDataLen, uint8_t *pData);

/* Lists the LUNs of a target with REPORT LUNS, and asks each with INQUIRY and READ CAPACITY.
 * *pLunCount is at least 1; 0 is VARNOK_STATUS_INVALID_PARAMETER. When the array is too short,
 * *pLunCount becomes the number of LUNs that the target claims to have, which may exceed 2047. On
 * success entries 0 to n-1 are filled, n being the smaller of that number and 2047.
 * The first command that fails ends the call with its status. */
VARNOK_API uint32_t VARNOK_GetLunInfo(uint32_t Handle, uint32_t ScsiTgtNum, uint32_t *pLunCount,
                                      VARNOK_LUN_INFO **pLunInfo);

/* ---- Data ---------------------------------------------------------------------------------- */

/* "Molvar Halcyon iSCSI API library version " and the version's text; the rest is zero. */
VARNOK_API extern const char varnok_version_description[128];

/* The debug mask: VARNOK_DBG_* bits. VARNOK_LoadLibrary and VARNOK_OpenAdapter set it from the
 * environment variable VARNOK_API_DEBUG, a hexadecimal number. They leave it alone when the
 * variable is not set. */
VARNOK_API extern uint32_t varnok_debug;

#define VARNOK_DBG_FILE 0x1u  /* append each line to the log file too, with a time stamp */
#define VARNOK_DBG_TRACE 0x2u /* entries, exits, progress */
#define VARNOK_DBG_ERROR 0x4u /* errors and warnings */

/* The log file's path, a text that ends with a NUL byte. It is empty until the first line goes to
 * the file, and then becomes "/var/tmp/libvarnok.log". A path that is stored here before that is
 * used instead. */
VARNOK_API extern char varnoklog_path[512];

#ifdef __cplusplus
}
#endif

#endif
