#include "varnokctl/paths.h"

#include "varnokctl/devices.h"
#include "varnokctl/facts.h"
#include "varnokctl/json.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/table.h"
#include "varnokctl/words.h"
#include "varnokctl/wrapping.h"

#include <fmt/format.h>

namespace ctl
{
namespace
{

std::string port_name(const port_entry &port, const output_style &style)
{
    return port.info ? field_text(port.info->HbaName, style) : "";
}

std::string device_lines(const device_entry &device, const output_style &style)
{
    std::vector<std::string> facts = lun_facts(*device.paths.front().lun, style);
    facts.front() = device.name.empty() ? "not identified" : device.name;
    std::string text = wrapped(facts, "  ", "", "", style);
    for (const device_note &note : device.notes) {
        std::string lines = wrapped(note.text, "! ", "  ", style);
        lines.pop_back();
        text += coloured(lines, true, style) + '\n';
    }
    return text;
}

table_row path_row(const device_path &path, const output_style &style)
{
    return {{fmt::to_string(path.port->instance), port_name(*path.port, style),
             field_text(path.target->info.TargetName, style), lun_number(levels_of(path.lun->info)),
             path_state(path)},
            !path_works(path)};
}

json path_object(const device_path &path, const output_style &style)
{
    const auto &identity = path.lun->identity;
    const bool has_blocks = identity && identity->blocks;
    const uint32_t port_code = path.port->info ? path.port->info->PortState : 0;
    json object = {{"port", path.port->instance},
                   {"port_name", port_name(*path.port, style)},
                   {"port_state", coded_value(port_code, port_state(port_code)).data},
                   {"target", +path.target->info.ScsiTgtNum},
                   {"target_name", field_text(path.target->info.TargetName, style)},
                   {"lun", lun_value(levels_of(path.lun->info)).data}};
    object["session_state"] = json();
    if (path.session != nullptr) {
        const uint8_t code = path.session->info.SessionState;
        object["session_state"] = coded_value(code, session_state(code)).data;
    }
    object["bytes"] = fmt::to_string(+path.lun->info.Capacity);
    object["block_size"] = has_blocks ? json(identity->blocks->logical) : json();
    object["works"] = path_works(path);
    return object;
}

} // namespace

std::string paths_text(const inventory &host, const output_style &style)
{
    const std::vector<table_column> columns = {{"Port", true, false},
                                               {"Name", false, false},
                                               {"Target name", false, true},
                                               {"LUN", true, false},
                                               {"State", false, false}};
    std::vector<table_row> rows;
    for (const device_entry &device : devices_of(host, port_places(host, style), style)) {
        const size_t first = rows.size();
        for (const device_path &path : device.paths)
            rows.push_back(path_row(path, style));
        rows[first].above = device_lines(device, style);
    }
    if (rows.empty())
        return host.failures.empty() ? "no LUNs\n" : "";
    return table_text(columns, rows, style);
}

std::string paths_document(const inventory &host, bool ascii)
{
    const output_style style = {.utf8 = true};
    json document = new_document("paths");
    document["devices"] = json::array();
    for (const device_entry &device : devices_of(host, port_places(host, style), style)) {
        const VARNOK_LUN_INFO &lun = device.paths.front().lun->info;
        json object = {{"wwid", or_null(device.name)},
                       {"type", coded_value(lun.DeviceType, device_type(lun.DeviceType)).data},
                       {"vendor", field_text(lun.VendorName, style)},
                       {"product", field_text(lun.ProductName, style)}};
        object["notes"] = json::array();
        for (const device_note &note : device.notes)
            object["notes"].push_back({{"rule", note.rule}, {"text", note.text}});
        object["paths"] = json::array();
        for (const device_path &path : device.paths)
            object["paths"].push_back(path_object(path, style));
        document["devices"].push_back(object);
    }
    return finished_text(document, host.failures, ascii);
}

} // namespace ctl
