/*
 * varnok_mgmt.h - the public interface of libvarnok, the Molvar Halcyon iSCSI API library.
 *
 * Plain C; it needs no other header of the library.
 *
 * Calling order
 *   VARNOK_LoadLibrary, then VARNOK_GetPortCount, then VARNOK_OpenAdapter for an instance number
 *   below the count, then the queries with the handle, then VARNOK_CloseAdapter once for every
 *   successful open, and VARNOK_FreeLibrary last. VARNOK_GetVersion may be called at any time.
 *
 * Threads
 *   The library starts no thread and locks nothing inside a process. Every call runs to completion
 *   on the caller's thread, and a program that uses the library from several threads serialises all
 *   its calls. Any thread may make them, as long as no two calls overlap. Several processes may use
 *   the library at the same time; they coordinate through the file /tmp/varnok_shared.dat.
 *
 * Memory
 *   Every record and every array belongs to the caller. The library fills what it is given and
 * never allocates, keeps or frees any of it. Records are packed, so a record may lie at any
 * address, but a program must not take the address of a field that is wider than one byte.
 *
 * Text fields
 *   A text shorter than its field ends with a NUL byte; a text as long as its field has none. What
 *   follows the NUL is whatever the driver left there. The INQUIRY texts of a LUN are padded with
 *   spaces and are not terminated by the library.
 *
 * Errors
 *   Every function but VARNOK_GetVersion returns a VARNOK_STATUS_* code. Details go to the debug
 * log, which the environment variable VARNOK_API_DEBUG turns on.
 */
#ifndef VARNOK_MGMT_H
#define VARNOK_MGMT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Marks what the shared library exports to applications. */
#define VARNOK_API __attribute__((visibility("default")))

/* Records have no gaps between their fields; integers are little-endian. */
#define VARNOK_PACKED __attribute__((packed))

/* ---- Status codes -------------------------------------------------------------------------- */

#define VARNOK_STATUS_SUCCESS 0x00000000u

/* Library not loaded or no adapter found, a handle that matches no open port, a failed load,
 * unload, open or close; also driver status 1. */
#define VARNOK_STATUS_FAILED 0x80000001u
#define VARNOK_STATUS_DRIVER_2 0x80000002u /* driver status 2, passed through */
#define VARNOK_STATUS_DRIVER_3 0x80000003u /* driver status 3, passed through */

/* A required pointer is absent, no LUN entries were offered, or the data of a SCSI command is
 * longer than the driver can carry; also driver status 4. */
#define VARNOK_STATUS_INVALID_PARAMETER 0x80000004u
#define VARNOK_STATUS_DRIVER_5 0x80000005u  /* driver status 5, passed through */
#define VARNOK_STATUS_DRIVER_6 0x80000006u  /* driver status 6, passed through */
#define VARNOK_STATUS_NOT_FOUND 0x80000007u /* no port has the instance; also driver status 7 */
#define VARNOK_STATUS_DRIVER_8 0x80000008u  /* driver status 8, passed through */

/* The caller's array is too short; the count argument now holds the number of entries needed. Also
 * driver status 9. */
#define VARNOK_STATUS_INSUFFICIENT_BUFFER 0x80000009u
#define VARNOK_STATUS_NO_MEMORY 0x8000000Au /* working memory could not be had */

/* A driver request failed without a usable status: the call itself failed, or the driver's status
 * lies outside 1 to 13. */
#define VARNOK_STATUS_DRIVER_FAILED 0x8000000Bu
#define VARNOK_STATUS_DRIVER_12 0x8000000Cu /* driver status 12, passed through */
#define VARNOK_STATUS_DRIVER_13 0x8000000Du /* driver status 13, passed through */

/* One exception: on a port of a legacy character-device driver, VARNOK_OpenAdapter and
 * VARNOK_CloseAdapter return the operating system's error number (a small positive value) when
 * opening or closing the device fails. */

/* ---- Record versions ----------------------------------------------------------------------- */

/* The caller sets the Version of every record, and the library never writes it. This value selects
 * the extended fields of VARNOK_PHY_PORT_INFO and, in the first entry of an array, the long entries
 * of VARNOK_LUN_INFO. Any other value selects the older form. Other records ignore their Version.
 */
#define VARNOK_RECORD_VERSION_2 2u

/* ---- Codes of VARNOK_PHY_PORT_INFO --------------------------------------------------------- */

