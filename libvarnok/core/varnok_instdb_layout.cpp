// The process's own records: tools outside read them too.
#include "core/varnok_instdb.h"
#include "records/layout_assert.h"

// All that the architecture decides: what stands behind the pointers moves with their width.
constexpr size_t pointer = sizeof(void *);

// clang-format off

#define RECORD varnok_hw_info
SIZE(673);
AT(phys_path, 0);          AT(oshandle, 256);         AT(apihandle, 260);
AT(open_cnt, 264);         AT(manufacturer, 268);     AT(model_name, 332);
AT(model_desc, 364);       AT(serial_num, 492);       AT(driver_version, 524);
AT(driver_date, 556);      AT(driver_name, 588);      AT(driver_loaded, 604);
AT(fw_version, 605);       AT(vendor_id, 637);        AT(device_id, 639);
AT(ssvendor_id, 641);      AT(ssdevice_id, 643);      AT(pci_domain, 645);
AT(pci_bus, 647);          AT(pci_dev, 649);          AT(pci_func, 651);
AT(pci_rev, 653);          AT(phy_port_number, 655);  AT(pcie_speed, 656);
AT(pcie_width, 660);       AT(chip_rev_id, 664);      AT(mfw_version, 668);
AT(native_driver, 672);
#undef RECORD

#define RECORD varnok_priv_db
SIZE(395 + 2 * pointer);
AT(drvr_inst, 0);                       AT(host_no, 4);
AT(iqn, 8);                             AT(mac, 264);
AT(ipv4_port, 270);                     AT(is_dhcp, 272);
AT(ipv4addr, 273);                      AT(subnet, 277);
AT(gateway, 281);                       AT(ipv6_port, 285);
AT(ipv6addr, 287);                      AT(ipv6_linklocal, 303);
AT(ipv6_router, 319);                   AT(vlan_enabled, 335);
AT(vlan_priority, 336);                 AT(vlan_id, 337);
AT(state, 339);                         AT(hw_info, 343);
AT(parent, 343 + pointer);              AT(port_sup_speed, 343 + 2 * pointer);
AT(port_speed, 347 + 2 * pointer);      AT(session_cnt, 351 + 2 * pointer);
AT(mtu, 355 + 2 * pointer);             AT(npiv_index, 359 + 2 * pointer);
AT(hba_name, 363 + 2 * pointer);
#undef RECORD

// clang-format on
