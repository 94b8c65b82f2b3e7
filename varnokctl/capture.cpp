#include "varnokctl/capture.h"

#include "varnokctl/capture_faults.h"
#include "varnokctl/capture_luns.h"
#include "varnokctl/driver_codes.h"
#include "varnokctl/fields.h"
#include "varnokctl/json.h"
#include "varnokctl/text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <set>
#include <span>
#include <string_view>

namespace ctl
{
namespace
{

template <size_t Size>
std::string whole_ip(const uint8_t (&address)[Size])
{
    const std::string text = ip_address(std::span<const uint8_t, Size>(address));
    return !text.empty() ? text : Size == 4 ? "0.0.0.0" : "::";
}

void put_addresses(json &object, const std::string &prefix, const uint8_t (&ipv4)[4],
                   uint16_t ipv4_port, const uint8_t (&ipv6)[16], uint16_t ipv6_port)
{
    object[prefix + "ipv4addr"] = whole_ip(ipv4);
    object[prefix + "ipv4_port"] = ipv4_port;
    object[prefix + "ipv6addr"] = whole_ip(ipv6);
    object[prefix + "ipv6_port"] = ipv6_port;
}

std::string pci_id(uint16_t id) { return fmt::format("0x{:04x}", id); }

// The version of the management firmware is four decimal numbers, a byte each.
uint32_t version_number(std::span<const uint8_t> field)
{
    uint32_t version = 0;
    uint32_t part = 0;
    for (const char c : field_text(field, {})) {
        part = c == '.' ? 0 : part * 10 + static_cast<uint32_t>(c - '0');
        version = c == '.' ? version << 8 : (version & ~0xFFU) | (part & 0xFFU);
    }
    return version;
}

void put_session(json &object, const VARNOK_SESS_INFO &info)
{
    object["sess_num"] = +info.SessionNum;
    object["sess_unique"] = exact_number(info.SessionUnique, "{:#x}");
    object["state"] = +info.SessionState;
    object["init_iqn"] = text_or_bytes(info.InitiatorName);
    put_addresses(object, "init_", info.InitIPv4Addr, info.InitIPv4PortNum, info.InitIPv6Addr,
                  info.InitIPv6PortNum);
    object["tgt_iqn"] = text_or_bytes(info.TargetName);
    put_addresses(object, "tgt_", info.TgtIPv4Addr, info.TgtIPv4PortNum, info.TgtIPv6Addr,
                  info.TgtIPv6PortNum);
    object["initial_r2t"] = +info.InitialR2T;
    object["imm_data"] = +info.ImmediateData;
    object["dataseq_inorder"] = +info.DataSequenceInOrder;
    object["pdu_inorder"] = +info.DataPDUInOrder;
    object["max_r2t"] = +info.MaxOutstandingR2T;
    object["first_burst_len"] = +info.FirstBurstLength;
    object["erl"] = +info.ErrorRecoveryLevel;
    object["cid"] = +info.ConnID;
}

json target_object(const VARNOK_TGT_INFO &info)
{
    json object = {{"iqn", text_or_bytes(info.TargetName)},
                   {"mac", hex_bytes(info.MAC, ":")},
                   {"isid", hex_bytes(info.Isid)}};
    put_addresses(object, "", info.IPv4Addr, info.IPv4Port, info.IPv6Addr, info.IPv6Port);
    return object;
}

// A session that never logged in has no more than what is known of it.
void leave_out_unknown(json &object)
{
    static const std::set<json> unknown = {0, "0.0.0.0", "::", "00:00:00:00:00:00", "000000000000"};
    for (auto member = object.begin(); member != object.end();)
        member = unknown.contains(*member) && member.key() != "sess_num" ? object.erase(member)
                                                                         : std::next(member);
}

json session_array(const port_entry &port, const captured_luns &luns)
{
    json array = json::array();
    for (size_t at = 0; at < std::max(port.sessions.size(), port.targets.size()); ++at) {
        json object = json::object();
        if (at < port.sessions.size())
            put_session(object, port.sessions[at].info);
        object["luns"] = json::array();
        if (at < port.targets.size()) {
            object["target"] = target_object(port.targets[at].info);
            object["luns"] = luns.array_of(port.targets[at]);
        }
        if (at < port.sessions.size() && !is_negotiated(port.sessions[at].info)) {
            object["logged_in"] = false;
            leave_out_unknown(object);
            if (object.contains("target"))
                leave_out_unknown(object["target"]);
        }
        array.push_back(object);
    }
    return array;
}

void put_port(json &object, const VARNOK_PHY_PORT_INFO &info)
{
    object["hba_name"] = text_or_bytes(info.HbaName);
    object["model_name"] = text_or_bytes(info.ModelName);
    object["model_desc"] = text_or_bytes(info.ModelDesc);
    object["serial_num"] = text_or_bytes(info.SerialNum);
    object["driver_name"] = text_or_bytes(info.DriverName);
    object["driver_version"] = text_or_bytes(info.DriverVersion);
    object["driver_date"] = text_or_bytes(info.DriverDate);
    object["fw_version"] = text_or_bytes(info.FWVersion);
    if (info.MFWVersion[0] != 0)
        object["mfw_version"] = version_number(info.MFWVersion);
    object["mac"] = hex_bytes(info.MAC, ":");
    object["mtu"] = +info.MTU;
    object["port_state"] = driver_code(port_state_codes, info.PortState);
    object["port_speed"] = driver_code(port_speed_codes, info.PortSpeed);
    object["session_cnt"] = +info.SessCount;
    object["vendor_id"] = pci_id(info.VendorID);
    object["device_id"] = pci_id(info.DeviceID);
    object["subvendor_id"] = pci_id(info.SubVendorID);
    object["subsystem_id"] = pci_id(info.SubSystemID);
    object["domain_num"] = +info.PciDomainNum;
    object["bus_num"] = +info.PciBusNum;
    object["device_num"] = +info.PciDeviceNum;
    object["function_num"] = +info.PciFunctionNum;
    object["revision"] = +info.PciRevision;
    object["port_num"] = +info.PhyPortNum;
    object["pcie_speed"] = driver_code(pcie_speed_codes, info.PCIESpeed);
    object["pcie_width"] = driver_code(pcie_width_codes, info.PCIEWidth);
    object["chip_rev_id"] = +info.ChipRevId;
}

// The native and the legacy driver of the older family, then those of the newer generation: the
// order in which the library numbers their ports.
constexpr std::array<std::string_view, 4> drivers = {"rovani", "tepli", "pelt", "dxo"};
constexpr size_t older = 0, newer = 2, legacy = 1;

// Only adapters of the newer generation tell their management firmware's version.
size_t family_of(const VARNOK_PHY_PORT_INFO &info)
{
    return info.MFWVersion[0] != 0 ? newer : older;
}

// On a host, a family has one driver: the native one, unless a port names the other. A port that
// could not be read is taken to be of the same family as the port before it. If there is none, it
// is taken to be of the first readable port's family.
class driver_finder
{
  public:
    explicit driver_finder(const inventory &host)
    {
        for (const port_entry &port : host.ports) {
            if (!port.info)
                continue;
            const size_t family = family_of(*port.info);
            if (!known_)
                family_ = family;
            known_ = true;
            if (field_text(port.info->DriverName, {}) == drivers[family + legacy])
                driver_[family] = family + legacy;
        }
    }

