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
field_value number(uint64_t value) { return {fmt::to_string(value), value}; }
// Beyond 2^53 a JSON number is not safe with every reader.
field_value big(uint64_t value) { return {fmt::to_string(value), fmt::to_string(value)}; }
// Unknown when it is 0.
field_value capacity(uint64_t bytes)
{
    return {bytes == 0 ? "" : fmt::to_string(bytes), big(bytes).value};
}

field_value hex(unsigned value) { return {fmt::format("0x{:x}", value), value}; }
field_value flag(unsigned value) { return {value == 0 ? "no" : "yes", value != 0}; }
field_value same(const std::string &text) { return {text, text}; }
field_value or_null(const std::string &text) { return {text, text.empty() ? json() : json(text)}; }

field_value text(std::span<const uint8_t> field, const output_style &style)
{
    return same(field_text(field, style));
}

field_value octets(std::span<const uint8_t> bytes, std::string_view separator = "")
{
    return same(hex_bytes(bytes, separator));
}

field_value id_pair(unsigned vendor, unsigned device)
{
    return same(fmt::format("{:04x}:{:04x}", vendor, device));
}

field_value pci_address(const VARNOK_PHY_PORT_INFO &info)
{
    return same(fmt::format("{:04x}:{:02x}:{:02x}.{}", +info.PciDomainNum, +info.PciBusNum,
                            +info.PciDeviceNum, +info.PciFunctionNum));
}

field_value link(const VARNOK_PHY_PORT_INFO &info)
{
    const std::string words = pcie_link(info.PCIESpeed, info.PCIEWidth);
    return {words,
            {{"speed_code", +info.PCIESpeed},
             {"width_code", +info.PCIEWidth},
             {"text", or_null(words).value}}};
}

field_value one_endpoint(const std::string &address, uint16_t port)
{
    if (address.empty())
        return {};
    return {endpoint(address, port), {{"ip", address}, {"tcp_port", port}}};
}

field_value either_endpoint(std::span<const uint8_t, 4> ipv4, uint16_t ipv4_port,
                            std::span<const uint8_t, 16> ipv6, uint16_t ipv6_port)
{
    const std::string address = ip_address(ipv4);
    return address.empty() ? one_endpoint(ip_address(ipv6), ipv6_port)
                           : one_endpoint(address, ipv4_port);
}

field_value initiator_endpoint(const VARNOK_SESS_INFO &info)
{
    return either_endpoint(info.InitIPv4Addr, info.InitIPv4PortNum, info.InitIPv6Addr,
                           info.InitIPv6PortNum);
}

#define FIELD(expression)                                                                          \
    [](const listed_record &i, [[maybe_unused]] const output_style &s) { return expression; }

constexpr record_field port_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(i.port))},
    {"Name", "name", look::text, view::table, FIELD(text(i.info->HbaName, s))},
    {"Model", "model", look::long_text, view::table, FIELD(text(i.info->ModelName, s))},
    {"Description", "description", look::text, view::details, FIELD(text(i.info->ModelDesc, s))},
    {"Serial number", "serial_number", look::text, view::details,
     FIELD(text(i.info->SerialNum, s))},
    {"MAC", "mac", look::text, view::table, FIELD(octets(i.info->MAC, ":"))},
    {"Speed", "speed", look::number, view::table,
     FIELD(coded(i.info->PortSpeed, port_speed(i.info->PortSpeed)))},
    {"State", "state", look::text, view::table,
     FIELD(coded(i.info->PortState, port_state(i.info->PortState)))},
    {"Sessions", "session_count", look::number, view::table, FIELD(number(i.info->SessCount))},
    {"MTU", "mtu", look::number, view::details, FIELD(number(i.info->MTU))},
    {"Driver", "driver", look::text, view::details, FIELD(text(i.info->DriverName, s))},
    {"Driver version", "driver_version", look::text, view::details,
     FIELD(text(i.info->DriverVersion, s))},
    {"Driver date", "driver_date", look::text, view::details, FIELD(text(i.info->DriverDate, s))},
    {"Firmware", "firmware", look::text, view::details, FIELD(text(i.info->FWVersion, s))},
    {"Management firmware", "management_firmware", look::text, view::details,
     FIELD(text(i.info->MFWVersion, s))},
    {"PCI address", "pci_address", look::text, view::details, FIELD(pci_address(*i.info))},
    {"PCI device", "pci_device", look::text, view::details,
     FIELD(id_pair(i.info->VendorID, i.info->DeviceID))},
    {"PCI subsystem", "pci_subsystem", look::text, view::details,
     FIELD(id_pair(i.info->SubVendorID, i.info->SubSystemID))},
    {"PCI revision", "pci_revision", look::number, view::details,
     FIELD(number(i.info->PciRevision))},
    {"PCI link", "pci_link", look::text, view::details, FIELD(link(*i.info))},
    {"Chip revision", "chip_revision", look::number, view::details, FIELD(hex(i.info->ChipRevId))},
    {"Physical port", "physical_port", look::number, view::details,
     FIELD(number(i.info->PhyPortNum))},
};

