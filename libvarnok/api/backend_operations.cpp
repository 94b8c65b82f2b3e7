// The four back-ends as the exported functions see them.
#include "peltl_core.h"
#include "scsi_forms.h"
#include "varnok_core.h"
#include "varnok_core_ioctl.h"
#include "varnok_device_rules.h"
#include "varnok_mgmt_internal.h"
#include "varnok_ntapi.h"
#include "varnok_ryx_ntapi.h"

namespace
{

using namespace varnok;

// A legacy request goes through the port's open device.
template <class Record, uint32_t (*Request)(int32_t, varnok_priv_db *, Record *, uint32_t *)>
uint32_t on_device(varnok_priv_db *pdb, Record *record, uint32_t *stat)
{
    return Request(static_cast<int32_t>(pdb->hw_info->oshandle), pdb, record, stat);
}

uint32_t legacy_open(varnok_priv_db *pdb, uint32_t, uint32_t *handle, uint32_t *err)
{
    return varnok_open_adapter(pdb, handle, err);
}

template <uint32_t (*Open)(varnok_priv_db *, uint32_t, uint32_t *)>
uint32_t native_open(varnok_priv_db *pdb, uint32_t instance, uint32_t *handle, uint32_t *)
{
    return Open(pdb, instance, handle);
}

template <uint32_t (*Close)(varnok_priv_db *)>
uint32_t native_close(varnok_priv_db *pdb, uint32_t *)
{
    return Close(pdb);
}

constexpr uint32_t any_length = UINT32_MAX;

constexpr backend_operations native_newer = {
    .open = native_open<varnoknt_open_adapter>,
    .close = native_close<varnoknt_close_adapter>,
    .get_port_info = varnoknt_get_port_info,
    .get_sess_info = varnoknt_get_sess_info,
    .get_tgt_info = varnoknt_get_tgt_info,
    .send_scsi_cmd = send_in_form<pelt_scsi_cmd, pelt_scsi_answer>,
    .scsi_data_max = VARNOK_DRV_SCSI_DATA_MAX,
    .open_failed = "): native open failed.",
    .close_failed = "): native close failed.",
    .port_info_trace = "): calling native port info.",
    .session_alloc_failed = "): native nqsess_info alloc failed.",
    .target_alloc_failed = "): native nqtgt_info alloc failed.",
    .scsi_alloc_failed = "): native nqcmd alloc failed.",
    .scsi_failed = "): scsi cmd callback failed, stat=",
};

constexpr backend_operations native_older = {
    .open = native_open<varnok_ryxnt_open_adapter>,
    .close = native_close<varnok_ryxnt_close_adapter>,
    .get_port_info = varnok_ryxnt_get_port_info,
    .get_sess_info = varnok_ryxnt_get_sess_info,
    .get_tgt_info = varnok_ryxnt_get_tgt_info,
    .send_scsi_cmd = send_in_form<kx_iscsi_scsi_cmd, rovani_scsi_answer>,
    .scsi_data_max = VARNOK_DRV_SCSI_DATA_MAX,
    .open_failed = "): native open failed.",
    .close_failed = "): native close failed.",
    .port_info_trace = nullptr,
    .session_alloc_failed = "): native nsess_info alloc failed.",
    .target_alloc_failed = "): native ntgt_info alloc failed.",
    .scsi_alloc_failed = "): RYX native cmd alloc failed.",
    .scsi_failed = "): scsi cmd ryx callback failed, stat=",
};

constexpr backend_operations legacy_newer = {
    .open = legacy_open,
    .close = varnok_close_adapter,
    .get_port_info = on_device<dxo_port_info, varnok_get_port_info_zt>,
    .get_sess_info = on_device<dxo_session_info, varnok_get_sess_info_zt>,
    .get_tgt_info = on_device<dxo_tgt_info, varnok_get_tgt_info_zt>,
    .send_scsi_cmd = send_in_form<dxo_scsi_cmd, on_device<dxo_scsi_cmd, varnok_send_scsi_cmd_zt>>,
    .scsi_data_max = any_length,
    .open_failed = "): open failed.",
    .close_failed = nullptr,
    .port_info_trace = nullptr,
    .session_alloc_failed = "): ioctl qsess_info alloc failed.",
    .target_alloc_failed = "): ioctl qtgt_info alloc failed.",
    .scsi_alloc_failed = "): ioctl qcmd alloc failed.",
    .scsi_failed = "): scsi cmd zt callback failed, stat=",
};

constexpr backend_operations legacy_older = {
    .open = legacy_open,
    .close = varnok_close_adapter,
    .get_port_info = on_device<tepli_port_info, varnok_get_port_info>,
    .get_sess_info = on_device<tepli_session_info, varnok_get_sess_info>,
    .get_tgt_info = on_device<tepli_tgt_info, varnok_get_tgt_info>,
    .send_scsi_cmd = send_in_form<tepli_scsi_cmd, on_device<tepli_scsi_cmd, varnok_send_scsi_cmd>>,
    .scsi_data_max = any_length,
    .open_failed = "): open failed.",
    .close_failed = nullptr,
    .port_info_trace = nullptr,
    .session_alloc_failed = "): ioctl sess_info alloc failed.",
    .target_alloc_failed = "): ioctl tgt_info alloc failed.",
    .scsi_alloc_failed = "): RYX ioctl cmd alloc failed.",
    .scsi_failed = "): scsi cmd ioctl failed, stat=",
};

} // namespace

const backend_operations &varnok::operations_of(const varnok_priv_db *pdb)
{
    switch (backend_of(pdb->hw_info)) {
    case backend::native_newer:
        return native_newer;
    case backend::native_older:
        return native_older;
    case backend::legacy_newer:
        return legacy_newer;
    case backend::legacy_older:
        break;
    }
    return legacy_older;
}
