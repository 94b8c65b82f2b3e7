#include "varnokctl/capture_view.h"

#include "varnokctl/failure.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace ctl
{
namespace
{

// ---- What identifies a LUN --------------------------------------------------------------------

constexpr std::array<std::pair<const char *, designator_type>, 4> designator_kinds = {
    {{"naa", designator_type::naa},
     {"eui64", designator_type::eui64},
     {"scsi_name", designator_type::scsi_name},
     {"t10", designator_type::t10}}};

// A capture has numbers as "0x" and digits, and texts as they are.
std::vector<uint8_t> designator_bytes(const std::string &text)
{
    if (!text.starts_with("0x"))
        return {text.begin(), text.end()};
    std::vector<uint8_t> bytes((text.size() - 2) / 2);
    for (size_t at = 0; at < bytes.size(); ++at) {
        const char *const digits = text.data() + 2 + 2 * at;
        std::from_chars(digits, digits + 2, bytes[at], 16);
    }
    return bytes;
}

std::string identity_of(const capture_json &unit)
{
    const lun_identity known = {.designators = captured_designators(unit)};
    const std::string serial = captured_text(member_or_null(unit, "serial"));
    const std::string identity = wwid(known);
    return identity.empty() && !serial.empty() ? "serial number " + serial : identity;
}

// ---- Places -----------------------------------------------------------------------------------

using device_map = std::map<std::string, std::pair<const capture_json *, std::string>>;

// The devices by their names, with what identifies them.
device_map devices_of(const capture_json &document)
{
    device_map devices;
    for (const auto &[name, unit] : member_or_null(document, "devices").items())
        devices[name] = {&unit, identity_of(unit)};
    return devices;
}

captured_lun lun_of(const capture_json &lun, const device_map &devices)
{
    const capture_json &device = member_or_null(lun, "device");
    const capture_json &number = member_or_null(lun, "lun");
    if (device.is_null())
        return {&lun, &number, identity_of(lun)};
    const auto &[unit, identity] = devices.at(device.get_ref<const std::string &>());
    return {unit, &number, identity};
}

captured_port port_of(const capture_json &object, const device_map &devices)
{
    captured_port port = {.object = &object, .targets = {}};
    port.unread = !object.contains("mac");
    for (const capture_json &session : object["sessions"]) {
        const capture_json &record = member_or_null(session, "target");
        const capture_json &name = member_or_null(record, "iqn");
        captured_target target = {
            &session,
            port.targets.size(),
            captured_text(name.is_null() ? member_or_null(session, "tgt_iqn") : name),
            {}};
        target.luns_unread = record.is_null();
        for (const capture_json &lun : session["luns"]) {
            target.luns_unread |= lun.contains("repeat"); // counted, but not listed
            if (!lun.contains("repeat"))
                target.luns.push_back(lun_of(lun, devices));
        }
        port.targets.push_back(std::move(target));
    }
    return port;
}

// ---- Failures ---------------------------------------------------------------------------------

std::optional<uint64_t> number_of(const capture_json &failure, const char *key)
{
    const capture_json &value = member_or_null(failure, key);
    return value.is_number_unsigned() ? std::optional(value.get<uint64_t>()) : std::nullopt;
}

bool is_about(const capture_json &failure, call_name call)
{
    return failure["call"].get_ref<const std::string &>() == call_text(call);
}

class failure_reader
{
  public:
    failure_reader(const capture_json &document, captured_host &host, const output_style &style)
        : failures_(document["failures"]), numbers_(port_numbers(document)), host_(host),
          style_(style)
    {
    }

    void read()
    {
        for (const capture_json &failure : failures_) {
            const std::string why =
                shown_text(failure["call"], style_) + ": " + shown_text(failure["meaning"], style_);
            host_.unread.push_back({unread_by(failure), why});
        }
        for (const captured_port &port : host_.ports)
            host_.ports_unread |= port.unread;
    }

  private:
    captured_port *port_of(const capture_json &failure)
    {
        const auto found =
            std::ranges::lower_bound(numbers_, number_of(failure, "port"), {},
                                     [](uint32_t n) { return std::optional<uint64_t>(n); });
        const auto place = static_cast<size_t>(found - numbers_.begin());
        return found != numbers_.end() && *found == number_of(failure, "port") ? &host_.ports[place]
                                                                               : nullptr;
    }

    // Marks what the failure hides, and says it in words.
    std::string unread_by(const capture_json &failure)
    {
        captured_port *const port = port_of(failure);
        if (port == nullptr) {
            host_.ports_unread = true;
            const auto number = number_of(failure, "port");
            return number ? fmt::format("port {}", *number) : "ports";
        }
        if (port->unread)
            return fmt::format("port {}", *number_of(failure, "port"));
        const std::string at = port_name(*port, style_);
        if (is_about(failure, call_name::get_lun_info) ||
            is_about(failure, call_name::send_scsi_command))
            return unread_luns(failure, *port, at);
        port->fields_unread = true;
        if (is_about(failure, call_name::get_iscsi_portal))
            return "portal of port " + at;
        if (is_about(failure, call_name::get_session_info))
            return "sessions of port " + at;
        port->targets_unread |= !is_about(failure, call_name::close_adapter);
        return (is_about(failure, call_name::get_tgt_info) ? "targets of port " : "port ") + at;
    }

    std::string unread_luns(const capture_json &failure, captured_port &port,
                            const std::string &at) const
    {
        const auto number = number_of(failure, "target");
        if (!number || *number >= port.targets.size()) {
            port.targets_unread = true;
            return "targets of port " + at;
        }
        captured_target &target = port.targets[*number];
        const bool listed = is_about(failure, call_name::send_scsi_command);
        (listed ? target.identities_unread : target.luns_unread) = true;
        return fmt::format("{} of target {}", listed ? "identities of the LUNs" : "LUNs",
                           target_name(port, target, style_));
    }

    const capture_json &failures_;
    std::vector<uint32_t> numbers_; // ascending
    captured_host &host_;
    const output_style &style_;
};

} // namespace

std::string captured_text(const capture_json &value)
{
    if (value.is_null())
        return "";
    if (value.is_string())
        return value.get<std::string>();
    if (!value.is_array())
        return value.dump();
    std::string text;
    for (const capture_json &byte : value) {
        if (!byte.is_number_unsigned() || byte > UINT8_MAX)
            throw capture_error("neither a number nor a text");
        text += static_cast<char>(byte.get<uint8_t>());
    }
    return text;
}

std::string shown_text(const capture_json &value, const output_style &style)
{
    const std::string text = captured_text(value);
    return field_text({reinterpret_cast<const uint8_t *>(text.data()), text.size()}, style);
}

const capture_json &member_or_null(const capture_json &object, const char *key)
{
    static const capture_json none;
    const auto found = object.find(key); // the end of what is no object
    return found == object.end() ? none : *found;
}

std::vector<uint32_t> port_numbers(const capture_json &document)
{
    std::set<uint64_t> missing; // ports that went away meanwhile have no place
    std::set<uint64_t> told;
    for (const capture_json &failure : document["failures"])
        if (const auto port = number_of(failure, "port")) {
            const bool went = is_about(failure, call_name::open_adapter) &&
                              number_of(failure, "status") == VARNOK_STATUS_NOT_FOUND;
            (went ? missing : told).insert(*port);
        }
    std::vector<uint32_t> numbers;
    uint32_t next = 0;
    for (size_t left = document["ports"].size(); left > 0; --left, ++next) {
        for (; missing.contains(next); ++next)
            continue;
        numbers.push_back(next);
    }
    // The only port that was asked for, perhaps.
    if (numbers.size() == 1 && !told.empty() && *told.begin() <= UINT32_MAX)
        numbers.front() = static_cast<uint32_t>(*told.begin());
    return numbers;
}

std::vector<lun_designator> captured_designators(const capture_json &unit)
{
    std::vector<lun_designator> list;
    for (const capture_json &designator : member_or_null(unit, "designators"))
        for (const auto &[kind, type] : designator_kinds) {
            std::vector<uint8_t> bytes =
                designator_bytes(captured_text(member_or_null(designator, kind)));
            if (!bytes.empty())
                list.push_back({type, std::move(bytes)});
        }
    return list;
}

std::string port_name(const captured_port &port, const output_style &style)
{
    const std::string name = shown_text(member_or_null(*port.object, "hba_name"), style);
    return name.empty() ? "without a name" : name;
}

std::string target_name(const captured_port &port, const captured_target &target,
                        const output_style &style)
{
    const std::string name = shown_text(target.name, style);
    return fmt::format("{} ({})", name.empty() ? "without a name" : name, port_name(port, style));
}

captured_host view_of(const capture_json &document, const output_style &style)
{
    captured_host host;
    const device_map devices = devices_of(document);
    for (const capture_json &port : document["ports"])
        host.ports.push_back(port_of(port, devices));
    failure_reader(document, host, style).read();
    return host;
}

} // namespace ctl
