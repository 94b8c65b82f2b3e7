/*
 * varnok_driver_records.h - the records and request numbers that the four kernel drivers share.
 *
 * One definition of each layout; every driver's header gives it that driver's names. Records are
 * packed and little-endian, texts are terminated by a NUL unless they fill their field. The library
 * zero-fills a record before a request and then sets only the fields marked "in". A field marked
 * "driver value" is filled by the driver and not read by the library. The number before each
 * comment is the offset.
 */
#ifndef VARNOK_DRIVER_RECORDS_H
#define VARNOK_DRIVER_RECORDS_H

#include <stdint.h>

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "libvarnok requires a little-endian host: its records travel as they lie in memory"
#endif

#define VARNOK_DRV_PACKED __attribute__((packed))

/* Values of pcie_speed that the library knows. */
enum pci_bus_speed {
    PCIE_SPEED_2_5GT = 20,
    PCIE_SPEED_5_0GT = 21,
    PCIE_SPEED_8_0GT = 22,
    PCI_SPEED_UNKNOWN = 255
};

/* Values of pcie_width. */
enum pcie_link_width {
    PCIE_LNK_WIDTH_RESRV = 0,
    PCIE_LNK_X1 = 1,
    PCIE_LNK_X2 = 2,
    PCIE_LNK_X4 = 4,
    PCIE_LNK_X8 = 8,
    PCIE_LNK_X12 = 12,
    PCIE_LNK_X16 = 16,
    PCIE_LNK_X32 = 32,
    PCIE_LNK_WIDTH_UNKNOWN = 255
};

/* PCI data of a port (64 bytes). */
typedef struct varnok_drv_pci_info {
    uint16_t vendor_id;    /* 0: PCI vendor ID */
    uint16_t device_id;    /* 2: PCI device ID */
    uint16_t subvendor_id; /* 4: PCI subsystem vendor ID */
    uint16_t subsystem_id; /* 6: PCI subsystem ID */
    uint16_t domain_num;   /* 8: PCI domain */
    uint16_t bus_num;      /* 10: PCI bus */
    uint16_t device_num;   /* 12: PCI device number */
    uint16_t function_num; /* 14: PCI function */
    uint16_t revision;     /* 16: PCI revision */
    uint16_t port_num;     /* 18: physical port number */
    uint32_t pcie_speed;   /* 20: PCIe link speed, enum pci_bus_speed */
    uint32_t pcie_width;   /* 24: PCIe link width, enum pcie_link_width */
    uint32_t chip_rev_id;  /* 28: chip revision */
    uint8_t reserved[32];  /* 32: not read */
} VARNOK_DRV_PACKED varnok_drv_pci_info;

/* Port data (768 bytes). */
typedef struct varnok_drv_port_info {
    uint8_t manufacturer[64];   /* 0: adapter manufacturer, text */
    uint8_t model_name[32];     /* 64: model name, text */
    uint8_t model_desc[128];    /* 96: model description, text */
    uint8_t serial_num[32];     /* 224: serial number, text */
    uint8_t driver_version[32]; /* 256: driver version, text */
    uint8_t driver_date[32];    /* 288: driver date, text */
    uint8_t driver_name[16];    /* 320: driver name, text */
    uint8_t driver_loaded;      /* 336: not read */
    uint8_t fw_version[32];     /* 337: firmware version, text */
    uint8_t iqn[256];           /* 369: iSCSI name, text */
    uint8_t mac[6];             /* 625: MAC address */
    uint16_t ipv4_port;         /* 631: IPv4 TCP port of the portal */
    uint8_t is_dhcp;            /* 633: not read */
    uint8_t ipv4addr[4];        /* 634: IPv4 address */
    uint8_t subnet[4];          /* 638: IPv4 subnet mask */
    uint8_t gateway[4];         /* 642: IPv4 gateway */
    uint16_t ipv6_port;         /* 646: IPv6 TCP port of the portal */
    uint8_t ipv6addr[16];       /* 648: IPv6 address */
    uint8_t ipv6_linklocal[16]; /* 664: IPv6 link-local address */
    uint8_t ipv6_router[16];    /* 680: IPv6 router address */
    uint8_t vlan_enabled;       /* 696: VLAN on (non-zero) or off */
    uint8_t vlan_priority;      /* 697: VLAN priority */
    uint16_t port_state;        /* 698: link state: 0, 1 or another */
    uint16_t port_sup_speed;    /* 700: supported link speeds */
    uint16_t port_speed;        /* 702: link speed in Mbit/s */
    uint32_t session_cnt;       /* 704: sessions, and as many targets */
    uint32_t mtu;               /* 708: MTU */
    uint32_t vlan;              /* 712: VLAN ID in the low 16 bits */
    uint32_t mfw_version;       /* 716: management firmware: 4 bytes, most significant first */
    uint8_t hba_name[32];       /* 720: adapter name, text */
    uint8_t reserved[16];       /* 752: not read */
} VARNOK_DRV_PACKED varnok_drv_port_info;

