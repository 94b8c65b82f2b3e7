#include "varnokctl/fields.h"

#include <algorithm>

#include <fmt/format.h>

#include "varnokctl/lun_address.h"
#include "varnokctl/words.h"

namespace ctl
{
namespace
{

// Fields of packed records have no address to give away: they travel by value.
cell number(uint64_t value) { return {fmt::to_string(value), value}; }
// Beyond 2^53 a JSON number is not safe with every reader.
cell big(uint64_t value) { return {fmt::to_string(value), fmt::to_string(value)}; }
// Unknown when it is 0.
cell capacity(uint64_t bytes)
{
    return {bytes == 0 ? "" : fmt::to_string(bytes), big(bytes).value};
}

cell hex(unsigned value) { return {fmt::format("0x{:x}", value), value}; }
cell flag(unsigned value) { return {value == 0 ? "no" : "yes", value != 0}; }
cell same(const std::string &text) { return {text, text}; }
cell or_null(const std::string &text) { return {text, text.empty() ? json() : json(text)}; }

cell text(std::span<const uint8_t> field, const style &style)
{
    return same(field_text(field, style));
}

cell octets(std::span<const uint8_t> bytes, std::string_view separator = "")
{
    return same(hex_bytes(bytes, separator));
}

cell id_pair(unsigned vendor, unsigned device)
{
    return same(fmt::format("{:04x}:{:04x}", vendor, device));
}

cell pci_address(const VARNOK_PHY_PORT_INFO &info)
{
    return same(fmt::format("{:04x}:{:02x}:{:02x}.{}", +info.PciDomainNum, +info.PciBusNum,
                            +info.PciDeviceNum, +info.PciFunctionNum));
}

cell link(const VARNOK_PHY_PORT_INFO &info)
{
    const std::string words = pcie_link(info.PCIESpeed, info.PCIEWidth);
    return {words,
            {{"speed_code", +info.PCIESpeed},
             {"width_code", +info.PCIEWidth},
             {"text", or_null(words).value}}};
}

cell one_endpoint(const std::string &address, uint16_t port)
{
    if (address.empty())
        return {};
    return {endpoint(address, port), {{"ip", address}, {"tcp_port", port}}};
}

cell either_endpoint(std::span<const uint8_t, 4> ipv4, uint16_t ipv4_port,
                     std::span<const uint8_t, 16> ipv6, uint16_t ipv6_port)
{
    const std::string address = ip_address(ipv4);
    return address.empty() ? one_endpoint(ip_address(ipv6), ipv6_port)
                           : one_endpoint(address, ipv4_port);
}

cell initiator_endpoint(const VARNOK_SESS_INFO &info)
{
    return either_endpoint(info.InitIPv4Addr, info.InitIPv4PortNum, info.InitIPv6Addr,
                           info.InitIPv6PortNum);
}

#define FIELD(expression) [](const item &i, [[maybe_unused]] const style &s) { return expression; }

constexpr field port_fields[] = {
    {"Port", "port", look::number, in::table, FIELD(number(i.port))},
    {"Name", "name", look::text, in::table, FIELD(text(i.info->HbaName, s))},
    {"Model", "model", look::long_text, in::table, FIELD(text(i.info->ModelName, s))},
    {"Description", "description", look::text, in::details, FIELD(text(i.info->ModelDesc, s))},
    {"Serial number", "serial_number", look::text, in::details, FIELD(text(i.info->SerialNum, s))},
    {"MAC", "mac", look::text, in::table, FIELD(octets(i.info->MAC, ":"))},
    {"Speed", "speed", look::number, in::table,
     FIELD(coded(i.info->PortSpeed, port_speed(i.info->PortSpeed)))},
    {"State", "state", look::text, in::table,
     FIELD(coded(i.info->PortState, port_state(i.info->PortState)))},
    {"Sessions", "session_count", look::number, in::table, FIELD(number(i.info->SessCount))},
    {"MTU", "mtu", look::number, in::details, FIELD(number(i.info->MTU))},
    {"Driver", "driver", look::text, in::details, FIELD(text(i.info->DriverName, s))},
    {"Driver version", "driver_version", look::text, in::details,
     FIELD(text(i.info->DriverVersion, s))},
    {"Driver date", "driver_date", look::text, in::details, FIELD(text(i.info->DriverDate, s))},
    {"Firmware", "firmware", look::text, in::details, FIELD(text(i.info->FWVersion, s))},
    {"Management firmware", "management_firmware", look::text, in::details,
     FIELD(text(i.info->MFWVersion, s))},
    {"PCI address", "pci_address", look::text, in::details, FIELD(pci_address(*i.info))},
    {"PCI device", "pci_device", look::text, in::details,
     FIELD(id_pair(i.info->VendorID, i.info->DeviceID))},
    {"PCI subsystem", "pci_subsystem", look::text, in::details,
     FIELD(id_pair(i.info->SubVendorID, i.info->SubSystemID))},
    {"PCI revision", "pci_revision", look::number, in::details, FIELD(number(i.info->PciRevision))},
    {"PCI link", "pci_link", look::text, in::details, FIELD(link(*i.info))},
    {"Chip revision", "chip_revision", look::number, in::details, FIELD(hex(i.info->ChipRevId))},
    {"Physical port", "physical_port", look::number, in::details,
     FIELD(number(i.info->PhyPortNum))},
};

constexpr field portal_fields[] = {
    {"Port", "port", look::number, in::table, FIELD(number(i.port))},
    {"IPv4 portal", "ipv4", look::text, in::table,
     FIELD(one_endpoint(ip_address(i.portal->IPv4Addr), i.portal->IPv4PortNum))},
    {"IPv6 portal", "ipv6", look::text, in::table,
     FIELD(one_endpoint(ip_address(i.portal->IPv6Addr), i.portal->IPv6PortNum))},
};

constexpr field session_fields[] = {
    {"Port", "port", look::number, in::table, FIELD(number(i.port))},
    {"Target", "target", look::number, in::table, FIELD(number(i.session->target))},
    {"State", "state", look::number, in::table, FIELD(number(i.session->info.SessionState))},
    {"Address", "address", look::text, in::table, FIELD(target_endpoint(i.session->info))},
    {"Target name", "target_name", look::long_text, in::table,
     FIELD(text(i.session->info.TargetName, s))},
    {"Session", "session", look::number, in::details, FIELD(number(i.session->info.SessionNum))},
    {"Initiator address", "initiator_address", look::text, in::details,
     FIELD(initiator_endpoint(i.session->info))},
    {"Initiator name", "initiator_name", look::text, in::details,
     FIELD(text(i.session->info.InitiatorName, s))},
    {"Identifier", "identifier", look::number, in::details,
     FIELD(big(i.session->info.SessionUnique))},
    {"Connection", "connection", look::number, in::details, FIELD(big(i.session->info.ConnID))},
    {"InitialR2T", "initial_r2t", look::text, in::details, FIELD(flag(i.session->info.InitialR2T))},
    {"ImmediateData", "immediate_data", look::text, in::details,
     FIELD(flag(i.session->info.ImmediateData))},
    {"DataSequenceInOrder", "data_sequence_in_order", look::text, in::details,
     FIELD(flag(i.session->info.DataSequenceInOrder))},
    {"DataPDUInOrder", "data_pdu_in_order", look::text, in::details,
     FIELD(flag(i.session->info.DataPDUInOrder))},
    {"MaxOutstandingR2T", "max_outstanding_r2t", look::number, in::details,
     FIELD(number(i.session->info.MaxOutstandingR2T))},
    {"FirstBurstLength", "first_burst_length", look::number, in::details,
     FIELD(number(i.session->info.FirstBurstLength))},
    {"ErrorRecoveryLevel", "error_recovery_level", look::number, in::details,
     FIELD(number(i.session->info.ErrorRecoveryLevel))},
};

constexpr field target_fields[] = {
    {"Port", "port", look::number, in::table, FIELD(number(i.port))},
    {"Target", "target", look::number, in::table, FIELD(number(i.target->ScsiTgtNum))},
    {"LUNs", "lun_count", look::number, in::table, FIELD(number(i.target->LunCount))},
    {"Address", "address", look::text, in::table, FIELD(target_endpoint(*i.target))},
    {"Name", "name", look::long_text, in::table, FIELD(text(i.target->TargetName, s))},
    {"MAC", "mac", look::text, in::details, FIELD(octets(i.target->MAC, ":"))},
    {"ISID", "isid", look::text, in::details, FIELD(octets(i.target->Isid))},
};

constexpr field lun_fields[] = {
    {"Port", "port", look::number, in::table, FIELD(number(i.port))},
    {"Target", "target", look::number, in::table, FIELD(number(i.target->ScsiTgtNum))},
    {"LUN", "lun", look::number, in::table,
     FIELD(lun_cell(i.lun->ScsiLunNum, i.lun->ScsiLunNumExt))},
    {"Type", "type", look::long_text, in::table,
     FIELD(coded(i.lun->DeviceType, device_type(i.lun->DeviceType)))},
    {"Size", nullptr, look::number, in::table, FIELD(same(size_text(i.lun->Capacity)))},
    {"Bytes", "bytes", look::number, in::bytes, FIELD(capacity(i.lun->Capacity))},
    {"Vendor", "vendor", look::long_text, in::table, FIELD(text(i.lun->VendorName, s))},
    {"Product", "product", look::long_text, in::table, FIELD(text(i.lun->ProductName, s))},
    {"Rev", "revision", look::text, in::table, FIELD(text(i.lun->ProductRevision, s))},
    {"LUN bytes", nullptr, look::text, in::details,
     FIELD(same(lun_bytes(i.lun->ScsiLunNum, i.lun->ScsiLunNumExt)))},
};
#undef FIELD

std::vector<item> ports_of(const host &host)
{
    std::vector<item> items;
    for (const port &port : host.ports)
        if (port.info)
            items.push_back({.port = port.instance, .info = &*port.info});
    return items;
}

std::vector<item> portals_of(const host &host)
{
    std::vector<item> items;
    for (const port &port : host.ports)
        if (port.portal)
            items.push_back({.port = port.instance, .portal = &*port.portal});
    return items;
}

std::vector<item> sessions_of(const host &host)
{
    std::vector<item> items;
    for (const port &port : host.ports)
        for (const session &session : port.sessions)
            items.push_back({.port = port.instance, .session = &session});
    return items;
}

std::vector<item> targets_of(const host &host)
{
    std::vector<item> items;
    for (const port &port : host.ports)
        for (const target &target : port.targets)
            items.push_back({.port = port.instance, .target = &target.info});
    return items;
}

std::vector<item> luns_of(const host &host)
{
    std::vector<item> items;
    for (const port &port : host.ports)
        for (const target &target : port.targets)
            for (const VARNOK_LUN_INFO &lun : target.luns)
                items.push_back({.port = port.instance, .target = &target.info, .lun = &lun});
    return items;
}

} // namespace

const kind port_kind = {"ports", "ports", port_fields, ports_of};
const kind portal_kind = {"portals", "portals", portal_fields, portals_of};
const kind session_kind = {"sessions", "sessions", session_fields, sessions_of};
const kind target_kind = {"targets", "targets", target_fields, targets_of};
const kind lun_kind = {"LUNs", "luns", lun_fields, luns_of};

const session *session_of(const port &port, uint32_t target)
{
    const auto found = std::ranges::lower_bound(port.sessions, target, {}, &session::target);
    return found != port.sessions.end() && found->target == target ? &*found : nullptr;
}

cell target_endpoint(const VARNOK_SESS_INFO &session)
{
    return either_endpoint(session.TgtIPv4Addr, session.TgtIPv4PortNum, session.TgtIPv6Addr,
                           session.TgtIPv6PortNum);
}

cell target_endpoint(const VARNOK_TGT_INFO &target)
{
    return either_endpoint(target.IPv4Addr, target.IPv4Port, target.IPv6Addr, target.IPv6Port);
}

cell lun_cell(uint32_t levels_1_and_2, uint32_t levels_3_and_4)
{
    constexpr uint64_t safe = 1ULL << 53;
    const lun_form form = lun_form_of(levels_1_and_2, levels_3_and_4);
    const std::string words = lun_number(levels_1_and_2, levels_3_and_4);
    return {words,
            {{"text", words},
             {"method", form.method},
             {"number", form.number && *form.number <= safe ? json(*form.number) : json()},
             {"raw", lun_bytes(levels_1_and_2, levels_3_and_4)}}};
}

cell coded(uint64_t code, const std::string &word)
{
    return {word, {{"code", code}, {"text", or_null(word).value}}};
}

} // namespace ctl
