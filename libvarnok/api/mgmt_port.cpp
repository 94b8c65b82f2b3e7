// The physical port and its portal.
#include "api/caller_array.h"
#include "api/exported_call.h"
#include "core/port_records.h"
#include "core/varnok_device_rules.h"
#include "support/varnok_bytes.h"

using namespace varnok;

namespace
{

struct code {
    uint32_t driver;
    uint32_t reported;
};

constexpr code pcie_speeds[] = {
    {PCIE_SPEED_2_5GT, VARNOK_PCIE_SPEED_2_5GT},
    {PCIE_SPEED_5_0GT, VARNOK_PCIE_SPEED_5_0GT},
    {PCIE_SPEED_8_0GT, VARNOK_PCIE_SPEED_8_0GT},
};

constexpr code pcie_widths[] = {
    {PCIE_LNK_X1, VARNOK_PCIE_WIDTH_X1},   {PCIE_LNK_X2, VARNOK_PCIE_WIDTH_X2},
    {PCIE_LNK_X4, VARNOK_PCIE_WIDTH_X4},   {PCIE_LNK_X8, VARNOK_PCIE_WIDTH_X8},
    {PCIE_LNK_X16, VARNOK_PCIE_WIDTH_X16}, {PCIE_LNK_X32, VARNOK_PCIE_WIDTH_X32},
};

constexpr code port_states[] = {{0, VARNOK_PORT_STATE_0}, {1, VARNOK_PORT_STATE_1}};

constexpr code port_speeds[] = {
    {10000, VARNOK_PORT_SPEED_10G}, {20000, VARNOK_PORT_SPEED_20G}, {25000, VARNOK_PORT_SPEED_25G},
    {40000, VARNOK_PORT_SPEED_40G}, {50000, VARNOK_PORT_SPEED_50G},
};

template <size_t Size>
uint32_t translate(const code (&table)[Size], uint32_t driver, uint32_t otherwise = 0)
{
    for (const code &row : table)
        if (row.driver == driver)
            return row.reported;
    return otherwise;
}

// A byte as "%02u" prints it.
char *put_byte(char *at, uint32_t value)
{
    if (value >= 100)
        *at++ = static_cast<char>('0' + value / 100);
    *at++ = static_cast<char>('0' + value / 10 % 10);
    *at++ = static_cast<char>('0' + value % 10);
    return at;
}

// Four bytes, most significant first, with dots between them; the field's rest stays as it is.
void put_version(uint8_t (&field)[32], uint32_t version)
{
    char *at = reinterpret_cast<char *>(field);
    for (uint32_t shift = 32; shift > 0; shift -= 8) {
        at = put_byte(at, version >> (shift - 8) & 0xFF);
        *at++ = shift > 8 ? '.' : '\0';
    }
}

void fill_extended(VARNOK_PHY_PORT_INFO &port, const varnok_priv_db *pdb)
{
    const varnok_hw_info *const hw = pdb->hw_info;
    port.PCIESpeed = translate(pcie_speeds, hw->pcie_speed);
    port.PCIEWidth = translate(pcie_widths, hw->pcie_width);
    port.PortState = translate(port_states, pdb->state, VARNOK_PORT_STATE_OTHER);
    port.PortSpeed = translate(port_speeds, pdb->port_speed);
    port.ChipRevId = hw->chip_rev_id;
    port.MediaType = VARNOK_MEDIA_TYPE;
    copy_field(port.HbaName, pdb->hba_name);
    if (is_newer_generation(hw->device_id))
        put_version(port.MFWVersion, hw->mfw_version);
}

void fill_common(VARNOK_PHY_PORT_INFO &port, const varnok_priv_db *pdb)
{
    const varnok_hw_info *const hw = pdb->hw_info;
    copy_field(port.ModelName, hw->model_name);
    copy_field(port.ModelDesc, hw->model_desc);
    copy_field(port.DriverVersion, hw->driver_version);
    copy_field(port.DriverDate, hw->driver_date);
    copy_field(port.DriverName, hw->driver_name);
    port.DriverLoaded = hw->driver_loaded;
    copy_field(port.SerialNum, hw->serial_num);
    copy_field(port.FWVersion, hw->fw_version);
    copy_field(port.MAC, pdb->mac);
    port.MTU = pdb->mtu;
    port.VendorID = hw->vendor_id;
    port.DeviceID = hw->device_id;
    port.SubVendorID = hw->ssvendor_id;
    port.SubSystemID = hw->ssdevice_id;
    port.PciDomainNum = hw->pci_domain;
    port.PciBusNum = hw->pci_bus;
    port.PciDeviceNum = hw->pci_dev;
    port.PciFunctionNum = hw->pci_func;
    port.PciRevision = hw->pci_rev;
    port.PhyPortNum = hw->phy_port_number;
    port.SessCount = pdb->session_cnt;
}

} // namespace

uint32_t VARNOK_GetPhyPortInfo(uint32_t Handle, VARNOK_PHY_PORT_INFO *pPhyPort)
{
    const exported_call call(__func__, Handle, "): entered.");
    if (pPhyPort == nullptr)
        return call.fails(VARNOK_STATUS_INVALID_PARAMETER, "): invalid parameter.");
    varnok_priv_db *const pdb = call.port();
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    const backend &backend = backend_of(pdb);
    if (backend.port_info_trace != nullptr)
        call.trace(backend.port_info_trace);
    varnok_drv_port_info info = {};
    uint32_t stat = 0;
    if (backend.get_port_info(pdb, &info, &stat) != 0 || stat != 0)
        return call.request_fails("): get port info failed. stat=", stat);
    refresh_port(pdb, info);
    if (size_at<VARNOK_PHY_PORT_INFO>(pPhyPort) > offsetof(VARNOK_PHY_PORT_INFO, PCIESpeed))
        fill_extended(*pPhyPort, pdb);
    fill_common(*pPhyPort, pdb);
    return call.returns(VARNOK_STATUS_SUCCESS);
}

uint32_t VARNOK_GetIscsiPortal(uint32_t Handle, uint32_t *pPortalCount,
                               VARNOK_ISCSI_PORTAL **pPortal)
{
    const exported_call call(__func__, Handle, "): entered.");
    const varnok_priv_db *const pdb = call.port();
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    constexpr uint32_t portals = 1;
    constexpr list_texts texts = {nullptr, "): API portal count > apps portal count."};
    const list_verdict list = call.check_list(portals, pPortalCount, pPortal, texts);
    if (!list.fits)
        return list.status;
    VARNOK_ISCSI_PORTAL &portal = **pPortal;
    portal.IsIPv4 = static_cast<uint8_t>(varnok_is_non_zero(pdb->ipv4addr, sizeof pdb->ipv4addr));
    copy_field(portal.IPv4Addr, pdb->ipv4addr);
    portal.IPv4PortNum = pdb->ipv4_port;
    copy_field(portal.IPv6Addr, pdb->ipv6addr);
    portal.IPv6PortNum = pdb->ipv6_port;
    return call.returns(VARNOK_STATUS_SUCCESS);
}