constexpr record_field portal_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(i.port))},
    {"IPv4 portal", "ipv4", look::text, view::table,
     FIELD(one_endpoint(ip_address(i.portal->IPv4Addr), i.portal->IPv4PortNum))},
    {"IPv6 portal", "ipv6", look::text, view::table,
     FIELD(one_endpoint(ip_address(i.portal->IPv6Addr), i.portal->IPv6PortNum))},
};

constexpr record_field session_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(i.port))},
    {"Target", "target", look::number, view::table, FIELD(number(i.session->target))},
    {"State", "state", look::number, view::table, FIELD(number(i.session->info.SessionState))},
    {"Address", "address", look::text, view::table, FIELD(target_endpoint(i.session->info))},
    {"Target name", "target_name", look::long_text, view::table,
     FIELD(text(i.session->info.TargetName, s))},
    {"Session", "session", look::number, view::details, FIELD(number(i.session->info.SessionNum))},
    {"Initiator address", "initiator_address", look::text, view::details,
     FIELD(initiator_endpoint(i.session->info))},
    {"Initiator name", "initiator_name", look::text, view::details,
     FIELD(text(i.session->info.InitiatorName, s))},
    {"Identifier", "identifier", look::number, view::details,
     FIELD(big(i.session->info.SessionUnique))},
    {"Connection", "connection", look::number, view::details, FIELD(big(i.session->info.ConnID))},
    {"InitialR2T", "initial_r2t", look::text, view::details,
     FIELD(flag(i.session->info.InitialR2T))},
    {"ImmediateData", "immediate_data", look::text, view::details,
     FIELD(flag(i.session->info.ImmediateData))},
    {"DataSequenceInOrder", "data_sequence_in_order", look::text, view::details,
     FIELD(flag(i.session->info.DataSequenceInOrder))},
    {"DataPDUInOrder", "data_pdu_in_order", look::text, view::details,
     FIELD(flag(i.session->info.DataPDUInOrder))},
    {"MaxOutstandingR2T", "max_outstanding_r2t", look::number, view::details,
     FIELD(number(i.session->info.MaxOutstandingR2T))},
    {"FirstBurstLength", "first_burst_length", look::number, view::details,
     FIELD(number(i.session->info.FirstBurstLength))},
    {"ErrorRecoveryLevel", "error_recovery_level", look::number, view::details,
     FIELD(number(i.session->info.ErrorRecoveryLevel))},
};

constexpr record_field target_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(i.port))},
    {"Target", "target", look::number, view::table, FIELD(number(i.target->ScsiTgtNum))},
    {"LUNs", "lun_count", look::number, view::table, FIELD(number(i.target->LunCount))},
    {"Address", "address", look::text, view::table, FIELD(target_endpoint(*i.target))},
    {"Name", "name", look::long_text, view::table, FIELD(text(i.target->TargetName, s))},
    {"MAC", "mac", look::text, view::details, FIELD(octets(i.target->MAC, ":"))},
    {"ISID", "isid", look::text, view::details, FIELD(octets(i.target->Isid))},
};

