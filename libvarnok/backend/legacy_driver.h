// legacy_driver.h - the transport of the legacy drivers: one ioctl on a character device for each
// request. Two drivers speak it and differ in the constants below.
#pragma once

#include "port_records.h"
#include "varnok_instdb.h"

namespace varnok
{

// Every operation of one driver, for the shared discovery pass.
struct legacy_driver {
    const char *signature;
    uint32_t ioctl_base;
    phy_port_rule phy_port;
    uint32_t (*get_hba_count)(int32_t handle, int32_t *count);
    uint32_t (*get_hostno)(varnok_priv_db *pdb, int32_t handle, uint32_t *host_no);
    uint32_t (*get_pci_info)(int32_t handle, varnok_priv_db *pdb, varnok_drv_pci_info *record,
                             uint32_t *stat);
    uint32_t (*get_port_info)(int32_t handle, varnok_priv_db *pdb, varnok_drv_port_info *record,
                              uint32_t *stat);
};

// Each takes the name that its log lines carry.
uint32_t legacy_setup_header(const legacy_driver &driver, uint16_t subcmd, void *payload,
                             const varnok_priv_db *pdb, varnok_drv_ioctl *header);
uint32_t legacy_hba_count(const legacy_driver &driver, const char *func, int32_t handle,
                          int32_t *count);
uint32_t legacy_hostno(const legacy_driver &driver, const char *func, varnok_priv_db *pdb,
                       int32_t handle, uint32_t *host_no);

// A request about a port. The driver fills the record in place; stat receives its status on failure
// too.
uint32_t legacy_query(const legacy_driver &driver, const char *func, varnok_drv_request request,
                      int32_t handle, varnok_priv_db *pdb, void *record, uint32_t *stat);

// Adds every admitted port of the driver to the instance database. The low 16 bits of *start_inst
// count on with each port kept.
uint32_t legacy_find_all_instances(const legacy_driver &driver, const char *func,
                                   const char *driver_name, uint32_t *start_inst);

} // namespace varnok
