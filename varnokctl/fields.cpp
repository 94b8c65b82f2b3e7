#include "varnokctl/fields.h"

#include "varnokctl/json.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>

namespace ctl
{
namespace
{

// Fields of packed records are passed by value: no reference may be taken to them.
field_value number(uint64_t value) { return {fmt::to_string(value), value}; }
field_value large_number(uint64_t value) { return same(fmt::to_string(value)); }

// A capacity of 0 is unknown.
field_value capacity(uint64_t bytes)
{
    const std::string text = bytes == 0 ? "" : fmt::to_string(bytes);
    return {text, or_null(text)};
}

// Records are sorted by the number.
field_value size(uint64_t bytes) { return {size_text(bytes), bytes}; }

field_value hex(unsigned value) { return {fmt::format("0x{:x}", value), value}; }
field_value flag(unsigned value) { return {value == 0 ? "no" : "yes", value != 0}; }

field_value text(std::span<const uint8_t> field, const output_style &style)
{
    return same(field_text(field, style));
}

// Zeros stand for an address or an identifier that is not known.
field_value octets(std::span<const uint8_t> bytes, std::string_view separator = "")
{
    const bool known = std::ranges::any_of(bytes, [](uint8_t byte) { return byte != 0; });
    return known ? same(hex_bytes(bytes, separator)) : field_value{};
}

field_value negotiated(const VARNOK_SESS_INFO &session, const field_value &value)
{
    return is_negotiated(session) ? value : field_value{};
}

// A driver's number, and our reading of it.
field_value state_of(const VARNOK_SESS_INFO &session)
{
    const std::string word = session_state(session.SessionState);
    return {word.empty() ? fmt::to_string(+session.SessionState) : word,
            coded_value(session.SessionState, word).data};
}

// The library's code, with its number in units where there is one.
field_value speed(uint32_t code)
{
    field_value value = coded_value(code, port_speed(code));
    const uint64_t bits = bits_per_second(code);
    value.data["bits_per_second"] = bits == 0 ? json() : json(bits);
    return value;
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
             {"text", or_null(words)}}};
}

field_value endpoint(const ip_endpoint &where)
{
    if (where.ip.empty())
        return {};
    return {endpoint_text(where), {{"ip", where.ip}, {"tcp_port", where.tcp_port}}};
}

ip_endpoint either_endpoint(std::span<const uint8_t, 4> ipv4, uint16_t ipv4_port,
                            std::span<const uint8_t, 16> ipv6, uint16_t ipv6_port)
{
    const std::string ip = ip_address(ipv4);
    return ip.empty() ? ip_endpoint{ip_address(ipv6), ipv6_port} : ip_endpoint{ip, ipv4_port};
}

ip_endpoint initiator_endpoint(const VARNOK_SESS_INFO &session)
{
    return either_endpoint(session.InitIPv4Addr, session.InitIPv4PortNum, session.InitIPv6Addr,
                           session.InitIPv6PortNum);
}

// What is not known, or was not read, is empty.
template <class Text>
field_value identified(const lun_identity *identity, const Text &text_of_it)
{
    const std::string text = identity == nullptr ? "" : text_of_it(*identity);
    return {text, or_null(text)};
}

field_value serial(const lun_identity *identity, const output_style &style)
{
    return identified(identity, [&](const lun_identity &known) {
        const auto begin = std::ranges::find_if(known.serial, [](uint8_t c) { return c != ' '; });
        return field_text({begin, known.serial.end()}, style);
    });
}

field_value designator(const lun_identity *identity, designator_type type,
                       const output_style &style)
{
    return identified(
        identity, [&](const lun_identity &known) { return designator_text(known, type, style); });
}

field_value not_readable() { return {"not readable", {}}; }

field_value name(const listed_record &record, std::span<const uint8_t> field,
                 const output_style &style)
{
    return record.is_known ? text(field, style) : field_value{};
}

