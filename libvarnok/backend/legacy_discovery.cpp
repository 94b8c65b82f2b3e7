// The discovery pass of the legacy drivers.
#include "backend/legacy_driver.h"
#include "backend/varnok_charnode.h"
#include "core/varnok_device_rules.h"
#include "support/descriptor.h"
#include "support/varnok_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using namespace varnok;

constexpr uint32_t driver_instances = 65536; // what a header's hbaselect can name

using node_path = char[sizeof(varnok_hw_info::phys_path)];

enum class found { nothing, dropped, kept, no_memory };

struct pass {
    const legacy_driver &driver;
    const char *func;
    const node_path &path;
    int fd;
    uint16_t next_instance; // counts the ports kept
};

void fill_hw_info(const pass &p, varnok_hw_info *hw, const varnok_drv_pci_info &pci,
                  const varnok_drv_port_info &info)
{
    memcpy(hw->phys_path, p.path, sizeof hw->phys_path);
    fill_pci_location(hw, pci);
    hw->phy_port_number = p.driver.phy_port(hw, pci);
    fill_adapter(hw, pci, info);
    hw->native_driver = 0;
}

// A port whose data cannot be had is kept, with zero data.
void ask_port_info(const pass &p, varnok_priv_db *pdb, varnok_drv_port_info &info)
{
    uint32_t stat = 0;
    const uint32_t result = p.driver.get_port_info(p.fd, pdb, &info, &stat);
    if (result == 0 && stat == 0) {
        fill_port(pdb, info);
        return;
    }
    LOG_ERROR_AS(p.func, "(", hex(p.fd), "): get port info ioctl failed. stat=", hex(stat),
                 " errno=", hex(errno));
    info = {}; // the driver may have filled a part of it
}

bool ask_pci_info(const pass &p, varnok_priv_db *pdb, varnok_drv_pci_info &pci)
{
    uint32_t stat = 0;
    const uint32_t result = p.driver.get_pci_info(p.fd, pdb, &pci, &stat);
    if (result == 0 && stat == 0)
        return true;
    LOG_ERROR_AS(p.func, "(", hex(p.fd), "): get pci info ioctl failed. stat=", hex(stat),
                 " errno=", hex(errno));
    return false;
}

found look_at_instance(const pass &p, uint32_t driver_instance)
{
    varnok_priv_db *pdb = nullptr;
    if (varnok_alloc_pdb_mem(&pdb) != 0 || pdb == nullptr) {
        LOG_ERROR_AS(p.func, ": inst=", hex(p.next_instance), " mem alloc failed, exiting");
        return found::no_memory;
    }
    pdb->drvr_inst = driver_instance;

    uint32_t host_no = 0;
    if (p.driver.get_hostno(pdb, p.fd, &host_no) != 0) {
        LOG_ERROR_AS(p.func, ": host no failed.");
        varnok_free_pdb_element(pdb);
        return found::nothing;
    }
    pdb->host_no = host_no;

    varnok_drv_port_info info = {};
    ask_port_info(p, pdb, info);
    varnok_drv_pci_info pci = {};
    if (!ask_pci_info(p, pdb, pci)) {
        varnok_free_pdb_element(pdb);
        return found::dropped;
    }

    varnok_hw_info *hw = nullptr;
    if (varnok_alloc_hw_info_mem(&hw) != 0 || hw == nullptr) {
        LOG_ERROR_AS(p.func, ": inst=", hex(p.next_instance), " hw info mem alloc failed, exiting");
        return found::no_memory;
    }
    fill_hw_info(p, hw, pci, info);
    pdb->hw_info = hw;
    if (!is_admitted(hw->device_id)) {
        drop_port(pdb, hw);
        return found::dropped;
    }
    varnok_print_priv_data(pdb);
    return found::kept;
}

// False when memory ran out: nothing is left of any pass then.
bool scan(pass &p, uint32_t remaining)
{
    for (uint32_t d = 0; d < driver_instances && remaining > 0; ++d) {
        switch (look_at_instance(p, d)) {
        case found::nothing:
            break; // a gap in the driver's numbers
        case found::kept:
            ++p.next_instance;
            [[fallthrough]];
        case found::dropped:
            --remaining;
            break;
        case found::no_memory:
            drop_all_ports();
            return false;
        }
    }
    return true;
}

} // namespace

uint32_t varnok::legacy_find_all_instances(const legacy_driver &driver, const char *func,
                                           const char *driver_name, uint32_t *start_inst)
{
    LOG_TRACE_AS(func, ": entered for ", driver_name);
    node_path path = {};
    snprintf(path, sizeof path, "/dev/char/vmkdriver/%s", driver_name);
    if (varnok_charnode_exist(path) != 0) {
        LOG_ERROR_AS(func, ": not found: ", path);
        return 1;
    }
    pass p = {driver, func, path, -1, static_cast<uint16_t>(*start_inst)};
    {
        const descriptor device(open(path, O_RDWR));
        if (!device) {
            LOG_ERROR_AS(func, ": char device open error.");
            return 1;
        }
        p.fd = device.get();
        int32_t hba_count = 0;
        if (driver.get_hba_count(p.fd, &hba_count) != 0) {
            LOG_ERROR_AS(func, ": hba count failed.");
            return 1;
        }
        LOG_TRACE_AS(func, ": Got hba_count=", dec(hba_count));
        if (!scan(p, hba_count > 0 ? static_cast<uint32_t>(hba_count) : 0))
            return 1;
    }
    *start_inst = p.next_instance;
    LOG_TRACE_AS(func, ": found ", hex(p.next_instance), " instances, exiting ret=", hex(0));
    return 0;
}
