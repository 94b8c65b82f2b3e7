#include "varnokctl/metrics_things.h"

#include "varnokctl/lun_address.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace ctl
{
namespace
{

constexpr output_style style = {.utf8 = true};

label_set port_labels(const port_entry &port)
{
    const auto &mac = port.info->MAC;
    const bool is_told = std::ranges::any_of(mac, [](uint8_t byte) { return byte != 0; });
    return label_set().add("mac", is_told ? hex_bytes(mac, ":") : "");
}

label_set named(label_set labels, std::span<const uint8_t> name)
{
    return labels.add("target", field_text(name, style));
}

} // namespace

labelled_things label_things(const inventory &host, const std::vector<device_entry> &devices)
{
    labelled_things things;
    distinct_labels ports("port_duplicate"), sessions("target_duplicate"),
        targets("target_duplicate"), luns("lun_duplicate"), names("device_duplicate");
    std::unordered_map<const lun_entry *, size_t> places;
    for (const port_entry &port : host.ports) {
        if (!port.info)
            continue; // nothing of it was read, its name neither
        const label_set labels = port_labels(port);
        things.ports.push_back({&port, ports.of(labels)});
        for (const session_entry &session : port.sessions)
            things.sessions.push_back(
                {&port, &session, sessions.of(named(labels, session.info.TargetName))});
        for (const target_entry &target : port.targets) {
            const label_set target_labels = targets.of(named(labels, target.info.TargetName));
            things.targets.push_back({&port, &target, target_labels});
            for (const lun_entry &lun : target.luns) {
                places[&lun] = things.luns.size();
                label_set lun_labels = target_labels;
                lun_labels.add("lun", lun_number(levels_of(lun.info)));
                things.luns.push_back({&port, &target, &lun, luns.of(std::move(lun_labels))});
            }
        }
    }
    for (const device_entry &device : devices)
        things.devices.push_back(
            {&device, device.name.empty() ? things.luns[places.at(device.paths.front().lun)].labels
                                          : names.of(label_set().add("wwid", device.name))});
    return things;
}

} // namespace ctl
