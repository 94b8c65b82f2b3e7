#include "backend/varnok_ntapi.h"

#include "backend/native_driver.h"

using namespace varnok;

vmk_MgmtCallbackInfo pelt_callbacks[VARNOK_DRV_CALLBACK_COUNT] = VARNOK_NATIVE_CALLBACKS;

vmk_MgmtApiSignature pelt_sig = {
    VARNOK_DRV_SIGNATURE_VERSION, {PELT_DRIVER_NAME}, {VARNOK_DRV_SIGNATURE_VENDOR},
    VARNOK_DRV_CALLBACK_COUNT,    pelt_callbacks,
};

vmk_MgmtUserHandle pelt_handle = 0;

static constexpr native_driver driver = {&pelt_sig, &pelt_handle, phy_port_from_function};

uint32_t varnoknt_find_all_instances(const char *, uint32_t *start_inst)
{
    return native_find_all_instances(driver, __func__, start_inst);
}

uint32_t varnoknt_open_adapter(varnok_priv_db *pdb, uint32_t instance, uint32_t *papi_handle)
{
    return native_open(__func__, pdb, instance, papi_handle);
}

uint32_t varnoknt_close_adapter(varnok_priv_db *pdb) { return native_close(__func__, pdb); }

uint32_t varnoknt_get_port_info(varnok_priv_db *pdb, pelt_port_info *port_info, uint32_t *stat)
{
    return native_query(driver, __func__, callback_port_info, pdb, port_info, stat);
}

uint32_t varnoknt_get_sess_info(varnok_priv_db *pdb, pelt_sess_info *psess, uint32_t *stat)
{
    return native_query(driver, __func__, callback_sess_info, pdb, psess, stat);
}

uint32_t varnoknt_get_tgt_info(varnok_priv_db *pdb, pelt_tgt_info *ptgt, uint32_t *stat)
{
    return native_query(driver, __func__, callback_tgt_info, pdb, ptgt, stat);
}

uint32_t varnoknt_send_scsi_cmd(varnok_priv_db *pdb, pelt_scsi_cmd *pcmd, uint32_t *stat)
{
    return native_query(driver, __func__, callback_scsi_cmd, pdb, pcmd, stat);
}

// As varnoknt_send_scsi_cmd, for a caller that looks at no more of the data than it asked for.
static uint32_t scsi_answer(varnok_priv_db *pdb, pelt_scsi_cmd *pcmd, uint32_t *stat)
{
    return native_query(driver, "varnoknt_send_scsi_cmd", callback_scsi_answer, pdb, pcmd, stat);
}

constinit const varnok::backend varnok::pelt_backend = native_backend({
    .driver_name = PELT_DRIVER_NAME,
    .find_all_instances = varnoknt_find_all_instances,
    .open = open_without_device<varnoknt_open_adapter>,
    .close = close_without_device<varnoknt_close_adapter>,
    .get_port_info = varnoknt_get_port_info,
    .get_sess_info = varnoknt_get_sess_info,
    .get_tgt_info = varnoknt_get_tgt_info,
    .send_scsi_cmd = send_in_form<pelt_scsi_cmd, scsi_answer>,
    .port_info_trace = "): calling native port info.",
    .session_alloc_failed = "): native nqsess_info alloc failed.",
    .target_alloc_failed = "): native nqtgt_info alloc failed.",
    .scsi_alloc_failed = "): native nqcmd alloc failed.",
    .scsi_failed = "): scsi cmd callback failed, stat=",
});
