// The trace dump of a port record.
#include "core/varnok_instdb.h"
#include "support/varnok_bytes.h"
#include "support/varnok_log.h"

#include <cstring>

namespace
{

// Every helper tests the trace bit for itself: the dump stops as soon as it is clear.

// The field may fill its array, and the log takes terminated text only.
template <size_t Size>
void text_line(const char *label, const uint8_t (&field)[Size])
{
    char text[Size + 1] = {};
    memcpy(text, field, Size);
    LOG_TRACE_AS(nullptr, label, text);
}

template <size_t Size>
void bytes_line(const char *label, const uint8_t (&bytes)[Size])
{
    if ((varnok_debug & VARNOK_DBG_TRACE) == 0)
        return; // GCOVR_EXCL_LINE: another thread would have to clear the bit
    for (size_t i = 0; i < Size; ++i)
        varnok_dbg_print(nullptr, i == 0 ? label : ":", bytes[i], 16, i + 1 == Size ? 1 : 0);
}

void dec_line(const char *label, uint32_t value) { LOG_TRACE_AS(nullptr, label, dec(value)); }

void hex_line(const char *label, uint32_t value) { LOG_TRACE_AS(nullptr, label, hex(value)); }

void print_port(const varnok_priv_db *pdb)
{
    dec_line(" drvr_inst: ", pdb->drvr_inst);
    dec_line(" host_no: ", pdb->host_no);
    text_line(" iqn: ", pdb->iqn);
    bytes_line(" mac: ", pdb->mac);
    dec_line(" ipv4_port: ", pdb->ipv4_port);
    bytes_line(" ipv4addr: ", pdb->ipv4addr);
    bytes_line(" subnet: ", pdb->subnet);
    bytes_line(" gateway: ", pdb->gateway);
    dec_line(" ipv6_port: ", pdb->ipv6_port);
    bytes_line(" ipv6addr: ", pdb->ipv6addr);
    bytes_line(" ipv6_linklocal: ", pdb->ipv6_linklocal);
    bytes_line(" ipv6_router: ", pdb->ipv6_router);
    dec_line(" vlan_enabled: ", pdb->vlan_enabled);
    dec_line(" vlan_priority: ", pdb->vlan_priority);
    dec_line(" vlan_id: ", pdb->vlan_id);
}

void print_adapter(const varnok_hw_info *hw)
{
    text_line(" manufacturer: ", hw->manufacturer);
    text_line(" model_name: ", hw->model_name);
    text_line(" model_desc: ", hw->model_desc);
    text_line(" serial_num: ", hw->serial_num);
    text_line(" driver_version: ", hw->driver_version);
    text_line(" driver_date: ", hw->driver_date);
    text_line(" driver_name: ", hw->driver_name);
    hex_line(" driver_loaded: ", hw->driver_loaded);
    text_line(" fw_version: ", hw->fw_version);
    hex_line(" vendor_id: ", hw->vendor_id);
    hex_line(" device_id: ", hw->device_id);
    hex_line(" ssvendor_id: ", hw->ssvendor_id);
    hex_line(" ssdevice_id: ", hw->ssdevice_id);
    hex_line(" pci_domain: ", hw->pci_domain);
    hex_line(" pci_bus: ", hw->pci_bus);
    hex_line(" pci_dev: ", hw->pci_dev);
    hex_line(" pci_func: ", hw->pci_func);
    hex_line(" pci_rev: ", hw->pci_rev);
}

} // namespace

void varnok_print_priv_data(varnok_priv_db *pdb)
{
    if ((varnok_debug & VARNOK_DBG_TRACE) == 0)
        return;
    const varnok_hw_info *const hw = pdb->hw_info;
    LOG_TRACE_AS(nullptr, " API Private Data:");
    text_line(" phys_path: ", hw->phys_path);
    print_port(pdb);
    print_adapter(hw);
    hex_line(" port_sup_speed: ", pdb->port_sup_speed);
    hex_line(" port_speed: ", pdb->port_speed);
    dec_line(" mtu: ", pdb->mtu);
    hex_line(" phy port_number: ", hw->phy_port_number);
}