field_value block_size(const lun_identity *identity, bool physical)
{
    if (identity == nullptr || !identity->blocks)
        return {};
    const unsigned exponent = physical ? identity->blocks->physical_exponent : 0;
    return number(uint64_t{identity->blocks->logical} << exponent);
}

constexpr bool text_only = false; // not in documents
constexpr bool in_document = true, of_identity = true;

#define FIELD(expression)                                                                          \
    [](const listed_record &r, [[maybe_unused]] const output_style &s) { return expression; }

constexpr record_field port_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(r.port))},
    {"Name", "name", look::text, view::table, FIELD(text(r.info->HbaName, s))},
    {"Model", "model", look::long_text, view::table, FIELD(text(r.info->ModelName, s))},
    {"Description", "description", look::text, view::details, FIELD(text(r.info->ModelDesc, s))},
    {"Serial number", "serial_number", look::text, view::details,
     FIELD(text(r.info->SerialNum, s))},
    {"MAC", "mac", look::text, view::table, FIELD(octets(r.info->MAC, ":"))},
    {"Speed", "speed", look::number, view::table, FIELD(speed(r.info->PortSpeed))},
    {"State", "state", look::text, view::table,
     FIELD(coded_value(r.info->PortState, port_state(r.info->PortState)))},
    {"Sessions", "session_count", look::number, view::table, FIELD(number(r.info->SessCount))},
    {"MTU", "mtu", look::number, view::details, FIELD(number(r.info->MTU))},
    {"Driver", "driver", look::text, view::details, FIELD(text(r.info->DriverName, s))},
    {"Driver version", "driver_version", look::text, view::details,
     FIELD(text(r.info->DriverVersion, s))},
    {"Driver date", "driver_date", look::text, view::details, FIELD(text(r.info->DriverDate, s))},
    {"Firmware", "firmware", look::text, view::details, FIELD(text(r.info->FWVersion, s))},
    {"Management firmware", "management_firmware", look::text, view::details,
     FIELD(text(r.info->MFWVersion, s))},
    {"PCI address", "pci_address", look::text, view::details, FIELD(pci_address(*r.info))},
    {"PCI device", "pci_device", look::text, view::details,
     FIELD(id_pair(r.info->VendorID, r.info->DeviceID))},
    {"PCI subsystem", "pci_subsystem", look::text, view::details,
     FIELD(id_pair(r.info->SubVendorID, r.info->SubSystemID))},
    {"PCI revision", "pci_revision", look::number, view::details,
     FIELD(number(r.info->PciRevision))},
    {"PCI link", "pci_link", look::text, view::details, FIELD(link(*r.info))},
    {"Chip revision", "chip_revision", look::number, view::details, FIELD(hex(r.info->ChipRevId))},
    {"Physical port", "physical_port", look::number, view::details,
     FIELD(number(r.info->PhyPortNum))},
};

constexpr record_field portal_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(r.port))},
    {"IPv4 portal", "ipv4", look::text, view::table,
     FIELD(endpoint({ip_address(r.portal->IPv4Addr), r.portal->IPv4PortNum}))},
    {"IPv6 portal", "ipv6", look::text, view::table,
     FIELD(endpoint({ip_address(r.portal->IPv6Addr), r.portal->IPv6PortNum}))},
};

