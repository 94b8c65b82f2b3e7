#include "backend/peltl_core.h"

#include "backend/legacy_driver.h"

using namespace varnok;

static constexpr legacy_driver dxo_driver = {
    DXO_IOCTL_SIGNATURE,  DXO_IOCTL_BASE,         phy_port_from_function,  varnok_get_hba_count_zt,
    varnok_get_hostno_zt, varnok_get_pci_info_zt, varnok_get_port_info_zt,
};

uint32_t varnok_setup_ioctl_struct_zt(uint16_t subcmd, void *payload, varnok_priv_db *pdb,
                                      dxo_ioctl *header)
{
    return legacy_setup_header(dxo_driver, subcmd, payload, pdb, header);
}

uint32_t varnok_get_hba_count_zt(int32_t handle, int32_t *count)
{
    return legacy_hba_count(dxo_driver, __func__, handle, count);
}

uint32_t varnok_get_hostno_zt(varnok_priv_db *pdb, int32_t handle, uint32_t *host_no)
{
    return legacy_hostno(dxo_driver, __func__, pdb, handle, host_no);
}

uint32_t varnok_get_pci_info_zt(int32_t handle, varnok_priv_db *pdb, dxo_pci_info *record,
                                uint32_t *stat)
{
    return legacy_query(dxo_driver, __func__, ask_pci_info, handle, pdb, record, stat);
}

uint32_t varnok_get_port_info_zt(int32_t handle, varnok_priv_db *pdb, dxo_port_info *record,
                                 uint32_t *stat)
{
    return legacy_query(dxo_driver, __func__, ask_port_info, handle, pdb, record, stat);
}

uint32_t varnok_get_sess_info_zt(int32_t handle, varnok_priv_db *pdb, dxo_session_info *record,
                                 uint32_t *stat)
{
    return legacy_query(dxo_driver, __func__, ask_sess_info, handle, pdb, record, stat);
}

uint32_t varnok_get_tgt_info_zt(int32_t handle, varnok_priv_db *pdb, dxo_tgt_info *record,
                                uint32_t *stat)
{
    return legacy_query(dxo_driver, __func__, ask_tgt_info, handle, pdb, record, stat);
}

uint32_t varnok_send_scsi_cmd_zt(int32_t handle, varnok_priv_db *pdb, dxo_scsi_cmd *record,
                                 uint32_t *stat)
{
    return legacy_query(dxo_driver, __func__, ask_scsi_cmd, handle, pdb, record, stat);
}

uint32_t varnok_find_all_instances_zt(const char *driver_name, uint32_t *start_inst)
{
    return legacy_find_all_instances(dxo_driver, __func__, driver_name, start_inst);
}

varnok_hw_info *varnok_get_hw_info_inst_zt(dxo_pci_info *pci) { return hw_info_at(__func__, *pci); }

varnok_priv_db *varnok_get_parent_port_zt(dxo_pci_info *pci) { return port_at(__func__, *pci); }

constinit const varnok::backend varnok::dxo_backend = legacy_backend({
    .driver_name = DXO_DRIVER_NAME,
    .find_all_instances = varnok_find_all_instances_zt,
    .get_port_info = on_device<dxo_port_info, varnok_get_port_info_zt>,
    .get_sess_info = on_device<dxo_session_info, varnok_get_sess_info_zt>,
    .get_tgt_info = on_device<dxo_tgt_info, varnok_get_tgt_info_zt>,
    .send_scsi_cmd = send_on_device<varnok_send_scsi_cmd_zt>,
    .session_alloc_failed = "): ioctl qsess_info alloc failed.",
    .target_alloc_failed = "): ioctl qtgt_info alloc failed.",
    .scsi_alloc_failed = "): ioctl qcmd alloc failed.",
    .scsi_failed = "): scsi cmd zt callback failed, stat=",
});
