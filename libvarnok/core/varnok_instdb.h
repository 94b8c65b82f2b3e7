// varnok_instdb.h - the adapter instance database of the process: a port record and a
// physical-function record for every port that discovery kept.
//
// An instance number is a port's position in varnok_priv_database, a handle that number plus 1.
// Statuses are 0 for success, 1 for failure. Lookups walk the
// list and leave its cursor on the record they found or on the sentinel. Nothing here is guarded
// against two threads.
#pragma once

#include "records/peltl_ioctl.h"
#include "records/varnok_export.h"
#include "records/varnok_ioctl.h"
#include "support/varnok_dlist.h"

#include <cstdint>

#define VARNOK_RECORD_PACKED __attribute__((packed))

extern "C" {

// A physical function; every port has its own.
typedef struct varnok_hw_info {
    uint8_t phys_path[256]; // the legacy driver's device node; empty for a native driver
    uint32_t oshandle;      // descriptor of that device while the port is open; then -1
    uint32_t apihandle;     // the caller's handle; 0 while the port is not open
    uint32_t open_cnt;      // opens not yet closed
    uint8_t manufacturer[64];
    uint8_t model_name[32];
    uint8_t model_desc[128];
    uint8_t serial_num[32];
    uint8_t driver_version[32];
    uint8_t driver_date[32];
    uint8_t driver_name[16];
    uint8_t driver_loaded; // 1 from discovery
    uint8_t fw_version[32];
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t ssvendor_id;
    uint16_t ssdevice_id;
    uint16_t pci_domain;
    uint16_t pci_bus;
    uint16_t pci_dev;
    uint16_t pci_func;
    uint16_t pci_rev;
    uint8_t phy_port_number;
    uint32_t pcie_speed; // enum pci_bus_speed
    uint32_t pcie_width; // enum pcie_link_width
    uint32_t chip_rev_id;
    uint32_t mfw_version;  // four bytes, most significant first
    uint8_t native_driver; // 1: native management back-end, else legacy ioctl back-end
} VARNOK_RECORD_PACKED varnok_hw_info;

// A port.
typedef struct varnok_priv_db {
    uint32_t drvr_inst; // legacy: the driver's instance number, 16 bits
    uint32_t host_no;   // native back-ends address the port by it
    uint8_t iqn[256];
    uint8_t mac[6];
    uint16_t ipv4_port;
    uint8_t is_dhcp; // stays 0
    uint8_t ipv4addr[4];
    uint8_t subnet[4];
    uint8_t gateway[4];
    uint16_t ipv6_port;
    uint8_t ipv6addr[16];
    uint8_t ipv6_linklocal[16];
    uint8_t ipv6_router[16];
    uint8_t vlan_enabled;
    uint8_t vlan_priority;
    uint16_t vlan_id;
    uint32_t state;
    varnok_hw_info *hw_info;       // owned by varnok_phy_info; never null in the database
    struct varnok_priv_db *parent; // stays null
    uint32_t port_sup_speed;
    uint32_t port_speed; // Mbit/s
    uint32_t session_cnt;
    uint32_t mtu;
    uint32_t npiv_index; // stays 0
    uint8_t hba_name[32];
} VARNOK_RECORD_PACKED varnok_priv_db;

// Both null while they do not exist.
VARNOK_PRIVATE extern varnok_Dlist *varnok_priv_database;
VARNOK_PRIVATE extern varnok_Dlist *varnok_phy_info;

// Add a zero-filled record after the list's cursor, creating the list if need be. On failure the
// whole list is freed, except when it could not be created.
VARNOK_PRIVATE uint32_t varnok_alloc_pdb_mem(varnok_priv_db **pdb);
VARNOK_PRIVATE uint32_t varnok_alloc_hw_info_mem(varnok_hw_info **hw_info);

// Remove and free one record. The cursor goes to the record after it, or to the sentinel: the next
// record added then becomes the first. A record that is not in the list removes nothing and leaves
// the cursor on the sentinel.
VARNOK_PRIVATE void varnok_free_pdb_element(varnok_priv_db *pdb);
VARNOK_PRIVATE void varnok_free_hw_info_element(varnok_hw_info *hw_info);

VARNOK_PRIVATE void varnok_free_all_pdb_mem(void);
VARNOK_PRIVATE void varnok_free_all_hw_info_mem(void);

// The record's position; the number of records when it is not in the list. 1 when the list does not
// exist.
VARNOK_PRIVATE uint32_t varnok_get_instance_from_pdb(varnok_priv_db *pdb, uint32_t *instance);

// Null when there is none. Handle 0 never designates a port.
VARNOK_PRIVATE varnok_priv_db *varnok_get_pdb_from_user_instance(uint32_t instance);
VARNOK_PRIVATE varnok_priv_db *varnok_get_pdb_from_user_handle(uint32_t handle);
VARNOK_PRIVATE varnok_priv_db *varnok_get_vn_pdb_from_user_handle(uint32_t handle,
                                                                  uint32_t npiv_index);

// The first record at the PCI location, or null. Nothing in the library needs them.
VARNOK_PRIVATE varnok_hw_info *varnok_get_hw_info_inst(tepli_pci_info *pci);
VARNOK_PRIVATE varnok_hw_info *varnok_get_hw_info_inst_zt(dxo_pci_info *pci);
VARNOK_PRIVATE varnok_priv_db *varnok_get_parent_port(tepli_pci_info *pci);
VARNOK_PRIVATE varnok_priv_db *varnok_get_parent_port_zt(dxo_pci_info *pci);

// Writes the record to the debug log, only while tracing is on.
VARNOK_PRIVATE void varnok_print_priv_data(varnok_priv_db *pdb);
}

namespace varnok
{

// The oshandle of a port that was closed.
constexpr uint32_t no_descriptor = 0xFFFFFFFF;

// For trace lines. Discovery asks before the port has a physical-function record.
inline uint32_t handle_of(const varnok_priv_db *pdb)
{
    return pdb->hw_info == nullptr ? 0 : pdb->hw_info->apihandle;
}

varnok_hw_info *hw_info_at(const char *func, const varnok_drv_pci_info &location);
varnok_priv_db *port_at(const char *func, const varnok_drv_pci_info &location);

// Steps the list's cursor and gives the element, or null at the sentinel.
template <class Record>
Record *step(varnok_Dlist *list, bool forward = true)
{
    return static_cast<Record *>(_varnok_dlist_mark_move(list, forward ? 1 : 0));
}

} // namespace varnok
