// The process's own records: tools outside read them too.
#include "core/varnok_instdb.h"
#include "records/layout_assert.h"

SIZE(varnok_hw_info, 673);
AT(varnok_hw_info, phys_path, 0);
AT(varnok_hw_info, oshandle, 256);
AT(varnok_hw_info, apihandle, 260);
AT(varnok_hw_info, open_cnt, 264);
AT(varnok_hw_info, manufacturer, 268);
AT(varnok_hw_info, model_name, 332);
AT(varnok_hw_info, model_desc, 364);
AT(varnok_hw_info, serial_num, 492);
AT(varnok_hw_info, driver_version, 524);
AT(varnok_hw_info, driver_date, 556);
AT(varnok_hw_info, driver_name, 588);
AT(varnok_hw_info, driver_loaded, 604);
AT(varnok_hw_info, fw_version, 605);
AT(varnok_hw_info, vendor_id, 637);
AT(varnok_hw_info, device_id, 639);
AT(varnok_hw_info, ssvendor_id, 641);
AT(varnok_hw_info, ssdevice_id, 643);
AT(varnok_hw_info, pci_domain, 645);
AT(varnok_hw_info, pci_bus, 647);
AT(varnok_hw_info, pci_dev, 649);
AT(varnok_hw_info, pci_func, 651);
AT(varnok_hw_info, pci_rev, 653);
AT(varnok_hw_info, phy_port_number, 655);
AT(varnok_hw_info, pcie_speed, 656);
AT(varnok_hw_info, pcie_width, 660);
AT(varnok_hw_info, chip_rev_id, 664);
AT(varnok_hw_info, mfw_version, 668);
AT(varnok_hw_info, native_driver, 672);

// All that the architecture decides: what stands behind the pointers moves with their width.
constexpr size_t pointer = sizeof(void *);

SIZE(varnok_priv_db, 395 + 2 * pointer);
AT(varnok_priv_db, drvr_inst, 0);
AT(varnok_priv_db, host_no, 4);
AT(varnok_priv_db, iqn, 8);
AT(varnok_priv_db, mac, 264);
AT(varnok_priv_db, ipv4_port, 270);
AT(varnok_priv_db, is_dhcp, 272);
AT(varnok_priv_db, ipv4addr, 273);
AT(varnok_priv_db, subnet, 277);
AT(varnok_priv_db, gateway, 281);
AT(varnok_priv_db, ipv6_port, 285);
AT(varnok_priv_db, ipv6addr, 287);
AT(varnok_priv_db, ipv6_linklocal, 303);
AT(varnok_priv_db, ipv6_router, 319);
AT(varnok_priv_db, vlan_enabled, 335);
AT(varnok_priv_db, vlan_priority, 336);
AT(varnok_priv_db, vlan_id, 337);
AT(varnok_priv_db, state, 339);
AT(varnok_priv_db, hw_info, 343);
AT(varnok_priv_db, parent, 343 + pointer);
AT(varnok_priv_db, port_sup_speed, 343 + 2 * pointer);
AT(varnok_priv_db, port_speed, 347 + 2 * pointer);
AT(varnok_priv_db, session_cnt, 351 + 2 * pointer);
AT(varnok_priv_db, mtu, 355 + 2 * pointer);
AT(varnok_priv_db, npiv_index, 359 + 2 * pointer);
AT(varnok_priv_db, hba_name, 363 + 2 * pointer);
