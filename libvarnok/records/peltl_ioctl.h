/* peltl_ioctl.h - the legacy driver "dxo" of the newer generation: its names for the shared
 * records. */
#ifndef PELTL_IOCTL_H
#define PELTL_IOCTL_H

#include "records/varnok_driver_records.h"

#define DXO_DRIVER_NAME "dxo"
#define DXO_IOCTL_SIGNATURE "DXO"
#define DXO_IOCTL_BASE 0xC0406400u /* plus a VARNOK_DRV_REQUEST_* number */

typedef varnok_drv_ioctl dxo_ioctl;
typedef varnok_drv_hba_cnt dxo_hba_cnt;
typedef varnok_drv_hostno dxo_hostno;
typedef varnok_drv_pci_info dxo_pci_info;
typedef varnok_drv_port_info dxo_port_info;
typedef varnok_drv_session_info dxo_session_info;
typedef varnok_drv_tgt_info dxo_tgt_info;
typedef varnok_drv_scsi_cmd_ioctl dxo_scsi_cmd;

#endif
