/* kx_iscsi_vmkmgmt_struct.h - the native driver "rovani" of the older family: its names for the
 * shared records. */
#ifndef KX_ISCSI_VMKMGMT_STRUCT_H
#define KX_ISCSI_VMKMGMT_STRUCT_H

#include "records/varnok_driver_records.h"

typedef varnok_drv_pci_info kx_iscsi_pci_info;
typedef varnok_drv_port_info kx_iscsi_port_info;
typedef varnok_drv_session_info kx_iscsi_sess_info;
typedef varnok_drv_tgt_info kx_iscsi_tgt_info;
typedef varnok_drv_scsi_cmd_native kx_iscsi_scsi_cmd;

typedef varnok_drv_hba_cnt_cb kx_iscsi_hba_cnt_cb;
typedef varnok_drv_hostno_cb kx_iscsi_hostno_cb;
typedef varnok_drv_pci_info_cb kx_iscsi_pci_info_cb;
typedef varnok_drv_port_info_cb kx_iscsi_port_info_cb;
typedef varnok_drv_sess_info_cb kx_iscsi_sess_info_cb;
typedef varnok_drv_tgt_info_cb kx_iscsi_tgt_info_cb;
typedef varnok_drv_scsi_cmd_cb kx_iscsi_scsi_cmd_cb;

#endif
