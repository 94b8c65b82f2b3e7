// The discovery pass of the native drivers, and open and close, which the driver does not notice.
#include "backend/native_driver.h"
#include "core/varnok_device_rules.h"
#include "support/varnok_log.h"

namespace
{

using namespace varnok;

constexpr vmk_uint64 management_cookie = 701;

enum class found { nothing, kept, no_memory };

// Discovery looks at the status alone: a call that fails outright leaves its envelope as it was
// sent.
template <class Envelope>
bool answers(const native_driver &driver, varnok_drv_callback id, Envelope &envelope)
{
    native_invoke(driver, id, &envelope);
    return envelope.status == 0;
}

bool ask_port(const native_driver &driver, uint64_t inst, varnok_drv_hostno_cb &hostno,
              varnok_drv_port_info_cb &port, varnok_drv_pci_info_cb &pci)
{
    hostno = {};
    hostno.inst = inst;
    if (!answers(driver, VARNOK_DRV_CALLBACK_HOSTNO, hostno))
        return false;
    port = {};
    port.host_no = hostno.host_no;
    if (!answers(driver, VARNOK_DRV_CALLBACK_PORT_INFO, port))
        return false;
    pci = {};
    pci.host_no = hostno.host_no;
    return answers(driver, VARNOK_DRV_CALLBACK_PCI_INFO, pci);
}

void fill_hw_info(const native_driver &driver, varnok_hw_info *hw, const varnok_drv_pci_info &pci,
                  const varnok_drv_port_info &info)
{
    fill_pci_location(hw, pci);
    hw->phy_port_number = driver.phy_port(hw, pci);
    fill_adapter(hw, pci, info);
    hw->native_driver = 1;
}

found look_at_index(const native_driver &driver, const char *func, uint64_t inst)
{
    varnok_drv_hostno_cb hostno;
    varnok_drv_port_info_cb port;
    varnok_drv_pci_info_cb pci;
    if (!ask_port(driver, inst, hostno, port, pci))
        return found::nothing;

    varnok_priv_db *pdb = nullptr;
    if (varnok_alloc_pdb_mem(&pdb) != 0 || pdb == nullptr) {
        LOG_ERROR_AS(func, ": inst=", dec(inst), " mem alloc failed, exiting");
        return found::no_memory;
    }
    pdb->host_no = hostno.host_no;
    fill_port(pdb, port.port);

    varnok_hw_info *hw = nullptr;
    if (varnok_alloc_hw_info_mem(&hw) != 0 || hw == nullptr) {
        LOG_ERROR_AS(func, ": inst=", hex(inst), " hw info mem alloc failed, exiting");
        return found::no_memory;
    }
    fill_hw_info(driver, hw, pci.pci, port.port);
    pdb->hw_info = hw;
    if (!is_admitted(hw->device_id)) {
        drop_port(pdb, hw);
        return found::nothing;
    }
    varnok_print_priv_data(pdb);
    return found::kept;
}

} // namespace

uint32_t varnok::native_find_all_instances(const native_driver &driver, const char *func,
                                           uint32_t *start_inst)
{
    const int rc = vmk_MgmtUserInit(driver.signature, management_cookie, driver.handle);
    if (rc != 0) {
        LOG_ERROR_AS(func, ": vmk init failed. rc=", dec(rc));
        return 1;
    }
    varnok_drv_hba_cnt_cb count = {};
    if (!answers(driver, VARNOK_DRV_CALLBACK_HBA_CNT, count)) {
        LOG_ERROR_AS(func, ": get hba count failed.");
        return 1;
    }
    LOG_TRACE_AS(func, ": Got hba_count=", dec(count.hba_cnt));

    const uint64_t indexes = count.hba_cnt > 0 ? static_cast<uint64_t>(count.hba_cnt) : 0;
    uint32_t kept = 0;
    for (uint64_t inst = 0; inst < indexes; ++inst) {
        switch (look_at_index(driver, func, inst)) {
        case found::nothing:
            break;
        case found::kept:
            ++kept;
            break;
        case found::no_memory:
            drop_all_ports();
            return 1;
        }
    }
    *start_inst = kept;
    LOG_TRACE_AS(func, ": found ", hex(indexes), " instances, exiting rval=", hex(0));
    return 0;
}

uint32_t varnok::native_open(const char *func, varnok_priv_db *pdb, uint32_t instance,
                             uint32_t *papi_handle)
{
    LOG_TRACE_AS(func, ": entered.");
    if (pdb == nullptr) {
        LOG_ERROR_AS(func, ": pdb not found, exiting");
        return 1;
    }
    varnok_hw_info *const hw = pdb->hw_info;
    hw->apihandle = instance + 1;
    hw->open_cnt = hw->open_cnt + 1;
    *papi_handle = hw->apihandle;
    LOG_TRACE_AS(func, ": exiting.");
    return 0;
}

uint32_t varnok::native_close(const char *func, varnok_priv_db *pdb)
{
    if (pdb == nullptr) {
        LOG_ERROR_AS(func, ": pdb not found, exiting");
        return 1;
    }
    varnok_hw_info *const hw = pdb->hw_info;
    LOG_TRACE_AS(func, "(", dec(hw->apihandle), "): entered.");
    if (hw->open_cnt == 0)
        return 0;
    hw->open_cnt = hw->open_cnt - 1;
    if (hw->open_cnt == 0) {
        hw->oshandle = no_descriptor;
        hw->apihandle = 0;
    }
    LOG_TRACE_AS(func, "(", dec(hw->apihandle), "): exiting.");
    return 0;
}
