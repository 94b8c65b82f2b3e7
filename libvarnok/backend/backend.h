// backend.h - what a back-end is: one driver, how its ports are found, and what can be asked of
// them. Each back-end's own file defines its table. families.h says which of them serves a port.
#pragma once

#include "core/varnok_instdb.h"
#include "include/varnok_mgmt.h"
#include "records/varnok_driver_records.h"

#include <cstdint>

namespace varnok
{

// A pass-through command. Its sense data goes into the caller's record, its data to or from the
// caller's buffer.
struct scsi_request {
    VARNOK_SCSI_CMND *command;
    uint8_t direction; // VARNOK_SCSI_*
    uint32_t data_len; // 0 when no data moves
    uint8_t *data;
};

enum class scsi_outcome { no_memory, failed, done };

struct backend {
    const char *driver_name = nullptr;

    // Adds the driver's admitted ports to the instance database and counts them at start_inst. 0
    // when the driver could be asked.
    uint32_t (*find_all_instances)(const char *driver_name, uint32_t *start_inst) = nullptr;

    // 0 or 1. err receives the error number of a device that cannot be opened or closed.
    uint32_t (*open)(varnok_priv_db *pdb, uint32_t instance, uint32_t *handle,
                     uint32_t *err) = nullptr;
    uint32_t (*close)(varnok_priv_db *pdb, uint32_t *err) = nullptr;

    // 0 or 1, and the driver's status at stat: the request failed when either is nonzero.
    uint32_t (*get_port_info)(varnok_priv_db *pdb, varnok_drv_port_info *record,
                              uint32_t *stat) = nullptr;
    uint32_t (*get_sess_info)(varnok_priv_db *pdb, varnok_drv_session_info *record,
                              uint32_t *stat) = nullptr;
    uint32_t (*get_tgt_info)(varnok_priv_db *pdb, varnok_drv_tgt_info *record,
                             uint32_t *stat) = nullptr;
    scsi_outcome (*send_scsi_cmd)(varnok_priv_db *pdb, const scsi_request &request,
                                  uint32_t *stat) = nullptr;
    uint32_t scsi_data_max = 0; // bytes that one command can carry

    // What the exported functions write about it; null where they write nothing.
    const char *open_failed = nullptr;
    const char *close_failed = nullptr;
    const char *port_info_trace = nullptr;
    const char *session_alloc_failed = nullptr;
    const char *target_alloc_failed = nullptr;
    const char *scsi_alloc_failed = nullptr;
    const char *scsi_failed = nullptr;
};

} // namespace varnok
