#include "varnokctl/metrics.h"

#include "varnokctl/fields.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/metrics_reading.h"
#include "varnokctl/metrics_things.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <initializer_list>
#include <optional>

namespace ctl
{
namespace
{

constexpr output_style style = {.utf8 = true};

template <class Thing>
struct thing_metric {
    metric_family family;
    std::optional<uint64_t> (*value)(const Thing &); // nothing when it is not known
};

template <class Thing, size_t Count>
void add_all(metric_text &text, const thing_metric<Thing> (&metrics)[Count],
             const std::vector<Thing> &things)
{
    for (const auto &[family, value] : metrics) {
        text.begin(family);
        for (const Thing &thing : things)
            if (const std::optional<uint64_t> known = value(thing))
                text.add(thing.labels, *known);
    }
}

std::optional<uint64_t> unless_zero(uint64_t value)
{
    return value == 0 ? std::nullopt : std::optional(value);
}

// The fields of these keys, as the lists and documents have them.
label_set with_fields(label_set labels, const record_kind &kind, const listed_record &record,
                      std::initializer_list<std::string_view> keys)
{
    for (const std::string_view key : keys) {
        const auto found = std::ranges::find(kind.fields, key, &record_field::key);
        labels.add(key, text_of(*found, record, style));
    }
    return labels;
}

// ---- Ports ------------------------------------------------------------------------------------

constexpr metric_family port_info = {"varnok_port_info", "", "What a port is, and its number now."};
constexpr metric_family port_address = {"varnok_port_address_info", "", "An IP address of a port."};

constexpr thing_metric<labelled_port> port_metrics[] = {
    {{"varnok_port_up", "", "Whether the link is online. Left out in a state that has no name."},
     [](const labelled_port &one) -> std::optional<uint64_t> {
         const uint32_t state = one.port->info->PortState;
         if (state != VARNOK_PORT_STATE_0 && state != VARNOK_PORT_STATE_1)
             return {};
         return state == VARNOK_PORT_STATE_0 ? 1 : 0;
     }},
    {{"varnok_port_speed_bytes_per_second", "bytes_per_second", "Speed of the link."},
     [](const labelled_port &one) {
         return unless_zero(bits_per_second(one.port->info->PortSpeed) / 8);
     }},
    {{"varnok_port_mtu_bytes", "bytes", "Largest packet that the port sends."},
     [](const labelled_port &one) { return unless_zero(one.port->info->MTU); }},
    {{"varnok_port_sessions", "", "Sessions that the driver counts on a port."},
     [](const labelled_port &one) { return std::optional<uint64_t>(one.port->info->SessCount); }},
    {{"varnok_port_targets", "", "Targets that a port lists."},
     [](const labelled_port &one) -> std::optional<uint64_t> {
         if (one.port->targets_unread)
             return {};
         return one.port->targets.size();
     }},
};

void add_ports(metric_text &text, const std::vector<labelled_port> &ports)
{
    text.begin(port_info);
    for (const auto &[port, labels] : ports)
        text.add(with_fields(labels, port_kind, {.port = port->instance, .info = &*port->info},
                             {"port", "name", "model", "serial_number", "driver", "driver_version",
                              "firmware", "management_firmware", "pci_address", "physical_port"}),
                 1);
    add_all(text, port_metrics, ports);
    text.begin(port_address);
    for (const auto &[port, labels] : ports) {
        if (!port->portal)
            continue;
        const auto add = [&text, &plain = labels](const char *family, const std::string &address) {
            label_set all = plain;
            if (!address.empty())
                text.add(all.add("family", family).add("address", address), 1);
        };
        add("ipv4", ip_address(port->portal->IPv4Addr));
        add("ipv6", ip_address(port->portal->IPv6Addr));
    }
}

// ---- Sessions and targets ---------------------------------------------------------------------

constexpr metric_family session_info = {"varnok_session_info", "",
                                        "Who talks to whom in a session."};
constexpr metric_family target_info = {"varnok_target_info", "",
                                       "Where a target is, and its number now."};

constexpr thing_metric<labelled_session> session_metrics[] = {
    {{"varnok_session_up", "", "Whether a session is logged in. Left out in another state."},
     [](const labelled_session &one) -> std::optional<uint64_t> {
         const uint8_t state = one.session->info.SessionState;
         if (session_state(state).empty())
             return {};
         return state == session_logged_in ? 1 : 0;
     }},
};

constexpr thing_metric<labelled_target> target_metrics[] = {
    {{"varnok_target_luns", "", "LUNs that a target counts."},
     [](const labelled_target &one) -> std::optional<uint64_t> {
         if (!one.target->is_counted)
             return {};
         return one.target->info.LunCount;
     }},
};

void add_targets(metric_text &text, const labelled_things &things)
{
    text.begin(session_info);
    for (const auto &[port, session, labels] : things.sessions)
        text.add(with_fields(labels, session_kind, {.port = port->instance, .session = session},
                             {"initiator_name", "address"}),
                 1);
    add_all(text, session_metrics, things.sessions);
    text.begin(target_info);
    for (const auto &[port, target, labels] : things.targets) {
        label_set all = labels;
        all.add("number", std::to_string(+target->info.ScsiTgtNum));
        text.add(with_fields(all, target_kind, {.port = port->instance, .target = &target->info},
                             {"address"}),
                 1);
    }
    add_all(text, target_metrics, things.targets);
}

// ---- LUNs and devices -------------------------------------------------------------------------

constexpr metric_family lun_info = {"varnok_lun_info", "", "Which device a LUN is."};
constexpr metric_family lun_readable = {
    "varnok_lun_readable", "", "Whether a LUN tells what it is. Left out when it was not asked."};
constexpr metric_family device_info = {"varnok_device_info", "", "What a device is."};

constexpr thing_metric<labelled_device> device_metrics[] = {
    {{"varnok_device_capacity_bytes", "bytes", "Size of a device by the first path that tells it."},
     [](const labelled_device &one) -> std::optional<uint64_t> {
         for (const device_path &path : one.device->paths)
             if (path.lun->info.Capacity != 0)
                 return path.lun->info.Capacity;
         return {};
     }},
    {{"varnok_device_paths", "", "Paths to a device."},
     [](const labelled_device &one) { return std::optional<uint64_t>(one.device->paths.size()); }},
    {{"varnok_device_paths_working", "",
      "Paths to a device of which nothing says that they are down."},
     [](const labelled_device &one) {
         const auto working = std::ranges::count_if(one.device->paths, path_works);
         return std::optional(static_cast<uint64_t>(working));
     }},
};

void add_luns(metric_text &text, const labelled_things &things, const health_report &report)
{
    text.begin(lun_info);
    for (const auto &[port, target, lun, labels] : things.luns)
        text.add(with_fields(labels, lun_kind, record_of(*lun, *target, port->instance), {"wwid"}),
                 1);
    const unreadable_luns unreadable(report);
    text.begin(lun_readable);
    for (const auto &[port, target, lun, labels] : things.luns)
        if (unreadable.contains(*port, *target, *lun))
            text.add(labels, 0);
        else if (lun->is_known && lun->identity)
            text.add(labels, 1);
    text.begin(device_info);
    for (const auto &[device, labels] : things.devices) {
        const auto known = std::ranges::find_if(
            device->paths, [](const device_path &path) { return path.lun->is_known; });
        if (known != device->paths.end())
            text.add(
                with_fields(labels, lun_kind,
                            record_of(*known->lun, *known->target, known->port->instance),
                            {"type", "vendor", "product", "revision", "serial", "provisioning"}),
                1);
    }
    add_all(text, device_metrics, things.devices);
}

} // namespace

std::string metrics_text(const examined_host &examined, const host_reading &reading)
{
    const health_report report = judge(examined, {});
    const labelled_things things = label_things(examined.host, examined.devices);
    metric_text text;
    add_reading(text, examined, reading, report);
    add_ports(text, things.ports);
    add_targets(text, things);
    add_luns(text, things, report);
    add_health(text, examined, reading, report);
    return text.finish();
}

} // namespace ctl
