// peltl_core.h - the legacy back-end of the newer generation, over the driver "dxo".
//
// handle is a descriptor open on the driver's character device. Statuses are 0 for success, 1 for
// failure; stat receives the driver's status, on failure too. The driver fills the caller's record
// in place.
#pragma once

#include "backend/backend.h"
#include "core/varnok_instdb.h"
#include "records/peltl_ioctl.h"
#include "records/varnok_export.h"

extern "C" {

// 1 when the header is null.
VARNOK_PRIVATE uint32_t varnok_setup_ioctl_struct_zt(uint16_t subcmd, void *payload,
                                                     varnok_priv_db *pdb, dxo_ioctl *header);

// Both store their number on success only.
VARNOK_PRIVATE uint32_t varnok_get_hba_count_zt(int32_t handle, int32_t *count);
VARNOK_PRIVATE uint32_t varnok_get_hostno_zt(varnok_priv_db *pdb, int32_t handle,
                                             uint32_t *host_no);

VARNOK_PRIVATE uint32_t varnok_get_pci_info_zt(int32_t handle, varnok_priv_db *pdb,
                                               dxo_pci_info *record, uint32_t *stat);
VARNOK_PRIVATE uint32_t varnok_get_port_info_zt(int32_t handle, varnok_priv_db *pdb,
                                                dxo_port_info *record, uint32_t *stat);
// The caller sets the record's sess_num.
VARNOK_PRIVATE uint32_t varnok_get_sess_info_zt(int32_t handle, varnok_priv_db *pdb,
                                                dxo_session_info *record, uint32_t *stat);
// The caller sets the record's scsi_tgt_num.
VARNOK_PRIVATE uint32_t varnok_get_tgt_info_zt(int32_t handle, varnok_priv_db *pdb,
                                               dxo_tgt_info *record, uint32_t *stat);
// The caller fills the command.
VARNOK_PRIVATE uint32_t varnok_send_scsi_cmd_zt(int32_t handle, varnok_priv_db *pdb,
                                                dxo_scsi_cmd *record, uint32_t *stat);

// Discovery: adds the driver's admitted ports to the instance database and counts them on in
// *start_inst.
VARNOK_PRIVATE uint32_t varnok_find_all_instances_zt(const char *driver_name, uint32_t *start_inst);
}

namespace varnok
{

extern const backend dxo_backend;

} // namespace varnok