    size_t next(const port_entry &port)
    {
        if (port.info)
            family_ = family_of(*port.info);
        return driver_[family_];
    }

  private:
    bool known_ = false;
    size_t family_ = newer;
    std::array<size_t, newer + 1> driver_ = {older, older, newer};
};

} // namespace

std::string capture_document(const inventory &host, bool ascii)
{
    json document = new_document("capture");
    json ports = json::array();
    json faults = json::array();
    std::array<uint32_t, drivers.size()> instances{};
    driver_finder finder(host);
    const captured_luns luns(host);
    for (const port_entry &port : host.ports) {
        const size_t driver = finder.next(port);
        json object = {{"driver", drivers[driver]}};
        add_faults(faults, port, host.failures, drivers[driver], instances[driver]++);
        if (port.info)
            put_port(object, *port.info);
        if (port.portal)
            put_addresses(object, "", port.portal->IPv4Addr, port.portal->IPv4PortNum,
                          port.portal->IPv6Addr, port.portal->IPv6PortNum);
        object["sessions"] = session_array(port, luns);
        ports.push_back(object);
    }
    // A driver that answers but has no ports makes a host without adapters.
    if (ports.empty())
        document["drivers"] = {drivers.front()};
    if (!luns.devices().empty())
        document["devices"] = luns.devices();
    document["ports"] = ports;
    if (!faults.empty())
        document["faults"] = faults;
    return finished_text(document, host.failures, ascii);
}

} // namespace ctl
