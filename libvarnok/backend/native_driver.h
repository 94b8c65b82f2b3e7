// native_driver.h - the transport of the native drivers: one synchronous kernel callback for each
// request, with an envelope that carries the port's host number, a status and the driver record.
// Two drivers use it. They differ in the constants below.
#pragma once

#include "backend/scsi_forms.h"
#include "core/port_records.h"
#include "core/varnok_instdb.h"
#include "records/varnok_driver_records.h"
#include "vmkapi_mgmt_lib.h"

namespace varnok
{

struct native_driver {
    vmk_MgmtApiSignature *signature;
    vmk_MgmtUserHandle *handle;
    phy_port_rule phy_port;
};

// The initialiser of a driver's callback table: the drivers' tables are alike.
#define VARNOK_NATIVE_CALLBACK(id, envelope)                                                       \
    {                                                                                              \
        VMK_MGMT_CALLBACK_KERNEL, nullptr, 1, 1, {VMK_MGMT_PARMTYPE_INOUT}, {sizeof(envelope)}, id \
    }
#define VARNOK_NATIVE_CALLBACKS                                                                    \
    {                                                                                              \
        VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_HBA_CNT, varnok_drv_hba_cnt_cb),                \
            VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_HOSTNO, varnok_drv_hostno_cb),              \
            VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_PCI_INFO, varnok_drv_pci_info_cb),          \
            VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_PORT_INFO, varnok_drv_port_info_cb),        \
            VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_SESS_INFO, varnok_drv_sess_info_cb),        \
            VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_TGT_INFO, varnok_drv_tgt_info_cb),          \
            VARNOK_NATIVE_CALLBACK(VARNOK_DRV_CALLBACK_SCSI_CMD, varnok_drv_scsi_cmd_cb),          \
    }

// Runs one callback on the envelope; the result of the call itself, with errno.
int native_invoke(const native_driver &driver, varnok_drv_callback id, void *envelope);

// Each takes the name that its log lines carry. Discovery stores the number of ports kept at
// start_inst.
uint32_t native_find_all_instances(const native_driver &driver, const char *func,
                                   uint32_t *start_inst);
uint32_t native_open(const char *func, varnok_priv_db *pdb, uint32_t instance,
                     uint32_t *papi_handle);
uint32_t native_close(const char *func, varnok_priv_db *pdb);

// What one kind of query needs beside the common steps.
struct native_request {
    varnok_drv_callback id;
    size_t record_size;
    void (*copy_in)(void *to, const void *from); // what of the caller's record goes to the driver
    const char *no_memory;
    const char *status_line;
    const char *call_line;
    bool traces_result = false;
    size_t (*comes_back)(const void *to, const void *from) = nullptr; // bytes; null: all
};

extern const native_request callback_port_info;
extern const native_request callback_sess_info;
extern const native_request callback_tgt_info;
extern const native_request callback_scsi_cmd;
// The same, for a caller that looks at no more of the data than it asked for.
extern const native_request callback_scsi_answer;

// The record is written on success only; stat receives the driver's status, 0 when the call itself
// failed, 10 when memory did.
uint32_t native_query(const native_driver &driver, const char *func, const native_request &request,
                      varnok_priv_db *pdb, void *record, uint32_t *stat);

// ---- A native back-end's table ----

template <uint32_t (*Open)(varnok_priv_db *, uint32_t, uint32_t *)>
uint32_t open_without_device(varnok_priv_db *pdb, uint32_t instance, uint32_t *handle, uint32_t *)
{
    return Open(pdb, instance, handle);
}

template <uint32_t (*Close)(varnok_priv_db *)>
uint32_t close_without_device(varnok_priv_db *pdb, uint32_t *)
{
    return Close(pdb);
}

// The driver's own part of the table, and what all native drivers have in common.
constexpr backend native_backend(backend own)
{
    own.scsi_data_max = VARNOK_DRV_SCSI_DATA_MAX;
    own.open_failed = "): native open failed.";
    own.close_failed = "): native close failed.";
    return own;
}

} // namespace varnok
