#include "backend/varnok_ryx_ntapi.h"

#include "backend/native_driver.h"

using namespace varnok;

vmk_MgmtCallbackInfo kx_iscsi_callbacks[VARNOK_DRV_CALLBACK_COUNT] = VARNOK_NATIVE_CALLBACKS;

vmk_MgmtApiSignature kx_iscsi_sig = {
    VARNOK_DRV_SIGNATURE_VERSION, {KX_ISCSI_DRIVER_NAME}, {VARNOK_DRV_SIGNATURE_VENDOR},
    VARNOK_DRV_CALLBACK_COUNT,    kx_iscsi_callbacks,
};

vmk_MgmtUserHandle kx_iscsi_handle = 0;

static constexpr native_driver driver = {&kx_iscsi_sig, &kx_iscsi_handle, phy_port_from_port_num};

uint32_t varnok_ryxnt_find_all_instances(const char *, uint32_t *start_inst)
{
    return native_find_all_instances(driver, __func__, start_inst);
}

uint32_t varnok_ryxnt_open_adapter(varnok_priv_db *pdb, uint32_t instance, uint32_t *papi_handle)
{
    return native_open(__func__, pdb, instance, papi_handle);
}

uint32_t varnok_ryxnt_close_adapter(varnok_priv_db *pdb) { return native_close(__func__, pdb); }

uint32_t varnok_ryxnt_get_port_info(varnok_priv_db *pdb, kx_iscsi_port_info *port_info,
                                    uint32_t *stat)
{
    return native_query(driver, __func__, callback_port_info, pdb, port_info, stat);
}

uint32_t varnok_ryxnt_get_sess_info(varnok_priv_db *pdb, kx_iscsi_sess_info *psess, uint32_t *stat)
{
    return native_query(driver, __func__, callback_sess_info, pdb, psess, stat);
}

uint32_t varnok_ryxnt_get_tgt_info(varnok_priv_db *pdb, kx_iscsi_tgt_info *ptgt, uint32_t *stat)
{
    return native_query(driver, __func__, callback_tgt_info, pdb, ptgt, stat);
}

uint32_t varnok_ryxnt_send_scsi_cmd(varnok_priv_db *pdb, kx_iscsi_scsi_cmd *pcmd, uint32_t *stat)
{
    return native_query(driver, __func__, callback_scsi_cmd, pdb, pcmd, stat);
}

// As varnok_ryxnt_send_scsi_cmd, for a caller that looks at no more of the data than it asked for.
static uint32_t scsi_answer(varnok_priv_db *pdb, kx_iscsi_scsi_cmd *pcmd, uint32_t *stat)
{
    return native_query(driver, "varnok_ryxnt_send_scsi_cmd", callback_scsi_answer, pdb, pcmd,
                        stat);
}

constinit const varnok::backend varnok::rovani_backend = native_backend({
    .driver_name = KX_ISCSI_DRIVER_NAME,
    .find_all_instances = varnok_ryxnt_find_all_instances,
    .open = open_without_device<varnok_ryxnt_open_adapter>,
    .close = close_without_device<varnok_ryxnt_close_adapter>,
    .get_port_info = varnok_ryxnt_get_port_info,
    .get_sess_info = varnok_ryxnt_get_sess_info,
    .get_tgt_info = varnok_ryxnt_get_tgt_info,
    .send_scsi_cmd = send_in_form<kx_iscsi_scsi_cmd, scsi_answer>,
    .session_alloc_failed = "): native nsess_info alloc failed.",
    .target_alloc_failed = "): native ntgt_info alloc failed.",
    .scsi_alloc_failed = "): RYX native cmd alloc failed.",
    .scsi_failed = "): scsi cmd ryx callback failed, stat=",
});
