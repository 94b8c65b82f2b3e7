// legacy_driver.h - the transport of the legacy drivers: one ioctl on a character device for each
// request. Two drivers use it. They differ in the constants below.
#pragma once

#include "backend/legacy_adapter.h"
#include "backend/scsi_forms.h"
#include "core/port_records.h"
#include "core/varnok_instdb.h"

namespace varnok
{

// What makes one request: its number, and the lines for a driver's failure and for a failure of the
// call.
struct legacy_request {
    varnok_drv_request number;
    const char *status_line;
    const char *call_line;
};

#define VARNOK_LEGACY_REQUEST(number, what)                                                        \
    {                                                                                              \
        number,                                                                                    \
            ": " what " ioctl failed, ioctl_status=", ": " what " ioctl function failed, errno="   \
    }
inline constexpr legacy_request ask_hba_count =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_HBA_CNT, "Get HBA Count");
inline constexpr legacy_request ask_hostno =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_HOSTNO, "Get Host number");
inline constexpr legacy_request ask_pci_info =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_PCI_INFO, "Get pci info");
inline constexpr legacy_request ask_port_info =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_PORT_INFO, "Get port info");
inline constexpr legacy_request ask_sess_info =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_SESS_INFO, "Get session info");
inline constexpr legacy_request ask_tgt_info =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_TGT_INFO, "Get tgt info");
inline constexpr legacy_request ask_scsi_cmd =
    VARNOK_LEGACY_REQUEST(VARNOK_DRV_REQUEST_SCSI_CMD, "send scsi cmd");

// What one driver is known by, and the operations that its discovery pass needs.
struct legacy_driver {
    char signature[sizeof varnok_drv_ioctl::signature]; // padded as in the header
    uint32_t ioctl_base;
    phy_port_rule phy_port;
    uint32_t (*get_hba_count)(int32_t handle, int32_t *count);
    uint32_t (*get_hostno)(varnok_priv_db *pdb, int32_t handle, uint32_t *host_no);
    uint32_t (*get_pci_info)(int32_t handle, varnok_priv_db *pdb, varnok_drv_pci_info *record,
                             uint32_t *stat);
    uint32_t (*get_port_info)(int32_t handle, varnok_priv_db *pdb, varnok_drv_port_info *record,
                              uint32_t *stat);
};

// 1 when the header is null.
uint32_t legacy_setup_header(const legacy_driver &driver, uint16_t subcmd, void *payload,
                             const varnok_priv_db *pdb, varnok_drv_ioctl *header);
// func is the name in the log lines, here and below.
uint32_t legacy_hba_count(const legacy_driver &driver, const char *func, int32_t handle,
                          int32_t *count);
uint32_t legacy_hostno(const legacy_driver &driver, const char *func, varnok_priv_db *pdb,
                       int32_t handle, uint32_t *host_no);

// A request about a port. The driver fills the record in place; stat receives its status on failure
// too.
uint32_t legacy_query(const legacy_driver &driver, const char *func, const legacy_request &request,
                      int32_t handle, varnok_priv_db *pdb, void *record, uint32_t *stat);

// Adds every admitted port of the driver to the instance database. The low 16 bits of *start_inst
// count on with each port kept.
uint32_t legacy_find_all_instances(const legacy_driver &driver, const char *func,
                                   const char *driver_name, uint32_t *start_inst);

// ---- A legacy back-end's table ----

// A request goes through the port's open device.
template <class Record, uint32_t (*Request)(int32_t, varnok_priv_db *, Record *, uint32_t *)>
uint32_t on_device(varnok_priv_db *pdb, Record *record, uint32_t *stat)
{
    return Request(static_cast<int32_t>(pdb->hw_info->oshandle), pdb, record, stat);
}

template <uint32_t (*Send)(int32_t, varnok_priv_db *, varnok_drv_scsi_cmd_ioctl *, uint32_t *)>
constexpr auto send_on_device =
    send_in_form<varnok_drv_scsi_cmd_ioctl, on_device<varnok_drv_scsi_cmd_ioctl, Send>>;

// The driver's own part of the table, and what all legacy drivers have in common.
constexpr backend legacy_backend(backend own)
{
    own.open = [](varnok_priv_db *pdb, uint32_t, uint32_t *handle, uint32_t *err) {
        return varnok_open_adapter(pdb, handle, err);
    };
    own.close = varnok_close_adapter;
    own.scsi_data_max = UINT32_MAX; // an address travels, and no data
    own.open_failed = "): open failed.";
    return own;
}

} // namespace varnok
