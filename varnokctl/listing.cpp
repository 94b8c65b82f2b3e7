#include "render.h"

#include <span>

#include <fmt/format.h>

#include "table.h"
#include "words.h"

namespace ctl
{
namespace
{

// One record with those that it belongs to; those that do not apply are null.
struct item {
    uint32_t port;
    const VARNOK_PHY_PORT_INFO *info = nullptr;
    const VARNOK_ISCSI_PORTAL *portal = nullptr;
    const ctl::session *session = nullptr;
    const VARNOK_TGT_INFO *target = nullptr;
    const VARNOK_LUN_INFO *lun = nullptr;
};

enum class look { text, long_text, number }; // long texts give way in a narrow table
enum class in { table, details, bytes };     // always; with all fields; with sizes in bytes too

struct field {
    const char *title;
    look shape;
    in where;
    std::string (*value)(const item &, const style &);
};

// Fields of packed records have no address to give away: they travel by value.
std::string number(uint64_t value) { return fmt::to_string(value); }
std::string hex(unsigned value) { return fmt::format("0x{:x}", value); }
std::string yes_no(unsigned value) { return value == 0 ? "no" : "yes"; }
std::string id_pair(unsigned vendor, unsigned device)
{
    return fmt::format("{:04x}:{:04x}", vendor, device);
}

std::string pci_address(const VARNOK_PHY_PORT_INFO &info)
{
    return fmt::format("{:04x}:{:02x}:{:02x}.{}", +info.PciDomainNum, +info.PciBusNum,
                       +info.PciDeviceNum, +info.PciFunctionNum);
}

std::string initiator_endpoint(const VARNOK_SESS_INFO &info)
{
    return endpoint(info.InitIPv4Addr, info.InitIPv4PortNum, info.InitIPv6Addr,
                    info.InitIPv6PortNum);
}

#define FIELD(expression) [](const item &i, [[maybe_unused]] const style &s) { return expression; }

constexpr field port_fields[] = {
    {"Port", look::number, in::table, FIELD(number(i.port))},
    {"Name", look::text, in::table, FIELD(field_text(i.info->HbaName, s))},
    {"Model", look::long_text, in::table, FIELD(field_text(i.info->ModelName, s))},
    {"Description", look::text, in::details, FIELD(field_text(i.info->ModelDesc, s))},
    {"Serial number", look::text, in::details, FIELD(field_text(i.info->SerialNum, s))},
    {"MAC", look::text, in::table, FIELD(hex_bytes(i.info->MAC, ":"))},
    {"Speed", look::number, in::table, FIELD(port_speed(i.info->PortSpeed))},
    {"State", look::text, in::table, FIELD(port_state(i.info->PortState))},
    {"Sessions", look::number, in::table, FIELD(number(i.info->SessCount))},
    {"MTU", look::number, in::details, FIELD(number(i.info->MTU))},
    {"Driver", look::text, in::details, FIELD(field_text(i.info->DriverName, s))},
    {"Driver version", look::text, in::details, FIELD(field_text(i.info->DriverVersion, s))},
    {"Driver date", look::text, in::details, FIELD(field_text(i.info->DriverDate, s))},
    {"Firmware", look::text, in::details, FIELD(field_text(i.info->FWVersion, s))},
    {"Management firmware", look::text, in::details, FIELD(field_text(i.info->MFWVersion, s))},
    {"PCI address", look::text, in::details, FIELD(pci_address(*i.info))},
    {"PCI device", look::text, in::details, FIELD(id_pair(i.info->VendorID, i.info->DeviceID))},
    {"PCI subsystem", look::text, in::details,
     FIELD(id_pair(i.info->SubVendorID, i.info->SubSystemID))},
    {"PCI revision", look::number, in::details, FIELD(number(i.info->PciRevision))},
    {"PCI link", look::text, in::details, FIELD(pcie_link(i.info->PCIESpeed, i.info->PCIEWidth))},
    {"Chip revision", look::number, in::details, FIELD(hex(i.info->ChipRevId))},
    {"Physical port", look::number, in::details, FIELD(number(i.info->PhyPortNum))},
};

constexpr field portal_fields[] = {
    {"Port", look::number, in::table, FIELD(number(i.port))},
    {"IPv4 portal", look::text, in::table,
     FIELD(endpoint(ip_address(i.portal->IPv4Addr), i.portal->IPv4PortNum))},
    {"IPv6 portal", look::text, in::table,
     FIELD(endpoint(ip_address(i.portal->IPv6Addr), i.portal->IPv6PortNum))},
};

constexpr field session_fields[] = {
    {"Port", look::number, in::table, FIELD(number(i.port))},
    {"Target", look::number, in::table, FIELD(number(i.session->target))},
    {"State", look::number, in::table, FIELD(number(i.session->info.SessionState))},
    {"Address", look::text, in::table, FIELD(target_endpoint(i.session->info))},
    {"Target name", look::long_text, in::table, FIELD(field_text(i.session->info.TargetName, s))},
    {"Session", look::number, in::details, FIELD(number(i.session->info.SessionNum))},
    {"Initiator address", look::text, in::details, FIELD(initiator_endpoint(i.session->info))},
    {"Initiator name", look::text, in::details,
     FIELD(field_text(i.session->info.InitiatorName, s))},
    {"Identifier", look::number, in::details, FIELD(number(i.session->info.SessionUnique))},
    {"Connection", look::number, in::details, FIELD(number(i.session->info.ConnID))},
    {"InitialR2T", look::text, in::details, FIELD(yes_no(i.session->info.InitialR2T))},
    {"ImmediateData", look::text, in::details, FIELD(yes_no(i.session->info.ImmediateData))},
    {"DataSequenceInOrder", look::text, in::details,
     FIELD(yes_no(i.session->info.DataSequenceInOrder))},
    {"DataPDUInOrder", look::text, in::details, FIELD(yes_no(i.session->info.DataPDUInOrder))},
    {"MaxOutstandingR2T", look::number, in::details,
     FIELD(number(i.session->info.MaxOutstandingR2T))},
    {"FirstBurstLength", look::number, in::details,
     FIELD(number(i.session->info.FirstBurstLength))},
    {"ErrorRecoveryLevel", look::number, in::details,
     FIELD(number(i.session->info.ErrorRecoveryLevel))},
};

constexpr field target_fields[] = {
    {"Port", look::number, in::table, FIELD(number(i.port))},
    {"Target", look::number, in::table, FIELD(number(i.target->ScsiTgtNum))},
    {"LUNs", look::number, in::table, FIELD(number(i.target->LunCount))},
    {"Address", look::text, in::table, FIELD(target_endpoint(*i.target))},
    {"Name", look::long_text, in::table, FIELD(field_text(i.target->TargetName, s))},
    {"MAC", look::text, in::details, FIELD(hex_bytes(i.target->MAC, ":"))},
    {"ISID", look::text, in::details, FIELD(hex_bytes(i.target->Isid))},
};

constexpr field lun_fields[] = {
    {"Port", look::number, in::table, FIELD(number(i.port))},
    {"Target", look::number, in::table, FIELD(number(i.target->ScsiTgtNum))},
    {"LUN", look::number, in::table, FIELD(lun_number(i.lun->ScsiLunNum, i.lun->ScsiLunNumExt))},
    {"Type", look::long_text, in::table, FIELD(device_type(i.lun->DeviceType))},
    {"Size", look::number, in::table, FIELD(size_text(i.lun->Capacity))},
    {"Bytes", look::number, in::bytes, FIELD(number(i.lun->Capacity))},
    {"Vendor", look::long_text, in::table, FIELD(field_text(i.lun->VendorName, s))},
    {"Product", look::long_text, in::table, FIELD(field_text(i.lun->ProductName, s))},
    {"Rev", look::text, in::table, FIELD(field_text(i.lun->ProductRevision, s))},
    {"LUN bytes", look::text, in::details,
     FIELD(lun_bytes(i.lun->ScsiLunNum, i.lun->ScsiLunNumExt))},
};
#undef FIELD

bool shows(const field &field, const style &style)
{
    return style.details || field.where == in::table || (field.where == in::bytes && style.bytes);
}

struct listing {
    const char *plural;
    std::span<const field> fields;
    std::vector<item> items;
};

std::string listing_text(const listing &listing, const host &host, const style &style)
{
    if (listing.items.empty())
        return host.failures.empty() ? fmt::format("no {}\n", listing.plural) : "";
    std::vector<column> columns;
    std::vector<row> rows(listing.items.size());
    for (const field &field : listing.fields) {
        if (!shows(field, style))
            continue;
        columns.push_back(
            {field.title, field.shape == look::number, field.shape == look::long_text});
        for (size_t at = 0; at < rows.size(); at++)
            rows[at].push_back(field.value(listing.items[at], style));
    }
    return style.details ? sheets_text(columns, rows) : table_text(columns, rows, style);
}

} // namespace

std::string target_endpoint(const VARNOK_SESS_INFO &session)
{
    return endpoint(session.TgtIPv4Addr, session.TgtIPv4PortNum, session.TgtIPv6Addr,
                    session.TgtIPv6PortNum);
}

std::string target_endpoint(const VARNOK_TGT_INFO &target)
{
    return endpoint(target.IPv4Addr, target.IPv4Port, target.IPv6Addr, target.IPv6Port);
}

std::string ports_text(const host &host, const style &style)
{
    listing list{"ports", port_fields, {}};
    for (const port &port : host.ports)
        if (port.info)
            list.items.push_back({.port = port.instance, .info = &*port.info});
    return listing_text(list, host, style);
}

std::string portals_text(const host &host, const style &style)
{
    listing list{"portals", portal_fields, {}};
    for (const port &port : host.ports)
        if (port.portal)
            list.items.push_back({.port = port.instance, .portal = &*port.portal});
    return listing_text(list, host, style);
}

std::string sessions_text(const host &host, const style &style)
{
    listing list{"sessions", session_fields, {}};
    for (const port &port : host.ports)
        for (const session &session : port.sessions)
            list.items.push_back({.port = port.instance, .session = &session});
    return listing_text(list, host, style);
}

std::string targets_text(const host &host, const style &style)
{
    listing list{"targets", target_fields, {}};
    for (const port &port : host.ports)
        for (const target &target : port.targets)
            list.items.push_back({.port = port.instance, .target = &target.info});
    return listing_text(list, host, style);
}

std::string luns_text(const host &host, const style &style)
{
    listing list{"LUNs", lun_fields, {}};
    for (const port &port : host.ports)
        for (const target &target : port.targets)
            for (const VARNOK_LUN_INFO &lun : target.luns)
                list.items.push_back({.port = port.instance, .target = &target.info, .lun = &lun});
    return listing_text(list, host, style);
}

} // namespace ctl
