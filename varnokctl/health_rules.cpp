// The rules of the health check: the table, and what each of them looks at.
#include "varnokctl/health.h"

#include "varnokctl/inventory.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace ctl
{
namespace
{

using findings_list = std::vector<finding>;
using port_group = std::vector<const port_entry *>;
using port_groups = std::map<std::string, port_group>; // by what the ports have in common

// ---- What could not be read -------------------------------------------------------------------

enum class unread { host, port, target, lun, list };

unread what_is_unread(const failed_call &failure)
{
    if (!failure.port || failure.cause == failure_cause::no_such_port ||
        failure.cause == failure_cause::no_adapters)
        return unread::host;
    if (failure.cause == failure_cause::list_incomplete)
        return unread::list;
    if (failure.lun || failure.call == call_name::send_scsi_command)
        return unread::lun;
    const bool lists_targets =
        failure.call == call_name::get_session_info || failure.call == call_name::get_tgt_info;
    return failure.target || lists_targets ? unread::target : unread::port;
}

template <unread What>
void check_unread(const examined_host &examined, findings_list &found)
{
    for (const failed_call &failure : examined.host.failures)
        if (what_is_unread(failure) == What)
            found.push_back({.ports = {*failure.port},
                             .target = failure.target,
                             .lun = failure.lun,
                             .what = failure_text(failure, false)});
}

// A disk that does not tell its size is not ready. Its failure may say more.
void check_luns(const examined_host &examined, findings_list &found)
{
    constexpr uint8_t type_bits = 0x1F;
    check_unread<unread::lun>(examined, found);
    using place = std::tuple<uint32_t, uint32_t, lun_levels>;
    std::set<place> known;
    for (const finding &one : found)
        if (one.target && one.lun)
            known.emplace(one.ports.front(), *one.target, *one.lun);
    for (const port_entry &port : examined.host.ports)
        for (const target_entry &target : port.targets)
            for (const lun_entry &lun : target.luns) {
                const place where = {port.instance, target.info.ScsiTgtNum, levels_of(lun.info)};
                if ((lun.info.DeviceType & type_bits) != 0 || lun.info.Capacity != 0 ||
                    known.contains(where))
                    continue;
                found.push_back(
                    {.ports = {port.instance},
                     .target = target.info.ScsiTgtNum,
                     .lun = levels_of(lun.info),
                     .what = fmt::format("port {}, target {}, LUN {}: the disk tells no size",
                                         port.instance, +target.info.ScsiTgtNum,
                                         lun_number(levels_of(lun.info)))});
            }
}

// ---- Ports ------------------------------------------------------------------------------------

finding on_port(const examined_host &examined, const port_entry &port, const std::string &what)
{
    const std::string name = field_text(port.info->HbaName, examined.style);
    return {.ports = {port.instance},
            .what = fmt::format("port {}{}{}: {}", port.instance, name.empty() ? "" : ", ", name,
                                what)};
}

template <class Check>
void for_each_port(const examined_host &examined, const Check &check)
{
    for (const port_entry &port : examined.host.ports)
        if (port.info)
            check(port, *port.info);
}

void check_offline(const examined_host &examined, findings_list &found)
{
    for_each_port(examined, [&](const port_entry &port, const VARNOK_PHY_PORT_INFO &info) {
        if (info.PortState != VARNOK_PORT_STATE_0)
            found.push_back(on_port(examined, port, "link " + port_state(info.PortState)));
    });
}

void check_idle(const examined_host &examined, findings_list &found)
{
    for_each_port(examined, [&](const port_entry &port, const VARNOK_PHY_PORT_INFO &info) {
        if (info.PortState == VARNOK_PORT_STATE_0 && info.SessCount == 0)
            found.push_back(on_port(examined, port, "online without a session"));
    });
}

void check_speed(const examined_host &examined, findings_list &found)
{
    std::map<std::string, std::pair<uint64_t, const port_entry *>> fastest; // by the model
    const auto model_of = [&](const VARNOK_PHY_PORT_INFO &info) {
        return field_text(info.ModelName, examined.style);
    };
    for_each_port(examined, [&](const port_entry &port, const VARNOK_PHY_PORT_INFO &info) {
        auto &[speed, twin] = fastest[model_of(info)];
        if (info.PortState == VARNOK_PORT_STATE_0 && bits_per_second(info.PortSpeed) > speed) {
            speed = bits_per_second(info.PortSpeed);
            twin = &port;
        }
    });
    for_each_port(examined, [&](const port_entry &port, const VARNOK_PHY_PORT_INFO &info) {
        const std::string model = model_of(info);
        const auto &[speed, twin] = fastest[model];
        const uint64_t own = bits_per_second(info.PortSpeed);
        if (info.PortState == VARNOK_PORT_STATE_0 && own != 0 && own < speed && !model.empty())
            found.push_back(on_port(examined, port,
                                    fmt::format("{}; port {} of the same model, {}, has {}",
                                                port_speed(info.PortSpeed), twin->instance, model,
                                                port_speed(twin->info->PortSpeed))));
    });
}

// Compares each port with the first of its group. A pair of ports is found once.
void check_mtu(const examined_host &examined, findings_list &found)
{
    std::set<std::pair<uint32_t, uint32_t>> known;
    for (const auto &[place, ports] : examined.places.all())
        for (const port_entry *port : ports) {
            const port_entry &first = *ports.front();
            if (!first.info || !port->info || first.info->MTU == port->info->MTU ||
                !known.emplace(first.instance, port->instance).second)
                continue;
            found.push_back({.ports = {first.instance, port->instance},
                             .what = fmt::format("{}: MTU {} on port {}, {} on port {}", place,
                                                 +first.info->MTU, first.instance, +port->info->MTU,
                                                 port->instance)});
        }
}

// ---- What ports share -------------------------------------------------------------------------

std::vector<uint32_t> numbers_of(const port_group &ports)
{
    std::vector<uint32_t> numbers;
    for (const port_entry *port : ports)
        numbers.push_back(port->instance);
    return numbers;
}

void add_shared(const port_groups &groups, const char *what, findings_list &found)
{
    for (const auto &[value, ports] : groups)
        if (!value.empty() && ports.size() > 1)
            found.push_back({.ports = numbers_of(ports),
                             .what = fmt::format("{} {}: {}", what, value, port_list(ports))});
}

void check_addresses(const examined_host &examined, findings_list &found)
{
    port_groups groups;
    for (const port_entry &port : examined.host.ports)
        if (port.portal) {
            groups[ip_address(port.portal->IPv4Addr)].push_back(&port);
            groups[ip_address(port.portal->IPv6Addr)].push_back(&port);
        }
    add_shared(groups, "address", found);
}

void check_macs(const examined_host &examined, findings_list &found)
{
    port_groups groups;
    for_each_port(examined, [&](const port_entry &port, const VARNOK_PHY_PORT_INFO &info) {
        if (std::ranges::count(info.MAC, 0) != std::ssize(info.MAC))
            groups[hex_bytes(info.MAC, ":")].push_back(&port);
    });
    add_shared(groups, "MAC address", found);
}

void check_initiators(const examined_host &examined, findings_list &found)
{
    port_groups groups;
    for (const port_entry &port : examined.host.ports) {
        std::set<std::string> names;
        for (const session_entry &session : port.sessions)
            names.insert(field_text(session.info.InitiatorName, examined.style));
        for (const std::string &name : names)
            groups[name].push_back(&port);
    }
    add_shared(groups, "initiator name", found);
}

struct version_field {
    const char *what;
    std::string (*text)(const VARNOK_PHY_PORT_INFO &, const output_style &);
};

constexpr version_field versions[] = {
    {"firmware", [](const VARNOK_PHY_PORT_INFO &info,
                    const output_style &style) { return field_text(info.FWVersion, style); }},
    {"management firmware",
     [](const VARNOK_PHY_PORT_INFO &info, const output_style &style) {
         return field_text(info.MFWVersion, style);
     }},
    {"driver version",
     [](const VARNOK_PHY_PORT_INFO &info, const output_style &style) {
         return field_text(info.DriverVersion, style);
     }},
};

// What a port does not tell is not compared.
void check_versions(const examined_host &examined, findings_list &found)
{
    for (const auto &[what, text] : versions) {
        std::map<std::string, port_groups> models;
        for_each_port(examined,
                      [&, value = text](const port_entry &port, const VARNOK_PHY_PORT_INFO &info) {
                          const std::string version = value(info, examined.style);
                          const std::string model = field_text(info.ModelName, examined.style);
                          if (!version.empty() && !model.empty())
                              models[model][version].push_back(&port);
                      });
        for (const auto &[model, groups] : models) {
            if (groups.size() < 2)
                continue;
            finding &one = found.emplace_back(finding{.what = fmt::format("{}: {}", model, what)});
            const char *before = " ";
            for (const auto &[version, ports] : groups) {
                std::ranges::copy(numbers_of(ports), std::back_inserter(one.ports));
                one.what += fmt::format("{}{} on {}", before, version, port_list(ports));
                before = "; ";
            }
            std::ranges::sort(one.ports);
        }
    }
}

// ---- Sessions and devices ---------------------------------------------------------------------

void check_sessions(const examined_host &examined, findings_list &found)
{
    for (const port_entry &port : examined.host.ports)
        for (const auto &[target, info] : port.sessions) {
            if (info.SessionState == session_logged_in)
                continue;
            const std::string word = session_state(info.SessionState);
            found.push_back(
                {.ports = {port.instance},
                 .target = target,
                 .what = fmt::format("port {}, target {}, {}: {}", port.instance, target,
                                     field_text(info.TargetName, examined.style),
                                     word.empty() ? fmt::format("state {}", +info.SessionState)
                                                  : word)});
        }
}

template <const char *const &Rule>
void check_devices(const examined_host &examined, findings_list &found)
{
    for (const device_entry &device : examined.devices)
        for (const device_note &note : device.notes) {
            if (std::string_view(note.rule) != Rule)
                continue;
            std::set<uint32_t> ports;
            for (const device_path &path : device.paths)
                ports.insert(path.port->instance);
            // cppcheck-suppress uselessCallsConstructor; a false alarm
            found.push_back({.ports = {ports.begin(), ports.end()},
                             .device = device.name,
                             .what = fmt::format("{}: {}", device.name, note.text)});
        }
}

void check_gone(const examined_host &examined, findings_list &found)
{
    for (const std::string &what : examined.lost.gone)
        found.push_back({.what = what});
}

// ---- The table --------------------------------------------------------------------------------

constexpr health_status warning = health_status::warning, critical = health_status::critical;
constexpr unsigned all_of_host = need_portals | need_sessions | need_all_designators;

constexpr health_rule rules[] = {
    {"port-unreadable", critical, "a port that the library cannot open or read",
     "look in the system log for the adapter driver's messages", check_unread<unread::port>,
     need_portals},
    {"port-offline", critical, "a port whose link is not online",
     "check the cable and the port of the switch", check_offline, need_ports},
    {"session-not-logged-in", critical, "a session whose state is not 1, logged in",
     "see that the target is up, and that it accepts the initiator's name and secret",
     check_sessions, need_sessions},
    {"target-unreadable", critical, "targets or a target's LUNs that cannot be listed",
     "see that the target answers the host's other ports", check_unread<unread::target>,
     need_sessions | need_luns},
    {"lun-unreadable", critical,
     "a LUN that refuses to tell what it is, or a disk that tells no size: it is not ready",
     "see on the storage system that the volume is online", check_luns, need_identities},
    {paths_disagree_rule, critical, "a device that has another size or block size on another path",
     "rescan the host's storage; write nothing to the device before its paths agree",
     check_devices<paths_disagree_rule>, need_identities},
    {"duplicate-address", critical, "an IP address that several ports have",
     "give each port an address of its own", check_addresses, need_portals},
    {"duplicate-mac", critical, "a MAC address that several ports have",
     "restore the adapters' own MAC addresses", check_macs, need_ports},
    {gone_rule, critical,
     "a port, target or device that an earlier capture has and the host has no more",
     "bring it back, or take a new capture if it was removed on purpose", check_gone,
     all_of_host | compared_capture},
    {"list-incomplete", warning, "a target that counts more LUNs than the library lists",
     "repeat the command; of more than 2047 LUNs only the first are listed",
     check_unread<unread::list>, need_luns},
    {single_path_rule, warning,
     "a device with one path although more ports lead there, or with one working path of several",
     "log in from the other ports, or present the device to them", check_devices<single_path_rule>,
     need_portals | need_sessions | need_identities},
    {lun_differs_rule, warning, "a LUN of one target that is another device by another path",
     "see on the storage system which volumes it presents to which initiator",
     check_devices<lun_differs_rule>, need_identities},
    {"link-slower-than-twin", warning,
     "an online port that is slower than another of the same adapter model",
     "check the cable, the optics and the speed that the switch allows", check_speed, need_ports},
    {"port-up-without-sessions", warning, "an online port that has no session",
     "see that the port's targets are configured and can be reached", check_idle, need_ports},
    {"mtu-differs", warning, "ports that lead to one network or target with different MTUs",
     "set the same MTU on the ports, the switches and the target", check_mtu,
     need_portals | need_sessions | need_targets},
    {"duplicate-initiator-name", warning, "an initiator name that several ports log in with",
     "give each port a name of its own, unless they are meant to share it", check_initiators,
     need_sessions},
    {"firmware-differs", warning,
     "adapters of one model with different versions of the firmware or the driver",
     "bring the adapters to the same versions", check_versions, need_ports},
};

} // namespace

std::span<const health_rule> health_rules() { return rules; }

const health_rule *find_rule(std::string_view name)
{
    const auto *found = std::ranges::find(rules, name, &health_rule::name);
    return found == std::end(rules) ? nullptr : found;
}

std::string rule_names()
{
    std::string names;
    for (const health_rule &rule : rules)
        names += (names.empty() ? "" : ", ") + std::string(rule.name);
    return names;
}

const health_rule *rule_of(const failed_call &failure)
{
    switch (what_is_unread(failure)) {
    case unread::host:
        return nullptr;
    case unread::port:
        return find_rule("port-unreadable");
    case unread::target:
        return find_rule("target-unreadable");
    case unread::lun:
        return find_rule("lun-unreadable");
    case unread::list:
        return find_rule("list-incomplete");
    }
    return nullptr;
}

} // namespace ctl
