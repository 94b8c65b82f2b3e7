// Finding a port: by position, by handle, by PCI location. Every walk is first to last.
#include "core/varnok_instdb.h"
#include "support/varnok_log.h"

namespace
{

constexpr char no_database[] = ": no memory allocated for api_priv_data";

// The first record that matches, with the cursor on it; null with the cursor on the sentinel.
template <class Record, class Matches>
Record *find(varnok_Dlist *list, Matches matches)
{
    varnok_dlist_start(list);
    while (Record *record = varnok::step<Record>(list))
        if (matches(record))
            return record;
    return nullptr;
}

template <class Matches>
varnok_priv_db *find_by_handle(const char *func, uint32_t handle, Matches matches)
{
    const varnok::trace_scope scope(func, handle);
    if (varnok_priv_database == nullptr) {
        LOG_ERROR_AS(func, no_database);
        return nullptr;
    }
    if (handle == 0) {
        LOG_ERROR_AS(func, ": invalid handle");
        return nullptr;
    }
    return find<varnok_priv_db>(varnok_priv_database, [handle, matches](const varnok_priv_db *pdb) {
        return pdb->hw_info->apihandle == handle && matches(pdb);
    });
}

bool lies_at(const varnok_hw_info *hw, const varnok_drv_pci_info &location)
{
    return hw->pci_domain == location.domain_num && hw->pci_bus == location.bus_num &&
           hw->pci_dev == location.device_num && hw->pci_func == location.function_num;
}

} // namespace

uint32_t varnok_get_instance_from_pdb(varnok_priv_db *pdb, uint32_t *instance)
{
    const varnok::trace_scope scope(__func__, pdb == nullptr ? 0 : varnok::handle_of(pdb));
    if (varnok_priv_database == nullptr) {
        LOG_ERROR(no_database);
        return 1;
    }
    uint32_t position = 0;
    find<varnok_priv_db>(varnok_priv_database, [pdb, &position](const varnok_priv_db *record) {
        if (record == pdb)
            return true;
        ++position;
        return false;
    });
    *instance = position;
    return 0;
}

varnok_priv_db *varnok_get_pdb_from_user_instance(uint32_t instance)
{
    const varnok::trace_scope scope(__func__, instance);
    if (varnok_priv_database == nullptr) {
        LOG_ERROR(no_database);
        return nullptr;
    }
    uint32_t position = 0;
    return find<varnok_priv_db>(
        varnok_priv_database,
        [instance, &position](const varnok_priv_db *) { return position++ == instance; });
}

varnok_priv_db *varnok_get_pdb_from_user_handle(uint32_t handle)
{
    return find_by_handle(__func__, handle, [](const varnok_priv_db *) { return true; });
}

varnok_priv_db *varnok_get_vn_pdb_from_user_handle(uint32_t handle, uint32_t npiv_index)
{
    return find_by_handle(__func__, handle, [npiv_index](const varnok_priv_db *pdb) {
        return pdb->npiv_index == npiv_index;
    });
}

varnok_hw_info *varnok::hw_info_at(const char *func, const varnok_drv_pci_info &location)
{
    const trace_scope scope(func);
    if (varnok_phy_info == nullptr) {
        LOG_ERROR_AS(func, ": api_phy_info is NOT initialized. Exiting.");
        return nullptr;
    }
    return find<varnok_hw_info>(
        varnok_phy_info, [&location](const varnok_hw_info *hw) { return lies_at(hw, location); });
}

varnok_priv_db *varnok::port_at(const char *func, const varnok_drv_pci_info &location)
{
    const trace_scope scope(func);
    if (varnok_priv_database == nullptr) {
        LOG_ERROR_AS(func, no_database);
        return nullptr;
    }
    return find<varnok_priv_db>(varnok_priv_database, [&location](const varnok_priv_db *pdb) {
        return lies_at(pdb->hw_info, location);
    });
}

varnok_hw_info *varnok_get_hw_info_inst(tepli_pci_info *pci)
{
    return varnok::hw_info_at(__func__, *pci);
}

varnok_priv_db *varnok_get_parent_port(tepli_pci_info *pci)
{
    return varnok::port_at(__func__, *pci);
}