/* PCIESpeed; 0 is any other speed, or none reported. */
#define VARNOK_PCIE_SPEED_2_5GT 25u
#define VARNOK_PCIE_SPEED_5_0GT 50u
#define VARNOK_PCIE_SPEED_8_0GT 80u

/* PCIEWidth; 0 is any other width (x12 included), or none reported. */
#define VARNOK_PCIE_WIDTH_X1 3u
#define VARNOK_PCIE_WIDTH_X2 4u
#define VARNOK_PCIE_WIDTH_X4 5u
#define VARNOK_PCIE_WIDTH_X8 6u
#define VARNOK_PCIE_WIDTH_X16 8u
#define VARNOK_PCIE_WIDTH_X32 9u

/* PortState: the driver's state 0, its state 1, any other. */
#define VARNOK_PORT_STATE_0 4u
#define VARNOK_PORT_STATE_1 8u
#define VARNOK_PORT_STATE_OTHER 0x80000000u

/* PortSpeed; 0 is any other speed. */
#define VARNOK_PORT_SPEED_10G 0x8u
#define VARNOK_PORT_SPEED_20G 0x80u
#define VARNOK_PORT_SPEED_25G 0x800u
#define VARNOK_PORT_SPEED_40G 0x100u
#define VARNOK_PORT_SPEED_50G 0x200u

/* MediaType is always this. */
#define VARNOK_MEDIA_TYPE 4u

/* Direction of a VARNOK_SCSI_CMND; any other value counts as 0. */
#define VARNOK_SCSI_NO_DATA 0u
#define VARNOK_SCSI_DATA_IN 1u  /* from the device to the caller */
#define VARNOK_SCSI_DATA_OUT 2u /* from the caller to the device */

/* ---- Records ------------------------------------------------------------------------------- */

/* The iSCSI portal of a port (29 bytes). */
typedef struct VARNOK_ISCSI_PORTAL {
    uint32_t Version;     /* not interpreted, not written */
    uint8_t IsIPv4;       /* 1 when the port has a non-zero IPv4 address, else 0 */
    uint8_t IPv4Addr[4];  /* in network order, as the driver reports it */
    uint16_t IPv4PortNum; /* TCP port of the IPv4 portal */
    uint8_t IPv6Addr[16]; /* in network order */
    uint16_t IPv6PortNum; /* TCP port of the IPv6 portal */
} VARNOK_PACKED VARNOK_ISCSI_PORTAL;

/* The physical port behind a handle (431 bytes). The fields from PCIESpeed on are written only when
 * the caller's Version is 2. */
typedef struct VARNOK_PHY_PORT_INFO {
    uint32_t Version;          /* in: 2 asks for the whole record */
    uint8_t ModelName[32];     /* text */
    uint8_t ModelDesc[128];    /* text */
    uint8_t DriverVersion[32]; /* text */
    uint8_t DriverDate[32];    /* text */
    uint8_t DriverName[16];    /* text */
    uint8_t DriverLoaded;      /* 1 */
    uint8_t SerialNum[32];     /* adapter serial number, text */
    uint8_t FWVersion[32];     /* firmware version, text */
    uint8_t MAC[6];            /* iSCSI MAC address */
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
    uint32_t SessCount;        /* sessions on the port: entries that the session and target queries
                                  need */
    uint32_t PCIESpeed;        /* VARNOK_PCIE_SPEED_*, or 0 */
    uint32_t PCIEWidth;        /* VARNOK_PCIE_WIDTH_*, or 0 */
    uint32_t ChipRevId;        /* chip revision */
    uint32_t PortState;        /* VARNOK_PORT_STATE_* */
    uint32_t PortSpeed;        /* VARNOK_PORT_SPEED_*, or 0 */
    uint32_t MediaType;        /* VARNOK_MEDIA_TYPE */
    uint8_t HbaName[32];       /* the port's adapter name, text */
    uint8_t MFWVersion[32];    /* management firmware as "08.20.10.00", terminated; written only for
                                  adapters of the newer generation */
} VARNOK_PACKED VARNOK_PHY_PORT_INFO;

