/* varnok_ioctl.h - the legacy driver "tepli" of the older family: its names for the shared records.
 */
#ifndef VARNOK_IOCTL_H
#define VARNOK_IOCTL_H

#include "records/varnok_driver_records.h"

#define TEPLI_DRIVER_NAME "tepli"
#define TEPLI_IOCTL_SIGNATURE "TEPLI"
#define TEPLI_IOCTL_BASE 0xC0407400u /* plus a VARNOK_DRV_REQUEST_* number */

typedef varnok_drv_ioctl tepli_ioctl;
typedef varnok_drv_hba_cnt tepli_hba_cnt;
typedef varnok_drv_hostno tepli_hostno;
typedef varnok_drv_pci_info tepli_pci_info;
typedef varnok_drv_port_info tepli_port_info;
typedef varnok_drv_session_info tepli_session_info;
typedef varnok_drv_tgt_info tepli_tgt_info;
typedef varnok_drv_scsi_cmd_ioctl tepli_scsi_cmd;

#endif
