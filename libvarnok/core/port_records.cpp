#include "core/port_records.h"

#include "core/varnok_device_rules.h"
#include "support/varnok_bytes.h"

void varnok::refresh_port(varnok_priv_db *pdb, const varnok_drv_port_info &info)
{
    pdb->ipv4_port = info.ipv4_port;
    copy_field(pdb->ipv4addr, info.ipv4addr);
    copy_field(pdb->subnet, info.subnet);
    copy_field(pdb->gateway, info.gateway);
    pdb->ipv6_port = info.ipv6_port;
    copy_field(pdb->ipv6addr, info.ipv6addr);
    copy_field(pdb->ipv6_linklocal, info.ipv6_linklocal);
    copy_field(pdb->ipv6_router, info.ipv6_router);
    pdb->vlan_enabled = info.vlan_enabled;
    pdb->vlan_priority = info.vlan_priority;
    pdb->vlan_id = static_cast<uint16_t>(info.vlan);
    pdb->mtu = info.mtu;
    pdb->state = info.port_state;
    pdb->port_sup_speed = info.port_sup_speed;
    pdb->port_speed = info.port_speed;
    pdb->session_cnt = info.session_cnt;
}

void varnok::fill_port(varnok_priv_db *pdb, const varnok_drv_port_info &info)
{
    copy_field(pdb->iqn, info.iqn);
    copy_field(pdb->mac, info.mac);
    copy_field(pdb->hba_name, info.hba_name);
    refresh_port(pdb, info);
}

void varnok::fill_pci_location(varnok_hw_info *hw, const varnok_drv_pci_info &pci)
{
    hw->vendor_id = pci.vendor_id;
    hw->device_id = pci.device_id;
    hw->ssvendor_id = pci.subvendor_id;
    hw->ssdevice_id = pci.subsystem_id;
    hw->pci_domain = pci.domain_num;
    hw->pci_bus = pci.bus_num;
    hw->pci_dev = pci.device_num;
    hw->pci_func = pci.function_num;
    hw->pci_rev = pci.revision;
}

void varnok::fill_adapter(varnok_hw_info *hw, const varnok_drv_pci_info &pci,
                          const varnok_drv_port_info &info)
{
    hw->pcie_speed = pci.pcie_speed;
    hw->pcie_width = pci.pcie_width;
    hw->chip_rev_id = pci.chip_rev_id;
    copy_field(hw->manufacturer, info.manufacturer);
    copy_field(hw->model_name, info.model_name);
    copy_field(hw->model_desc, info.model_desc);
    copy_field(hw->serial_num, info.serial_num);
    copy_field(hw->driver_version, info.driver_version);
    copy_field(hw->driver_date, info.driver_date);
    copy_field(hw->driver_name, info.driver_name);
    copy_field(hw->fw_version, info.fw_version);
    hw->mfw_version = info.mfw_version;
    hw->driver_loaded = 1;
}

uint8_t varnok::phy_port_from_port_num(varnok_hw_info *, const varnok_drv_pci_info &pci)
{
    return static_cast<uint8_t>(pci.port_num);
}

uint8_t varnok::phy_port_from_function(varnok_hw_info *hw, const varnok_drv_pci_info &pci)
{
    const unsigned mask = varnok_is_quad_port_zt(hw) == 0 ? 3 : 1;
    return static_cast<uint8_t>((pci.function_num & mask) + 1);
}

void varnok::drop_port(varnok_priv_db *pdb, varnok_hw_info *hw)
{
    varnok_free_hw_info_element(hw);
    varnok_free_pdb_element(pdb);
}

void varnok::drop_all_ports()
{
    varnok_free_all_pdb_mem();
    varnok_free_all_hw_info_mem();
}