/* One iSCSI session of a port, chosen by sess_num (1024 bytes). */
typedef struct varnok_drv_session_info {
    uint32_t sess_num;       /* 0: in: 0-based index of the session; out: as the driver leaves it */
    uint64_t sess_unique;    /* 4: unique session identifier */
    uint8_t init_iqn[256];   /* 12: initiator name, text */
    uint16_t init_ipv4_port; /* 268: initiator IPv4 TCP port */
    uint8_t init_ipv4addr[4];    /* 270: initiator IPv4 address; all zero when the session is not on
                                    IPv4 */
    uint16_t init_ipv6_port;     /* 274: initiator IPv6 TCP port */
    uint8_t init_ipv6addr[16];   /* 276: initiator IPv6 address */
    uint8_t init_mac[6];         /* 292: driver value */
    uint8_t tgt_iqn[256];        /* 298: target name, text */
    uint16_t tgt_ipv4_port;      /* 554: target IPv4 TCP port */
    uint8_t tgt_ipv4addr[4];     /* 556: target IPv4 address; all zero when not on IPv4 */
    uint16_t tgt_ipv6_port;      /* 560: target IPv6 TCP port */
    uint8_t tgt_ipv6addr[16];    /* 562: target IPv6 address */
    uint8_t tgt_mac[6];          /* 578: driver value */
    uint8_t isid[13];            /* 584: driver value, text */
    uint32_t state;              /* 597: session state code (low 8 bits kept) */
    uint64_t recovery_state;     /* 601: driver value */
    uint64_t old_recovery_state; /* 609: driver value */
    uint32_t tmf_active;         /* 617: driver value */
    uint32_t do_recovery_inprogess;        /* 621: driver value */
    uint32_t device_offline;               /* 625: driver value */
    uint32_t max_iscsi_tasks;              /* 629: driver value */
    uint32_t num_free_cmds;                /* 633: driver value */
    uint32_t allocated_cmds;               /* 637: driver value */
    uint32_t total_cmds_allocated;         /* 641: driver value */
    uint32_t total_cmds_freed;             /* 645: driver value */
    uint32_t sq_size;                      /* 649: driver value */
    uint32_t login_noop_pending;           /* 653: driver value */
    uint32_t tmf_pending;                  /* 657: driver value */
    uint32_t logout_pending;               /* 661: driver value */
    uint32_t nop_resp_pending;             /* 665: driver value */
    uint32_t pend_cmd_count;               /* 669: driver value */
    uint32_t active_cmd_count;             /* 673: driver value */
    uint32_t cmd_cleanup_req;              /* 677: driver value */
    uint32_t cmd_cleanup_cmpl;             /* 681: driver value */
    uint32_t total_cmds_sent;              /* 685: driver value */
    uint32_t total_cmds_queued;            /* 689: driver value */
    uint32_t total_cmds_completed;         /* 693: driver value */
    uint32_t total_cmds_failed;            /* 697: driver value */
    uint32_t total_cmds_completed_by_chip; /* 701: driver value */
    uint32_t cmdsn;                        /* 705: driver value */
    uint32_t exp_cmdsn;                    /* 709: driver value */
    uint32_t max_cmdsn;                    /* 713: driver value */
    uint32_t initial_r2t;                  /* 717: InitialR2T (low 8 bits kept) */
    uint32_t max_r2t;                      /* 721: MaxOutstandingR2T */
    uint32_t imm_data;                     /* 725: ImmediateData (low 8 bits kept) */
    uint32_t first_burst_len;              /* 729: FirstBurstLength */
    uint32_t max_burst_len;                /* 733: MaxBurstLength; driver value */
    uint32_t time2wait;                    /* 737: DefaultTime2Wait; driver value */
    uint32_t time2retain;                  /* 741: DefaultTime2Retain; driver value */
    uint32_t pdu_inorder;                  /* 745: DataPDUInOrder (low 8 bits kept) */
    uint32_t dataseq_inorder;              /* 749: DataSequenceInOrder (low 8 bits kept) */
    uint32_t erl;                          /* 753: ErrorRecoveryLevel */
    uint32_t tgt_prtl_grp;                 /* 757: target portal group tag; driver value */
    uint32_t num_active_conn;              /* 761: driver value */
    uint32_t max_conns;                    /* 765: driver value */
    uint64_t last_nooput_requested;        /* 769: driver value */
    uint64_t last_nooput_posted;           /* 777: driver value */
    uint64_t last_noopin_indicated;        /* 785: driver value */
    uint64_t last_noopin_processed;        /* 793: driver value */
    uint32_t last_nooput_sn;               /* 801: driver value */
    uint32_t noopout_resp_count;           /* 805: driver value */
    uint32_t unsol_noopout_count;          /* 809: driver value */
    uint32_t noopout_requested_count;      /* 813: driver value */
    uint32_t noopout_posted_count;         /* 817: driver value */
    uint32_t noopin_indicated_count;       /* 821: driver value */
    uint32_t noopin_processed_count;       /* 825: driver value */
    uint32_t tgt_noopin_count;             /* 829: driver value */
    uint32_t alloc_scsi_task_failed;       /* 833: driver value */
    uint32_t cid;                          /* 837: connection ID */
    uint32_t iscsi_cid;                    /* 841: driver value */
    uint8_t reserved[179];                 /* 845: not read */
} VARNOK_DRV_PACKED varnok_drv_session_info;

