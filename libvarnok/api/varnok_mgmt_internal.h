// varnok_mgmt_internal.h - what the sources of the exported functions share.
#pragma once

#include "varnok_export.h"
#include "varnok_instdb.h"
#include "varnok_mgmt.h"

extern "C" {

VARNOK_PRIVATE extern const char varnok_api_version[13];

// A driver's status as a status code: 1 to 13 as 0x80000000 plus the status, any other as a failed
// driver.
VARNOK_PRIVATE uint32_t varnok_xlate_err(uint32_t stat);
}

namespace varnok
{

struct backend_operations;

// What a pass-through command needs of its caller.
struct scsi_call {
    const char *func;
    uint32_t handle;
    varnok_priv_db *pdb;
    const backend_operations &operations;
    VARNOK_SCSI_CMND *command;
    uint8_t direction; // VARNOK_SCSI_*
    uint32_t data_len; // 0 when no data moves
    uint8_t *data;
};

struct scsi_outcome {
    bool sent;
    uint32_t rval; // a status code
};

// A back-end as the exported functions see it: every operation on a port, and the texts of the
// lines that differ.
struct backend_operations {
    // err receives the error number of a device that cannot be opened or closed.
    uint32_t (*open)(varnok_priv_db *pdb, uint32_t instance, uint32_t *handle, uint32_t *err);
    uint32_t (*close)(varnok_priv_db *pdb, uint32_t *err);

    // 0 or 1, and the driver's status at stat: the request failed when either is nonzero.
    uint32_t (*get_port_info)(varnok_priv_db *pdb, varnok_drv_port_info *record, uint32_t *stat);
    uint32_t (*get_sess_info)(varnok_priv_db *pdb, varnok_drv_session_info *record, uint32_t *stat);
    uint32_t (*get_tgt_info)(varnok_priv_db *pdb, varnok_drv_tgt_info *record, uint32_t *stat);

    scsi_outcome (*send_scsi_cmd)(const scsi_call &call);
    uint32_t scsi_data_max; // bytes that one command can carry

    const char *open_failed;
    const char *close_failed;    // null: no line
    const char *port_info_trace; // null: no line
    const char *session_alloc_failed;
    const char *target_alloc_failed;
    const char *scsi_alloc_failed;
    const char *scsi_failed;
};

// The open port with this handle; null, with a line, when there is none.
varnok_priv_db *port_of(const char *func, uint32_t handle);

// A list query against the caller's array.
enum class list_check { empty, too_short, no_array, fits };

struct list_texts {
    const char *empty;
    const char *too_short;
};

// Compares a list with the caller's array. Writes the line of a list that does not go there, and
// the count that the caller needs. The array's pointer is looked at last: a call that asks for the
// count may come without one.
list_check check_count(const char *func, uint32_t handle, uint32_t entries, uint32_t *count,
                       const list_texts &texts);
list_check check_array(const char *func, uint32_t handle, const void *array);

template <class Record>
list_check check_list(const char *func, uint32_t handle, uint32_t entries, uint32_t *count,
                      Record *const *array, const list_texts &texts)
{
    const list_check check = check_count(func, handle, entries, count, texts);
    return check == list_check::fits ? check_array(func, handle, *array) : check;
}

// The status code for it.
uint32_t status_of(list_check check);

// Chosen afresh at every use: the records that decide may have changed.
const backend_operations &operations_of(const varnok_priv_db *pdb);

} // namespace varnok