constexpr record_field lun_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(i.port))},
    {"Target", "target", look::number, view::table, FIELD(number(i.target->ScsiTgtNum))},
    {"LUN", "lun", look::number, view::table,
     FIELD(lun_cell(i.lun->ScsiLunNum, i.lun->ScsiLunNumExt))},
    {"Type", "type", look::long_text, view::table,
     FIELD(coded(i.lun->DeviceType, device_type(i.lun->DeviceType)))},
    {"Size", nullptr, look::number, view::table, FIELD(same(size_text(i.lun->Capacity)))},
    {"Bytes", "bytes", look::number, view::bytes, FIELD(capacity(i.lun->Capacity))},
    {"Vendor", "vendor", look::long_text, view::table, FIELD(text(i.lun->VendorName, s))},
    {"Product", "product", look::long_text, view::table, FIELD(text(i.lun->ProductName, s))},
    {"Rev", "revision", look::text, view::table, FIELD(text(i.lun->ProductRevision, s))},
    {"LUN bytes", nullptr, look::text, view::details,
     FIELD(same(lun_bytes(i.lun->ScsiLunNum, i.lun->ScsiLunNumExt)))},
};
#undef FIELD

std::vector<listed_record> ports_of(const inventory &host)
{
    std::vector<listed_record> items;
    for (const port_entry &port : host.ports)
        if (port.info)
            items.push_back({.port = port.instance, .info = &*port.info});
    return items;
}

std::vector<listed_record> portals_of(const inventory &host)
{
    std::vector<listed_record> items;
    for (const port_entry &port : host.ports)
        if (port.portal)
            items.push_back({.port = port.instance, .portal = &*port.portal});
    return items;
}

std::vector<listed_record> sessions_of(const inventory &host)
{
    std::vector<listed_record> items;
    for (const port_entry &port : host.ports)
        for (const session_entry &session : port.sessions)
            items.push_back({.port = port.instance, .session = &session});
    return items;
}

std::vector<listed_record> targets_of(const inventory &host)
{
    std::vector<listed_record> items;
    for (const port_entry &port : host.ports)
        for (const target_entry &target : port.targets)
            items.push_back({.port = port.instance, .target = &target.info});
    return items;
}

std::vector<listed_record> luns_of(const inventory &host)
{
    std::vector<listed_record> items;
    for (const port_entry &port : host.ports)
        for (const target_entry &target : port.targets)
            for (const VARNOK_LUN_INFO &lun : target.luns)
                items.push_back({.port = port.instance, .target = &target.info, .lun = &lun});
    return items;
}

} // namespace

const record_kind port_kind = {"ports", "ports", port_fields, ports_of};
const record_kind portal_kind = {"portals", "portals", portal_fields, portals_of};
const record_kind session_kind = {"sessions", "sessions", session_fields, sessions_of};
const record_kind target_kind = {"targets", "targets", target_fields, targets_of};
const record_kind lun_kind = {"LUNs", "luns", lun_fields, luns_of};

const session_entry *session_of(const port_entry &port, uint32_t target)
{
    const auto found = std::ranges::lower_bound(port.sessions, target, {}, &session_entry::target);
    return found != port.sessions.end() && found->target == target ? &*found : nullptr;
}

field_value target_endpoint(const VARNOK_SESS_INFO &session)
{
    return either_endpoint(session.TgtIPv4Addr, session.TgtIPv4PortNum, session.TgtIPv6Addr,
                           session.TgtIPv6PortNum);
}

field_value target_endpoint(const VARNOK_TGT_INFO &target)
{
    return either_endpoint(target.IPv4Addr, target.IPv4Port, target.IPv6Addr, target.IPv6Port);
}

field_value lun_cell(uint32_t levels_1_and_2, uint32_t levels_3_and_4)
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

field_value coded(uint64_t code, const std::string &word)
{
    return {word, {{"code", code}, {"text", or_null(word).value}}};
}

} // namespace ctl