/* One iSCSI session of a port (614 bytes). The last five fields are never written. */
typedef struct VARNOK_SESS_INFO {
    uint32_t Version;            /* not interpreted, not written */
    uint32_t SessionNum;         /* session number, as the driver leaves it */
    uint64_t SessionUnique;      /* unique session identifier */
    uint8_t SessionState;        /* as the driver reports it, low 8 bits */
    uint8_t InitiatorName[256];  /* initiator iSCSI name, text */
    uint16_t InitIsIPv4;         /* 1 when the initiator has an IPv4 address (16 bits wide) */
    uint8_t InitIPv4Addr[4];     /* in network order */
    uint16_t InitIPv4PortNum;    /* TCP port */
    uint8_t InitIPv6Addr[16];    /* in network order */
    uint16_t InitIPv6PortNum;    /* TCP port */
    uint8_t TargetName[256];     /* target iSCSI name, text */
    uint8_t TgtIsIPv4;           /* 1 when the target has an IPv4 address */
    uint8_t TgtIPv4Addr[4];      /* in network order */
    uint16_t TgtIPv4PortNum;     /* TCP port */
    uint8_t TgtIPv6Addr[16];     /* in network order */
    uint16_t TgtIPv6PortNum;     /* TCP port */
    uint8_t InitialR2T;          /* negotiated InitialR2T, low 8 bits */
    uint8_t ImmediateData;       /* negotiated ImmediateData, low 8 bits */
    uint8_t DataSequenceInOrder; /* negotiated DataSequenceInOrder, low 8 bits */
    uint8_t DataPDUInOrder;      /* negotiated DataPDUInOrder, low 8 bits */
    uint32_t MaxOutstandingR2T;  /* negotiated MaxOutstandingR2T */
    uint32_t FirstBurstLength;   /* negotiated FirstBurstLength, bytes */
    uint32_t ErrorRecoveryLevel; /* negotiated ErrorRecoveryLevel, 0 to 2 */
    uint64_t ConnID;             /* connection identifier, 32 bits zero-extended */
    uint16_t InitiatorSocket;    /* not set by the library */
    uint16_t TargetSocket;       /* not set by the library */
    uint32_t AuthType;           /* not set by the library */
    uint8_t HeaderDigest;        /* not set by the library */
    uint8_t DataDigest;          /* not set by the library */
} VARNOK_PACKED VARNOK_SESS_INFO;

/* One iSCSI target seen through a port (304 bytes). */
typedef struct VARNOK_TGT_INFO {
    uint32_t Version;        /* not interpreted, not written */
    uint32_t ScsiTgtNum;     /* the key for VARNOK_GetLunInfo and VARNOK_SendScsiCommand */
    uint8_t TargetName[256]; /* target iSCSI name, text */
    uint8_t MAC[6];          /* MAC address */
    uint8_t Isid[6];         /* initiator session identifier */
    uint16_t IPv4Port;       /* TCP port */
    uint8_t IPv4Addr[4];     /* in network order */
    uint16_t IPv6Port;       /* TCP port */
    uint8_t IPv6Addr[16];    /* in network order */
    uint32_t LunCount;       /* LUNs that REPORT LUNS lists; 0 when the target did not answer it */
} VARNOK_PACKED VARNOK_TGT_INFO;

/* One logical unit behind a target (217 bytes when the first entry of the array has Version 2, else
 * 213 bytes: the same layout without ScsiLunNumExt). */
typedef struct VARNOK_LUN_INFO {
    uint32_t Version;            /* in: of the first entry, selects the entry length */
    uint32_t ScsiLunNum;         /* LUN levels 1 (low half) and 2 (high half) */
    uint8_t DeviceType;          /* INQUIRY byte 0: qualifier (high 3 bits) and device type */
    uint64_t Capacity;           /* bytes */
    uint8_t VendorName[16];      /* the 8 INQUIRY bytes; the rest is not written */
    uint8_t ProductName[32];     /* the 16 INQUIRY bytes; the rest is not written */
    uint8_t ProductRevision[16]; /* the 4 INQUIRY bytes; the rest is not written */
    uint8_t DeviceName[32];      /* not set by the library */
    uint8_t VolumeName[32];      /* not set by the library */
    uint8_t MountPath[64];       /* not set by the library */
    uint32_t PhysicalDrive;      /* not set by the library */
    uint32_t ScsiLunNumExt;      /* LUN levels 3 (low half) and 4 (high half) */
} VARNOK_PACKED VARNOK_LUN_INFO;

/* Bytes from one entry to the next in an array whose first Version is not 2. */
#define VARNOK_LUN_INFO_SIZE_1 213u

