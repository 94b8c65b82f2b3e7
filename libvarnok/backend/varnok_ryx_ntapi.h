// varnok_ryx_ntapi.h - the native back-end of the older family, over the driver "rovani".
//
// Statuses are 0 for success, 1 for failure. A query stores the driver's status at stat and writes
// the caller's record on success only.
#pragma once

#include "backend/backend.h"
#include "core/varnok_instdb.h"
#include "records/kx_iscsi_vmkmgmt.h"

extern "C" {

// Discovery: adds the driver's admitted ports to the instance database and stores their number at
// start_inst. The driver's name is not used: the signature holds it.
VARNOK_PRIVATE uint32_t varnok_ryxnt_find_all_instances(const char *driver_name,
                                                        uint32_t *start_inst);

// Gives the port its handle and counts the open; takes one open back, and the handle with the last.
VARNOK_PRIVATE uint32_t varnok_ryxnt_open_adapter(varnok_priv_db *pdb, uint32_t instance,
                                                  uint32_t *papi_handle);
VARNOK_PRIVATE uint32_t varnok_ryxnt_close_adapter(varnok_priv_db *pdb);

VARNOK_PRIVATE uint32_t varnok_ryxnt_get_port_info(varnok_priv_db *pdb,
                                                   kx_iscsi_port_info *port_info, uint32_t *stat);
// The caller sets sess_num.
VARNOK_PRIVATE uint32_t varnok_ryxnt_get_sess_info(varnok_priv_db *pdb, kx_iscsi_sess_info *psess,
                                                   uint32_t *stat);
// The caller sets scsi_tgt_num.
VARNOK_PRIVATE uint32_t varnok_ryxnt_get_tgt_info(varnok_priv_db *pdb, kx_iscsi_tgt_info *ptgt,
                                                  uint32_t *stat);
// The caller fills the command; at most 16 bytes of its CDB and 262144 of its data are carried.
VARNOK_PRIVATE uint32_t varnok_ryxnt_send_scsi_cmd(varnok_priv_db *pdb, kx_iscsi_scsi_cmd *pcmd,
                                                   uint32_t *stat);
}

namespace varnok
{

extern const backend rovani_backend;

} // namespace varnok
