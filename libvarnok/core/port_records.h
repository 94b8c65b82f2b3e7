// port_records.h - from the drivers' records to the instance database's: the same for all four
// back-ends.
#pragma once

#include "core/varnok_instdb.h"

namespace varnok
{

// Stores what may change while the library is loaded: addresses, VLAN, MTU, link state and speed,
// sessions.
void refresh_port(varnok_priv_db *pdb, const varnok_drv_port_info &info);

// Stores what belongs to the port record.
void fill_port(varnok_priv_db *pdb, const varnok_drv_port_info &info);

// Stores where the function lies and what it is. After this the device rules can judge it.
void fill_pci_location(varnok_hw_info *hw, const varnok_drv_pci_info &pci);

// Stores the PCIe link and the adapter's identity.
void fill_adapter(varnok_hw_info *hw, const varnok_drv_pci_info &pci,
                  const varnok_drv_port_info &info);

// A back-end's rule for the physical port number. The PCI location is filled already.
using phy_port_rule = uint8_t (*)(varnok_hw_info *hw, const varnok_drv_pci_info &pci);

uint8_t phy_port_from_port_num(varnok_hw_info *hw, const varnok_drv_pci_info &pci);
uint8_t phy_port_from_function(varnok_hw_info *hw, const varnok_drv_pci_info &pci);

// Releases both records of a port.
void drop_port(varnok_priv_db *pdb, varnok_hw_info *hw);

// Forgets all ports, those of earlier passes too.
void drop_all_ports();

} // namespace varnok