/* A SCSI command for the pass-through, with its sense data on return (292 bytes). */
typedef struct VARNOK_SCSI_CMND {
    uint32_t Version;       /* not interpreted */
    uint32_t ScsiLunNumExt; /* LUN levels 3 and 4, as in VARNOK_LUN_INFO */
    uint32_t ScsiTgtNum;    /* from VARNOK_TGT_INFO */
    uint32_t ScsiLunNum;    /* LUN levels 1 and 2 */
    uint8_t Direction;      /* VARNOK_SCSI_* */
    uint8_t CDBLength;      /* valid bytes in CDB, at most 16 */
    uint8_t CDB[16];        /* the command descriptor block */
    uint16_t SenseLength;   /* in: sense bytes that the caller accepts; never written */
    uint8_t Sense[256];     /* out: sense data */
} VARNOK_PACKED VARNOK_SCSI_CMND;

/* ---- Functions ----------------------------------------------------------------------------- */

/* The library's version, 0x05000200: major, minor, build and 0, a byte each. When pVersion is
 * present and VersionSize, the size of that buffer in bytes, is at least 13, the text "v5.00
 * build2" with its NUL is written there; a smaller buffer is left alone. Needs no loaded library.
 */
VARNOK_API uint32_t VARNOK_GetVersion(uint8_t *pVersion, uint32_t VersionSize);

/* Discovers the host's ports and joins the shared database. Root only, ESXi only.
 *
 * Returns 0 when ports were found, when the library was loaded already, and also when a driver of
 * the older family answered and no port was found: then nothing stays loaded, and the next call
 * looks again. VARNOK_STATUS_FAILED otherwise. Reads VARNOK_API_DEBUG. */
VARNOK_API uint32_t VARNOK_LoadLibrary(void);

/* Closes every open port whatever its open count, leaves the shared database and forgets all ports.
 * Every handle becomes invalid. Harmless when nothing is loaded. Returns 0. */
VARNOK_API uint32_t VARNOK_FreeLibrary(void);

/* Stores the number of ports at pPortCount. Instance numbers run from 0 to that number less 1 and
 * stay the same until the library is freed.
 *
 * VARNOK_STATUS_INVALID_PARAMETER for an absent pointer, VARNOK_STATUS_FAILED when the library is
 * not loaded; the caller's number is then left alone. */
VARNOK_API uint32_t VARNOK_GetPortCount(uint32_t *pPortCount);

/* Opens the port with this instance number and stores its handle (the instance number plus 1). A
 * port may be opened several times: each open gives the same handle and needs a close of its own.
 * On a legacy driver's port the first open opens its character device. Reads VARNOK_API_DEBUG.
 *
 * VARNOK_STATUS_INVALID_PARAMETER for an absent pointer, VARNOK_STATUS_FAILED without a loaded
 * library, VARNOK_STATUS_NOT_FOUND for an instance that is not below the port count, an error
 * number of the operating system when the device cannot be opened. */
VARNOK_API uint32_t VARNOK_OpenAdapter(uint32_t Instance, uint32_t *Handle);

/* Takes one open back; after the last one the handle designates nothing.
 *
 * VARNOK_STATUS_FAILED for a handle that is not open, an error number of the operating system when
 * the device cannot be closed (the port then stays open). */
VARNOK_API uint32_t VARNOK_CloseAdapter(uint32_t Handle);

/* Asks the driver for fresh port data and fills the record. The caller sets Version first: 2 for
 * the whole record, anything else for the fields up to SessCount. This is the only call that
 * refreshes the session count, so it comes before VARNOK_GetSessionInfo and VARNOK_GetTgtInfo.
 *
 * VARNOK_STATUS_INVALID_PARAMETER for an absent record, VARNOK_STATUS_FAILED for a handle that is
 * not open, else the driver's status. The record is left alone on any failure. */
VARNOK_API uint32_t VARNOK_GetPhyPortInfo(uint32_t Handle, VARNOK_PHY_PORT_INFO *pPhyPort);

/* List queries. *pCount holds the number of entries that the caller's array *pArray has room for.
 * When there are more, *pCount becomes the number needed and VARNOK_STATUS_INSUFFICIENT_BUFFER is
 * returned; a call with a count of 0 therefore asks for the number (but not in VARNOK_GetLunInfo).
 * On success *pCount stays as the caller gave it, unless stated otherwise. The two pointers
 * themselves must be valid. */

