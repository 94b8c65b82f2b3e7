#include "backend/varnok_core_ioctl.h"

#include "backend/legacy_driver.h"

using namespace varnok;

static constexpr legacy_driver tepli_driver = {
    TEPLI_IOCTL_SIGNATURE, TEPLI_IOCTL_BASE,    phy_port_from_port_num, varnok_get_hba_count,
    varnok_get_hostno,     varnok_get_pci_info, varnok_get_port_info,
};

uint32_t varnok_setup_ioctl_struct(uint16_t subcmd, void *payload, varnok_priv_db *pdb,
                                   tepli_ioctl *header)
{
    return legacy_setup_header(tepli_driver, subcmd, payload, pdb, header);
}

uint32_t varnok_get_hba_count(int32_t handle, int32_t *count)
{
    return legacy_hba_count(tepli_driver, __func__, handle, count);
}

uint32_t varnok_get_hostno(varnok_priv_db *pdb, int32_t handle, uint32_t *host_no)
{
    return legacy_hostno(tepli_driver, __func__, pdb, handle, host_no);
}

uint32_t varnok_get_pci_info(int32_t handle, varnok_priv_db *pdb, tepli_pci_info *record,
                             uint32_t *stat)
{
    return legacy_query(tepli_driver, __func__, ask_pci_info, handle, pdb, record, stat);
}

uint32_t varnok_get_port_info(int32_t handle, varnok_priv_db *pdb, tepli_port_info *record,
                              uint32_t *stat)
{
    return legacy_query(tepli_driver, __func__, ask_port_info, handle, pdb, record, stat);
}

uint32_t varnok_get_sess_info(int32_t handle, varnok_priv_db *pdb, tepli_session_info *record,
                              uint32_t *stat)
{
    return legacy_query(tepli_driver, __func__, ask_sess_info, handle, pdb, record, stat);
}

uint32_t varnok_get_tgt_info(int32_t handle, varnok_priv_db *pdb, tepli_tgt_info *record,
                             uint32_t *stat)
{
    return legacy_query(tepli_driver, __func__, ask_tgt_info, handle, pdb, record, stat);
}

uint32_t varnok_send_scsi_cmd(int32_t handle, varnok_priv_db *pdb, tepli_scsi_cmd *record,
                              uint32_t *stat)
{
    return legacy_query(tepli_driver, __func__, ask_scsi_cmd, handle, pdb, record, stat);
}

uint32_t varnok_find_all_instances(const char *driver_name, uint32_t *start_inst)
{
    return legacy_find_all_instances(tepli_driver, __func__, driver_name, start_inst);
}

constinit const varnok::backend varnok::tepli_backend = legacy_backend({
    .driver_name = TEPLI_DRIVER_NAME,
    .find_all_instances = varnok_find_all_instances,
    .get_port_info = on_device<tepli_port_info, varnok_get_port_info>,
    .get_sess_info = on_device<tepli_session_info, varnok_get_sess_info>,
    .get_tgt_info = on_device<tepli_tgt_info, varnok_get_tgt_info>,
    .send_scsi_cmd = send_on_device<varnok_send_scsi_cmd>,
    .session_alloc_failed = "): ioctl sess_info alloc failed.",
    .target_alloc_failed = "): ioctl tgt_info alloc failed.",
    .scsi_alloc_failed = "): RYX ioctl cmd alloc failed.",
    .scsi_failed = "): scsi cmd ioctl failed, stat=",
});
