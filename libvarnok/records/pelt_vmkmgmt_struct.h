/* pelt_vmkmgmt_struct.h - the native driver "pelt" of the newer generation: its names for the
 * shared records. */
#ifndef PELT_VMKMGMT_STRUCT_H
#define PELT_VMKMGMT_STRUCT_H

#include "records/varnok_driver_records.h"

typedef varnok_drv_pci_info pelt_pci_info;
typedef varnok_drv_port_info pelt_port_info;
typedef varnok_drv_session_info pelt_sess_info;
typedef varnok_drv_tgt_info pelt_tgt_info;
typedef varnok_drv_scsi_cmd_native pelt_scsi_cmd;

typedef varnok_drv_hba_cnt_cb pelt_hba_cnt_cb;
typedef varnok_drv_hostno_cb pelt_hostno_cb;
typedef varnok_drv_pci_info_cb pelt_pci_info_cb;
typedef varnok_drv_port_info_cb pelt_port_info_cb;
typedef varnok_drv_sess_info_cb pelt_sess_info_cb;
typedef varnok_drv_tgt_info_cb pelt_tgt_info_cb;
typedef varnok_drv_scsi_cmd_cb pelt_scsi_cmd_cb;

#endif
