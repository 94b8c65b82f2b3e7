#include "varnokctl/capture_view.h"

#include "varnokctl/failure.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <utility>

namespace ctl
{
namespace
{

bool is_byte(const capture_json &value)
{
    return value.is_number_unsigned() && value.get<uint64_t>() <= UINT8_MAX;
}

// ---- What identifies a LUN --------------------------------------------------------------------

// From the best kind of designator on, with the digit that multipath tools put before it.
constexpr std::array<std::pair<const char *, char>, 4> designator_kinds = {
    {{"naa", '3'}, {"eui64", '2'}, {"scsi_name", '8'}, {"t10", '1'}}};

// Identifiers that a registered vendor made come first, and those that are assigned locally last.
size_t rank_of(std::string_view kind, std::string_view text)
{
    const auto *const found =
        std::ranges::find(designator_kinds, kind, &std::pair<const char *, char>::first);
    const auto rank = static_cast<size_t>(found - designator_kinds.begin());
    if (kind != "naa")
        return 2 * (rank + 1);
    return text.starts_with("0x6")   ? 0
           : text.starts_with("0x3") ? 2 * designator_kinds.size() + 1
                                     : 1;
}

std::string identity_of(const capture_json &unit)
{
    size_t best = SIZE_MAX;
    std::string identity;
    for (const capture_json &designator : member_or_null(unit, "designators"))
        for (const auto &[kind, digit] : designator_kinds) {
            const std::string text = captured_text(member_or_null(designator, kind));
            if (text.empty() || rank_of(kind, text) >= best)
                continue;
            best = rank_of(kind, text);
            identity = digit + text.substr(text.starts_with("0x") ? 2 : 0);
        }
    const std::string serial = captured_text(member_or_null(unit, "serial"));
    return identity.empty() && !serial.empty() ? "serial number " + serial : identity;
}

// ---- Places -----------------------------------------------------------------------------------

captured_lun lun_of(const capture_json &lun, const capture_json &devices)
{
    const capture_json &device = member_or_null(lun, "device");
    const capture_json &unit =
        device.is_string() ? devices[device.get_ref<const std::string &>()] : lun;
    return {&unit, &member_or_null(lun, "lun"), identity_of(unit)};
}

captured_port port_of(const capture_json &object, const capture_json &devices)
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

class failure_reader
{
  public:
    failure_reader(const capture_json &document, captured_host &host, const output_style &style)
        : failures_(document["failures"]), host_(host), style_(style)
    {
        // A port that went away meanwhile has no place.
        for (const capture_json &failure : failures_)
            if (is_about(failure, call_name::open_adapter) &&
                number_of(failure, "status") == VARNOK_STATUS_NOT_FOUND)
                if (const auto port = number_of(failure, "port"))
                    missing_.insert(*port);
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
    static bool is_about(const capture_json &failure, call_name call)
    {
        return failure["call"].get_ref<const std::string &>() == call_text(call);
    }

    captured_port *port_of(const capture_json &failure)
    {
        const auto number = number_of(failure, "port");
        if (!number || missing_.contains(*number))
            return nullptr;
        if (host_.ports.size() == 1)
            return host_.ports.data(); // the only one that was asked for, perhaps
        const auto before = std::distance(missing_.begin(), missing_.lower_bound(*number));
        const uint64_t place = *number - static_cast<uint64_t>(before);
        return place < host_.ports.size() ? &host_.ports[place] : nullptr;
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
    captured_host &host_;
    const output_style &style_;
    std::set<uint64_t> missing_;
};

} // namespace

std::string captured_text(const capture_json &value)
{
    if (value.is_null())
        return "";
    if (value.is_string())
        return value.get<std::string>();
    if (!value.is_array() || !std::ranges::all_of(value, is_byte))
        return value.dump();
    std::string text;
    for (const capture_json &byte : value)
        text += static_cast<char>(byte.get<uint8_t>());
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
    const capture_json &devices = member_or_null(document, "devices");
    for (const capture_json &port : document["ports"])
        host.ports.push_back(port_of(port, devices));
    failure_reader(document, host, style).read();
    return host;
}

} // namespace ctl
