#include "varnokctl/report/host_section.h"

#include "varnokctl/facts.h"
#include "varnokctl/fields.h"
#include "varnokctl/json.h"
#include "varnokctl/report/device_groups.h"
#include "varnokctl/report/finding_marks.h"
#include "varnokctl/report/picture.h"
#include "varnokctl/report/templates.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <utility>

namespace ctl
{
namespace
{

// What a list shows in the column with this key.
std::string shown(const record_kind &kind, std::string_view key, const listed_record &record)
{
    const auto field = std::ranges::find(kind.fields, key, &record_field::key);
    return text_of(*field, record, page_style);
}

page_list list_of(std::initializer_list<std::string> texts)
{
    page_list list;
    for (const std::string &text : texts)
        if (!text.empty())
            list.emplace_back(text);
    return list;
}

template <class Texts>
page_list named_list(const Texts &texts)
{
    page_list list;
    for (const auto &text : texts)
        list.emplace_back("what", text);
    return list;
}

std::string with_label(const char *label, const std::string &text)
{
    return text.empty() ? "" : fmt::format("{} {}", label, text);
}

page_data rule_list(const finding_mark &mark)
{
    page_list list;
    for (const char *rule : mark.rules)
        list.emplace_back(rule);
    return list;
}

// The class of a row that has a finding; nothing for others.
std::string row_class(const finding_mark &mark)
{
    return mark.level == health_status::ok ? "" : mark_of(mark.level);
}

// A list with the flag that says whether it has anything.
void put_list(page_data &data, const std::string &key, const page_list &list)
{
    data["has_" + key] = !list.empty();
    data[key] = page_data(list);
}

// The driver's number has no word.
std::string state_words(const std::string &state)
{
    const bool number =
        !state.empty() && std::ranges::all_of(state, [](char c) { return c >= '0' && c <= '9'; });
    return number ? "state " + state : state;
}

std::string number_or(const std::optional<size_t> &number, const char *words)
{
    return number ? fmt::to_string(*number) : words;
}

// ---- Ports and targets ------------------------------------------------------------------------

page_data port_row(const port_entry &port, const finding_mark &mark)
{
    page_data row;
    row["level"] = row_class(mark);
    row["number"] = fmt::to_string(port.instance);
    row["rules"] = rule_list(mark);
    for (const char *key : {"name", "speed", "mtu", "sessions"})
        row[key] = "";
    for (const char *key : {"addresses", "adapter", "software"})
        row[key] = page_list();
    row["mark"] = mark_critical;
    row["state"] = "not readable";
    if (!port.info)
        return row;
    const listed_record record = {.port = port.instance, .info = &*port.info};
    const auto field = [&](const char *key) { return shown(port_kind, key, record); };
    const auto address = [&](const char *key) {
        return port.portal
                   ? shown(portal_kind, key, {.port = port.instance, .portal = &*port.portal})
                   : "";
    };
    row["mark"] = port.info->PortState == VARNOK_PORT_STATE_0 ? mark_ok : mark_critical;
    row["state"] = field("state");
    row["name"] = field("name");
    row["speed"] = field("speed");
    row["mtu"] = port.info->MTU == 0 ? "" : field("mtu");
    row["sessions"] = field("session_count");
    row["addresses"] = list_of({field("mac"), address("ipv4"), address("ipv6")});
    row["adapter"] = list_of({field("model"), with_label("serial", field("serial_number")),
                              with_label("PCI", field("pci_address"))});
    row["software"] = list_of({with_label("firmware", field("firmware")),
                               with_label("management", field("management_firmware")),
                               with_label(field("driver").c_str(), field("driver_version"))});
    return row;
}

page_data target_row(const port_entry &port, const target_entry &target, const finding_mark &mark)
{
    const session_entry *session = session_of(port, target.info.ScsiTgtNum);
    page_data row;
    row["level"] = row_class(mark);
    row["name"] = field_text(target.info.TargetName, page_style);
    row["port"] = fmt::to_string(port.instance);
    row["port_name"] = port.info ? field_text(port.info->HbaName, page_style) : "";
    row["number"] = fmt::to_string(+target.info.ScsiTgtNum);
    row["address"] = target_address(port, target);
    row["luns"] = target.is_counted ? fmt::to_string(+target.info.LunCount) : "not readable";
    row["rules"] = rule_list(mark);
    const bool logged_in = session != nullptr && session->info.SessionState == session_logged_in;
    row["mark"] = session == nullptr ? mark_unknown : logged_in ? mark_ok : mark_critical;
    row["state"] = session == nullptr
                       ? "not read"
                       : state_words(shown(session_kind, "state",
                                           {.port = port.instance, .session = session}));
    return row;
}

// ---- Devices ----------------------------------------------------------------------------------

std::string lun_numbers(const device_entry &device)
{
    std::vector<std::string> numbers;
    bool same = true;
    for (const device_path &path : device.paths) {
        numbers.push_back(lun_number(levels_of(path.lun->info)));
        same = same && numbers.back() == numbers.front();
    }
    return same ? numbers.front() : fmt::format("{}", fmt::join(numbers, ", "));
}

page_data device_row(const device_entry &device, const finding_mark &mark)
{
    const device_path &path = device.paths.front();
    const listed_record record = record_of(*path.lun, *path.target, path.port->instance);
    const auto field = [&](const char *key) { return shown(lun_kind, key, record); };
    page_data row;
    row["level"] = mark.level == health_status::ok ? page_data(false) : mark_of(mark.level);
    row["name"] = device.name.empty() ? "not identified" : device.name;
    row["lun"] = lun_numbers(device);
    row["size"] = field("size");
    row["type"] = field("type");
    const std::string vendor = field("vendor");
    row["product"] = vendor + (vendor.empty() ? "" : " ") + field("product");
    row["serial"] = field("serial");
    page_list notes;
    for (const std::string &text : mark.texts)
        notes.emplace_back(text);
    row["notes"] = notes;
    return row;
}

page_data path_item(const device_path &path)
{
    const std::string state = path_state(path);
    const std::string port =
        path.port->info ? field_text(path.port->info->HbaName, page_style) : "";
    page_data item;
    item["port"] = port.empty() ? fmt::format("port {}", path.port->instance) : port;
    item["target"] = field_text(path.target->info.TargetName, page_style);
    item["state"] = state.empty() ? "state not read" : state_words(state);
    item["mark"] = !path_works(path) ? mark_critical : state.empty() ? mark_unknown : mark_ok;
    return item;
}

std::string group_text(const device_group &group, const finding_marks &marks)
{
    page_data data;
    const std::string size = capacity_text(capacity_of(group.devices));
    data["title"] = fmt::format("{}{}{}; {}", counted(group.devices.size(), "device"),
                                size.empty() ? "" : ", ", size, paths_text(group));
    page_list paths;
    for (const device_path &path : group.paths)
        paths.push_back(path_item(path));
    data["paths"] = paths;
    page_list rows;
    rows.reserve(group.devices.size());
    for (const device_entry *device : group.devices)
        rows.push_back(device_row(*device, marks.device(*device)));
    data["devices"] = rows;
    return filled(report_template::device_group, data);
}

// ---- What changed, and what is not known ------------------------------------------------------

page_data change_row(const difference &entry)
{
    page_data row;
    row["level"] = entry.kind == change::gone ? mark_critical : "";
    row["mark"] = entry.kind == change::gone    ? mark_critical
                  : entry.kind == change::added ? mark_ok
                                                : mark_warning;
    row["kind"] = change_word(entry.kind);
    row["of"] = entry.what;
    row["what"] = entry.name;
    row["field"] = entry.field;
    row["was"] = entry.before.text;
    row["is"] = entry.after.text;
    return row;
}

void put_changes(page_data &data, const host_caption &caption)
{
    data["compared"] = caption.changes.has_value();
    if (!caption.changes)
        return;
    data["before"] = caption.before;
    page_list rows;
    for (const difference &entry : caption.changes->differences)
        rows.push_back(change_row(entry));
    put_list(data, "changes", rows);
    std::vector<std::string> unread;
    for (const auto &[parts, name] : {std::pair(&caption.changes->unread_before, &caption.before),
                                      std::pair(&caption.changes->unread_after, &caption.name)})
        for (const unread_part &part : *parts)
            unread.push_back(fmt::format("{}: {}: {}", *name, part.name, part.why));
    data["no_changes"] = unread.empty() ? "Nothing changed." : "Nothing that was compared changed.";
    put_list(data, "uncompared", named_list(unread));
}

std::vector<std::string> facts_of(const inventory &host, size_t devices, const host_totals &totals)
{
    std::vector<std::string> facts = host_facts(host);
    if (devices != 0 || totals.devices == "0")
        facts.push_back(counted(devices, "device"));
    if (!totals.capacity.empty())
        facts.push_back(totals.capacity);
    return facts;
}

} // namespace

host_totals totals_of(const examined_host &examined)
{
    const inventory &host = examined.host;
    std::vector<const device_entry *> devices;
    for (const device_entry &device : examined.devices)
        devices.push_back(&device);
    capacity sum = capacity_of(devices);
    sum.at_least |= !host.failures.empty();
    const auto online = std::ranges::count_if(host.ports, [](const port_entry &port) {
        return port.info && port.info->PortState == VARNOK_PORT_STATE_0;
    });
    const auto unread = std::ranges::count_if(host.ports, [](const auto &p) { return !p.info; });
    const host_counts counts = counts_of(host);
    const std::string luns = number_or(counts.luns, luns_not_readable);
    return {.ports_online = fmt::format("{} of {}", online, host.ports.size()) +
                            (unread == 0 ? "" : fmt::format(", {} not readable", unread)),
            .targets = number_or(counts.targets, targets_not_readable),
            .luns = luns,
            .devices = devices.empty() ? luns : fmt::to_string(devices.size()),
            .capacity = capacity_text(sum)};
}

std::string host_section(const examined_host &examined, const health_report &report,
                         const host_caption &caption)
{
    const inventory &host = examined.host;
    const finding_marks marks(examined, report);
    const std::vector<device_group> groups = groups_of(examined.devices);
    page_data data;
    data["id"] = caption.id;
    data["name"] = caption.name;
    data["level"] = mark_of(report.status);
    data["status"] = std::string(status_word(report.status));
    data["facts"] = fmt::format(
        "{}", fmt::join(facts_of(host, examined.devices.size(), totals_of(examined)), ", "));
    const std::string found = found_text(count_of(report, health_status::critical),
                                         count_of(report, health_status::warning));
    data["found"] = found.empty() ? page_data(false) : page_data(found);
    page_list unread;
    for (const failed_call &failure : host.failures)
        unread.emplace_back("what", failure_text(failure));
    put_list(data, "unread", unread);
    put_changes(data, caption);
    std::string text = filled(report_template::host_begin, data);

    text += picture_of(examined, groups, marks, caption.id);
    page_list ports, targets;
    for (const port_entry &port : host.ports) {
        ports.push_back(port_row(port, marks.port(port)));
        for (const target_entry &target : port.targets)
            targets.push_back(target_row(port, target, marks.target(port, target)));
    }
    put_list(data, "ports", ports);
    put_list(data, "targets", targets);
    data["devices"] = fmt::to_string(examined.devices.size());
    data["has_devices"] = !examined.devices.empty();
    data["open"] = caption.open;
    text += filled(report_template::host_tables, data);
    for (const device_group &group : groups)
        text += group_text(group, marks);
    return text + filled(report_template::host_end, data);
}

} // namespace ctl