/* One target of a port, chosen by scsi_tgt_num (384 bytes). */
typedef struct varnok_drv_tgt_info {
    uint32_t scsi_bus_num; /* 0: driver value, not read */
    uint32_t scsi_tgt_num; /* 4: in: 0-based index of the target */
    uint8_t iqn[256];      /* 8: iSCSI name, text */
    uint8_t mac[6];        /* 264: MAC address */
    uint8_t isid[13];      /* 270: ISID, hexadecimal text */
    uint16_t ipv4_port;    /* 283: target IPv4 TCP port */
    uint8_t ipv4addr[4];   /* 285: target IPv4 address */
    uint16_t ipv6_port;    /* 289: target IPv6 TCP port */
    uint8_t ipv6addr[16];  /* 291: target IPv6 address */
    uint16_t port_type;    /* 307: driver value, not read */
    uint32_t lun_count;    /* 309: not read: the library counts LUNs itself */
    uint8_t reserved[71];  /* 313: not read */
} VARNOK_DRV_PACKED varnok_drv_tgt_info;

/* What both forms of the SCSI command begin with (292 bytes). */
#define VARNOK_DRV_SCSI_CMD_HEAD                                                                   \
    uint32_t lun_ext;   /* 0: in: LUN levels 3 and 4 */                                            \
    uint32_t tgt;       /* 4: in: target number */                                                 \
    uint32_t lun;       /* 8: in: LUN levels 1 and 2 */                                            \
    uint8_t direction;  /* 12: in: 1 from the device, 2 to the device, 0 no data */                \
    uint8_t cdb_len;    /* 13: in: CDB length in bytes */                                          \
    uint8_t cdb[16];    /* 14: in: the CDB */                                                      \
    uint16_t sense_len; /* 30: in: room for sense data; out: sense bytes returned */               \
    uint8_t sense[256]; /* 32: out: sense data */                                                  \
    uint32_t data_len;  /* 288: in: transfer length in bytes; out (native form): bytes returned */

/* A SCSI command that carries the address of its data: legacy drivers (320 bytes). */
typedef struct varnok_drv_scsi_cmd_ioctl {
    VARNOK_DRV_SCSI_CMD_HEAD
    uint64_t data_addr;   /* 292: in: address of the caller's data buffer in its process; 0 when no
                             data moves */
    uint8_t reserved[20]; /* 300: 0 */
} VARNOK_DRV_PACKED varnok_drv_scsi_cmd_ioctl;

#define VARNOK_DRV_SCSI_DATA_MAX 262144u

/* A SCSI command that carries its data: native drivers (262436 bytes). */
typedef struct varnok_drv_scsi_cmd_native {
    VARNOK_DRV_SCSI_CMD_HEAD
    uint8_t
        data_buffer[VARNOK_DRV_SCSI_DATA_MAX]; /* 292: in for direction 2, out for direction 1 */
} VARNOK_DRV_PACKED varnok_drv_scsi_cmd_native;

/* ---- Legacy drivers: one ioctl a request ---------------------------------------------------- */

/* Request numbers; a driver's request code is its base plus the number. */
enum varnok_drv_request {
    VARNOK_DRV_REQUEST_HBA_CNT = 1,
    VARNOK_DRV_REQUEST_HOSTNO = 2,
    VARNOK_DRV_REQUEST_PCI_INFO = 3,
    VARNOK_DRV_REQUEST_PORT_INFO = 4,
    VARNOK_DRV_REQUEST_SESS_INFO = 5,
    VARNOK_DRV_REQUEST_TGT_INFO = 6,
    VARNOK_DRV_REQUEST_SCSI_CMD = 8
};

#define VARNOK_DRV_IOCTL_ADDRMODE 2
#define VARNOK_DRV_IOCTL_VERSION 1