/* Fills entry 0, a port's only portal, from what the last VARNOK_GetPhyPortInfo or the load
 * learned. Does not ask the driver.
 *
 * VARNOK_STATUS_FAILED for a handle that is not open, VARNOK_STATUS_INVALID_PARAMETER for an absent
 * array. */
VARNOK_API uint32_t VARNOK_GetIscsiPortal(uint32_t Handle, uint32_t *pPortalCount,
                                          VARNOK_ISCSI_PORTAL **pPortal);

/* Lists the port's sessions, as many as the last SessCount. A port without sessions stores 0 in
 * *pSessCount and succeeds.
 *
 * VARNOK_STATUS_FAILED for a handle that is not open, VARNOK_STATUS_INVALID_PARAMETER for an absent
 * array, VARNOK_STATUS_NO_MEMORY, or the status of the session that the driver failed: the entries
 * before it are then written. */
VARNOK_API uint32_t VARNOK_GetSessionInfo(uint32_t Handle, uint32_t *pSessCount,
                                          VARNOK_SESS_INFO **pSessInfo);

/* Lists the port's targets, one for each session, and sends REPORT LUNS to each to count its LUNs.
 * A target that does not answer that command is listed with 0 LUNs. A port without targets stores 0
 * in *pTgtCount and succeeds. Errors as for VARNOK_GetSessionInfo. */
VARNOK_API uint32_t VARNOK_GetTgtInfo(uint32_t Handle, uint32_t *pTgtCount,
                                      VARNOK_TGT_INFO **pTgtInfo);

/* Sends one CDB to a LUN and waits for it. *pDataLen is the length of the buffer pData in bytes;
 * both are used only when Direction says that data moves, and *pDataLen is never written. Ports of
 * native drivers carry at most 262144 bytes in one command.
 *
 * Returns 0 when the driver carried the command out. There is no SCSI status: a caller looks at
 * Sense, which it zeroes first. Sense receives at most SenseLength bytes.
 *
 * VARNOK_STATUS_FAILED for a handle that is not open, VARNOK_STATUS_INVALID_PARAMETER for an absent
 * command or too much data, VARNOK_STATUS_NO_MEMORY, else the driver's status. Sense is written on
 * a driver's failure too: with the driver's sense on a legacy port, with zeros on a native one. */
VARNOK_API uint32_t VARNOK_SendScsiCommand(uint32_t Handle, VARNOK_SCSI_CMND *pScsiCmnd,
                                           uint32_t *pDataLen, uint8_t *pData);

/* Lists the LUNs of a target with REPORT LUNS, and for each LUN INQUIRY and READ CAPACITY.
 * *pLunCount is at least 1, and the Version of the first entry selects the entry length. At most
 * 2047 LUNs are listed.
 *
 * VARNOK_STATUS_INVALID_PARAMETER for a count of 0 or an absent array, VARNOK_STATUS_NO_MEMORY, or
 * the status of the command that failed: the entries of the LUNs before it are then written. */
VARNOK_API uint32_t VARNOK_GetLunInfo(uint32_t Handle, uint32_t ScsiTgtNum, uint32_t *pLunCount,
                                      VARNOK_LUN_INFO **pLunInfo);

/* ---- Data ---------------------------------------------------------------------------------- */

/* "Molvar Halcyon iSCSI API library version v5.00 build2", the rest zero. */
VARNOK_API extern const char varnok_version_description[128];

/* The debug mask: VARNOK_DBG_* bits. VARNOK_LoadLibrary and VARNOK_OpenAdapter set it from the
 * environment variable VARNOK_API_DEBUG (a hexadecimal number); they leave it alone when the
 * variable is absent. */
VARNOK_API extern uint32_t varnok_debug;

#define VARNOK_DBG_FILE 0x1u  /* append each line to the log file too, with a time stamp */
#define VARNOK_DBG_TRACE 0x2u /* entries, exits, progress */
#define VARNOK_DBG_ERROR 0x4u /* errors and warnings */

/* The log file's path, a terminated text. Empty until the first line goes to the file, and then
 * "/var/tmp/libvarnok.log"; a path stored here before that replaces the default. */
VARNOK_API extern char varnoklog_path[512];

#ifdef __cplusplus
}
#endif

#endif
