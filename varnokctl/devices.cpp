#include "varnokctl/devices.h"

#include "varnokctl/fields.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <utility>

namespace ctl
{
namespace
{

// ---- Notes ------------------------------------------------------------------------------------

using port_list_by_target = std::map<const target_entry *, std::vector<const port_entry *>>;

// The others are kept by the target, because many devices share it.
// Ports that were not wholly read are left out: the device may be behind them.
void note_single_path(device_entry &device, const inventory &host, const port_places &places,
                      port_list_by_target &others)
{
    const auto working = std::ranges::count_if(device.paths, path_works);
    if (device.paths.size() > 1) {
        if (working <= 1)
            device.notes.push_back(
                {single_path_rule, fmt::format("{} of {} paths works", working == 0 ? "none" : "1",
                                               device.paths.size())});
        return;
    }
    const auto &[port, target, lun, session] = device.paths.front();
    const auto [found, is_new] = others.try_emplace(target);
    if (is_new) {
        found->second = places.others(*port, *target);
        std::erase_if(found->second, [&](const port_entry *other) {
            const std::optional number = other->instance;
            return std::ranges::find(host.failures, number, &failed_call::port) !=
                   host.failures.end();
        });
    }
    if (!found->second.empty())
        device.notes.push_back(
            {single_path_rule,
             fmt::format("one path, by port {}; {} {} there, too", port->instance,
                         port_list(found->second), found->second.size() == 1 ? "leads" : "lead")});
}

uint64_t size_by(const device_path &path) { return path.lun->info.Capacity; }

uint64_t block_size_by(const device_path &path)
{
    const auto &identity = path.lun->identity;
    return identity && identity->blocks ? identity->blocks->logical : 0;
}

// 0 stands for what is not known.
void note_difference(device_entry &device, const char *what, uint64_t (*value)(const device_path &))
{
    const device_path *first = nullptr;
    for (const device_path &path : device.paths) {
        if (value(path) == 0)
            continue;
        if (first == nullptr) {
            first = &path;
        } else if (value(path) != value(*first)) {
            device.notes.push_back(
                {paths_disagree_rule,
                 fmt::format("the paths disagree in {}: {} B by port {}, {} B by port {}", what,
                             value(*first), first->port->instance, value(path),
                             path.port->instance)});
            return;
        }
    }
}

// One LUN of one target that is another device by another port.
void note_two_devices(std::vector<device_entry> &devices, const output_style &style)
{
    using lun_of_target = std::pair<std::string, lun_levels>;
    std::map<lun_of_target, std::vector<std::pair<device_entry *, const device_path *>>> seen;
    for (device_entry &device : devices)
        for (const device_path &path : device.paths) {
            const std::string target = field_text(path.target->info.TargetName, style);
            if (!device.name.empty() && !target.empty())
                seen[{target, levels_of(path.lun->info)}].emplace_back(&device, &path);
        }
    for (const auto &[lun, places] : seen) {
        const auto &first = places.front();
        const auto second =
            std::ranges::find_if(places, [&](const auto &p) { return p.first != first.first; });
        if (second == places.end())
            continue;
        for (const auto &[device, path] : places) {
            const auto &other = device == first.first ? *second : first;
            device->notes.push_back(
                {lun_differs_rule,
                 fmt::format("LUN {} of {} is this device by port {}, and {} by port {}",
                             lun_number(lun.second), lun.first, path->port->instance,
                             other.first->name, other.second->port->instance)});
        }
    }
}

} // namespace

bool path_works(const device_path &path)
{
    const bool down = path.port->info && path.port->info->PortState == VARNOK_PORT_STATE_1;
    return !down &&
           (path.session == nullptr || path.session->info.SessionState == session_logged_in);
}

std::string path_state(const device_path &path)
{
    if (path.port->info && path.port->info->PortState == VARNOK_PORT_STATE_1)
        return "port offline";
    if (path.session == nullptr)
        return "";
    const std::string word = session_state(path.session->info.SessionState);
    return word.empty() ? fmt::to_string(+path.session->info.SessionState) : word;
}

std::vector<device_entry> devices_of(const inventory &host, const port_places &places,
                                     const output_style &style)
{
    std::vector<device_entry> devices;
    std::map<std::string, size_t> known;
    for (const port_entry &port : host.ports)
        for (const target_entry &target : port.targets) {
            std::set<std::pair<size_t, lun_levels>> listed; // a target may list a LUN twice
            for (const lun_entry &lun : target.luns) {
                const device_path path = {&port, &target, &lun,
                                          session_of(port, target.info.ScsiTgtNum)};
                std::string name = lun.identity ? wwid(*lun.identity) : "";
                if (!name.empty()) {
                    const auto [found, is_new] = known.emplace(name, devices.size());
                    const bool is_listed =
                        !listed.emplace(found->second, levels_of(lun.info)).second;
                    if (!is_new) {
                        if (!is_listed)
                            devices[found->second].paths.push_back(path);
                        continue;
                    }
                }
                devices.push_back({std::move(name), {path}, {}});
            }
        }
    port_list_by_target others;
    for (device_entry &device : devices) {
        if (!device.name.empty())
            note_single_path(device, host, places, others);
        note_difference(device, "size", size_by);
        note_difference(device, "block size", block_size_by);
    }
    note_two_devices(devices, style);
    return devices;
}

} // namespace ctl