constexpr record_field session_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(r.port))},
    {"Target", "target", look::number, view::table, FIELD(number(r.session->target))},
    {"State", "state", look::text, view::table, FIELD(state_of(r.session->info))},
    {"Address", "address", look::text, view::table,
     FIELD(endpoint(target_endpoint(r.session->info)))},
    {"Target name", "target_name", look::long_text, view::table,
     FIELD(text(r.session->info.TargetName, s))},
    {"Session", "session", look::number, view::details, FIELD(number(r.session->info.SessionNum))},
    {"Initiator address", "initiator_address", look::text, view::details,
     FIELD(endpoint(initiator_endpoint(r.session->info)))},
    {"Initiator name", "initiator_name", look::text, view::details,
     FIELD(text(r.session->info.InitiatorName, s))},
    {"Identifier", "identifier", look::number, view::details,
     FIELD(negotiated(r.session->info, large_number(r.session->info.SessionUnique)))},
    {"Connection", "connection", look::number, view::details,
     FIELD(negotiated(r.session->info, large_number(r.session->info.ConnID)))},
    {"InitialR2T", "initial_r2t", look::text, view::details,
     FIELD(negotiated(r.session->info, flag(r.session->info.InitialR2T)))},
    {"ImmediateData", "immediate_data", look::text, view::details,
     FIELD(negotiated(r.session->info, flag(r.session->info.ImmediateData)))},
    {"DataSequenceInOrder", "data_sequence_in_order", look::text, view::details,
     FIELD(negotiated(r.session->info, flag(r.session->info.DataSequenceInOrder)))},
    {"DataPDUInOrder", "data_pdu_in_order", look::text, view::details,
     FIELD(negotiated(r.session->info, flag(r.session->info.DataPDUInOrder)))},
    {"MaxOutstandingR2T", "max_outstanding_r2t", look::number, view::details,
     FIELD(negotiated(r.session->info, number(r.session->info.MaxOutstandingR2T)))},
    {"FirstBurstLength", "first_burst_length", look::number, view::details,
     FIELD(negotiated(r.session->info, number(r.session->info.FirstBurstLength)))},
    {"ErrorRecoveryLevel", "error_recovery_level", look::number, view::details,
     FIELD(negotiated(r.session->info, number(r.session->info.ErrorRecoveryLevel)))},
};

constexpr record_field target_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(r.port))},
    {"Target", "target", look::number, view::table, FIELD(number(r.target->ScsiTgtNum))},
    {"LUNs", "lun_count", look::number, view::table,
     FIELD(r.is_counted ? number(r.target->LunCount) : not_readable())},
    {"Address", "address", look::text, view::table, FIELD(endpoint(target_endpoint(*r.target)))},
    {"Name", "name", look::long_text, view::table, FIELD(text(r.target->TargetName, s))},
    {"MAC", "mac", look::text, view::details, FIELD(octets(r.target->MAC, ":"))},
    {"ISID", "isid", look::text, view::details, FIELD(octets(r.target->Isid))},
};

constexpr record_field lun_fields[] = {
    {"Port", "port", look::number, view::table, FIELD(number(r.port))},
    {"Target", "target", look::number, view::table, FIELD(number(r.target->ScsiTgtNum))},
    {"LUN", "lun", look::number, view::table, FIELD(lun_value(levels_of(*r.lun)))},
    {"Type", "type", look::long_text, view::table,
     FIELD(r.is_known ? coded_value(r.lun->DeviceType, device_type(r.lun->DeviceType))
                      : not_readable())},
    {"Size", "size", look::number, view::table, FIELD(size(r.lun->Capacity)), text_only},
    {"Bytes", "bytes", look::number, view::bytes, FIELD(capacity(r.lun->Capacity))},
    {"Vendor", "vendor", look::long_text, view::table, FIELD(name(r, r.lun->VendorName, s))},
    {"Product", "product", look::long_text, view::table, FIELD(name(r, r.lun->ProductName, s))},
    {"Rev", "revision", look::text, view::table, FIELD(name(r, r.lun->ProductRevision, s))},
    {"LUN bytes", "lun_bytes", look::text, view::details, FIELD(same(lun_bytes(levels_of(*r.lun)))),
     text_only},
    {"WWID", "wwid", look::text, view::identity, FIELD(identified(r.identity, wwid)), in_document,
     of_identity},
    {"Serial number", "serial", look::text, view::identity, FIELD(serial(r.identity, s)),
     in_document, of_identity},
    {"NAA", "naa", look::text, view::details,
     FIELD(designator(r.identity, designator_type::naa, s)), in_document, of_identity},
    {"EUI-64", "eui64", look::text, view::details,
     FIELD(designator(r.identity, designator_type::eui64, s)), in_document, of_identity},
    {"T10", "t10", look::text, view::details,
     FIELD(designator(r.identity, designator_type::t10, s)), in_document, of_identity},
    {"SCSI name", "scsi_name", look::text, view::details,
     FIELD(designator(r.identity, designator_type::scsi_name, s)), in_document, of_identity},
    {"Block size", "block_size", look::number, view::details, FIELD(block_size(r.identity, false)),
     in_document, of_identity},
    {"Physical block size", "physical_block_size", look::number, view::details,
     FIELD(block_size(r.identity, true)), in_document, of_identity},
    {"Provisioning", "provisioning", look::text, view::details,
     FIELD(identified(r.identity, provisioning_text)), in_document, of_identity},
};
#undef FIELD