/* The argument of every ioctl (64 bytes). */
typedef struct varnok_drv_ioctl {
    uint8_t signature[8];     /* 0: the driver's signature, padded with NUL bytes */
    uint16_t addrmode;        /* 8: VARNOK_DRV_IOCTL_ADDRMODE */
    uint16_t version;         /* 10: VARNOK_DRV_IOCTL_VERSION */
    uint16_t subcode;         /* 12: 0, the request code alone selects the operation */
    uint32_t status;          /* 14: in: 0; out: 0, or the driver's failure code */
    uint16_t hbaselect;       /* 18: the port's driver instance number; 0 for the adapter count */
    uint64_t ioctlstructaddr; /* 20: address of the request's record in the calling process */
    uint8_t reserved3[36];    /* 28: 0 */
} VARNOK_DRV_PACKED varnok_drv_ioctl;

/* Adapter count (8 bytes). */
typedef struct varnok_drv_hba_cnt {
    int32_t hba_cnt;  /* 0: out: number of adapter ports the driver manages */
    int32_t reserved; /* 4: 0 */
} VARNOK_DRV_PACKED varnok_drv_hba_cnt;

/* Host number of the port that hbaselect names (8 bytes). */
typedef struct varnok_drv_hostno {
    uint32_t host_no;  /* 0: out: the host number of the selected adapter port */
    uint32_t reserved; /* 4: 0 */
} VARNOK_DRV_PACKED varnok_drv_hostno;

/* ---- Native drivers: one kernel callback a request ------------------------------------------ */

enum varnok_drv_callback {
    VARNOK_DRV_CALLBACK_HBA_CNT = 16,
    VARNOK_DRV_CALLBACK_HOSTNO = 17,
    VARNOK_DRV_CALLBACK_PCI_INFO = 18,
    VARNOK_DRV_CALLBACK_PORT_INFO = 19,
    VARNOK_DRV_CALLBACK_SESS_INFO = 20,
    VARNOK_DRV_CALLBACK_TGT_INFO = 21,
    VARNOK_DRV_CALLBACK_SCSI_CMD = 22
};

#define VARNOK_DRV_CALLBACK_COUNT 7
#define VARNOK_DRV_SIGNATURE_VERSION 0x01000000u
#define VARNOK_DRV_SIGNATURE_VENDOR "Molvar"

/* Adapter count (8 bytes). */
typedef struct varnok_drv_hba_cnt_cb {
    int32_t hba_cnt; /* 0: out: number of adapter ports */
    int32_t status;  /* 4: out: 0 on success */
} VARNOK_DRV_PACKED varnok_drv_hba_cnt_cb;

/* Host number of the port at an index (16 bytes). */
typedef struct varnok_drv_hostno_cb {
    uint64_t inst;    /* 0: in: 0-based index of the port, below the adapter count */
    uint32_t host_no; /* 8: out: its host number */
    uint32_t status;  /* 12: out: 0 on success */
} VARNOK_DRV_PACKED varnok_drv_hostno_cb;

typedef struct varnok_drv_pci_info_cb { /* 72 bytes */
    uint32_t host_no;                   /* 0: in: the port's host number */
    uint32_t status;                    /* 4: out: 0 on success */
    varnok_drv_pci_info pci;            /* 8 */
} VARNOK_DRV_PACKED varnok_drv_pci_info_cb;

typedef struct varnok_drv_port_info_cb { /* 776 bytes */
    uint32_t host_no;                    /* 0: in: the port's host number */
    uint32_t status;                     /* 4: out: 0 on success */
    varnok_drv_port_info port;           /* 8 */
} VARNOK_DRV_PACKED varnok_drv_port_info_cb;

typedef struct varnok_drv_sess_info_cb { /* 1032 bytes */
    uint32_t host_no;                    /* 0: in: the port's host number */
    uint32_t status;                     /* 4: out: 0 on success */
    varnok_drv_session_info sess;        /* 8 */
} VARNOK_DRV_PACKED varnok_drv_sess_info_cb;

typedef struct varnok_drv_tgt_info_cb { /* 392 bytes */
    uint32_t host_no;                   /* 0: in: the port's host number */
    uint32_t status;                    /* 4: out: 0 on success */
    varnok_drv_tgt_info tgt;            /* 8 */
} VARNOK_DRV_PACKED varnok_drv_tgt_info_cb;

typedef struct varnok_drv_scsi_cmd_cb { /* 262444 bytes */
    uint32_t host_no;                   /* 0: in: the port's host number */
    uint32_t status;                    /* 4: out: 0 on success */
    varnok_drv_scsi_cmd_native cmnd;    /* 8 */
} VARNOK_DRV_PACKED varnok_drv_scsi_cmd_cb;

#endif