void add_port(const port_entry &port, std::vector<listed_record> &records)
{
    if (port.info)
        records.push_back({.port = port.instance, .info = &*port.info});
}

void add_portal(const port_entry &port, std::vector<listed_record> &records)
{
    if (port.portal)
        records.push_back({.port = port.instance, .portal = &*port.portal});
}

void add_sessions(const port_entry &port, std::vector<listed_record> &records)
{
    for (const session_entry &session : port.sessions)
        records.push_back({.port = port.instance, .session = &session});
}

void add_targets(const port_entry &port, std::vector<listed_record> &records)
{
    for (const target_entry &target : port.targets)
        records.push_back(
            {.port = port.instance, .target = &target.info, .is_counted = target.is_counted});
}

void add_luns(const port_entry &port, std::vector<listed_record> &records)
{
    for (const target_entry &target : port.targets)
        for (const lun_entry &lun : target.luns)
            records.push_back(record_of(lun, target, port.instance));
}

bool is_down(const listed_record &r) { return r.info->PortState == VARNOK_PORT_STATE_1; }

bool is_not_logged_in(const listed_record &r)
{
    return r.session->info.SessionState != session_logged_in;
}

} // namespace

const record_kind port_kind = {"ports", "ports", port_fields, add_port, is_down};
const record_kind portal_kind = {"portals", "portals", portal_fields, add_portal};
const record_kind session_kind = {"sessions", "sessions", session_fields, add_sessions,
                                  is_not_logged_in};
const record_kind target_kind = {"targets", "targets", target_fields, add_targets,
                                 [](const listed_record &r) { return !r.is_counted; }};
const record_kind lun_kind = {"LUNs", "luns", lun_fields, add_luns,
                              [](const listed_record &r) { return !r.is_known; }};

listed_record record_of(const lun_entry &lun, const target_entry &target, uint32_t port)
{
    return {.port = port,
            .target = &target.info,
            .lun = &lun.info,
            .identity = lun.identity ? &*lun.identity : nullptr,
            .is_known = lun.is_known};
}

std::vector<listed_record> records_of(const inventory &host, const record_kind &kind)
{
    std::vector<listed_record> records;
    for (const port_entry &port : host.ports)
        kind.add_records(port, records);
    return records;
}

std::string text_of(const record_field &field, const listed_record &record,
                    const output_style &style)
{
    return field.value(record, style).text;
}

const session_entry *session_of(const port_entry &port, uint32_t target)
{
    const auto found = std::ranges::lower_bound(port.sessions, target, {}, &session_entry::target);
    return found != port.sessions.end() && found->target == target ? &*found : nullptr;
}

bool is_negotiated(const VARNOK_SESS_INFO &session)
{
    return session.FirstBurstLength != 0 || session.MaxOutstandingR2T != 0;
}

ip_endpoint target_endpoint(const VARNOK_SESS_INFO &session)
{
    return either_endpoint(session.TgtIPv4Addr, session.TgtIPv4PortNum, session.TgtIPv6Addr,
                           session.TgtIPv6PortNum);
}

ip_endpoint target_endpoint(const VARNOK_TGT_INFO &target)
{
    return either_endpoint(target.IPv4Addr, target.IPv4Port, target.IPv6Addr, target.IPv6Port);
}

} // namespace ctl
