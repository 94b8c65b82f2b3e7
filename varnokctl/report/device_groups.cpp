#include "varnokctl/report/device_groups.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <utility>

namespace ctl
{

std::vector<device_group> groups_of(const std::vector<device_entry> &devices)
{
    std::vector<device_group> groups;
    std::map<std::vector<std::pair<const port_entry *, const target_entry *>>, size_t> known;
    for (const device_entry &device : devices) {
        decltype(known)::key_type way;
        for (const device_path &path : device.paths)
            way.emplace_back(path.port, path.target);
        const auto [found, is_new] = known.try_emplace(way, groups.size());
        if (is_new)
            groups.push_back({device.paths, {}});
        groups[found->second].devices.push_back(&device);
    }
    return groups;
}

bool all_paths_work(const device_group &group)
{
    return std::ranges::all_of(group.paths, path_works);
}

std::string paths_text(const device_group &group)
{
    const auto working = std::ranges::count_if(group.paths, path_works);
    std::string all = counted(group.paths.size(), "path");
    if (all_paths_work(group))
        return all;
    return working == 0 ? fmt::format("none of {} works", all)
                        : fmt::format("{} of {} {}", working, all, working == 1 ? "works" : "work");
}

std::string capacity_text(const capacity &sum)
{
    const std::string size = size_text(sum.bytes);
    return sum.at_least && !size.empty() ? "at least " + size : size;
}

capacity capacity_of(const std::vector<const device_entry *> &devices)
{
    constexpr uint8_t disk = 0;
    capacity sum;
    for (const device_entry *device : devices) {
        const lun_entry &lun = *device->paths.front().lun;
        sum.bytes += lun.info.Capacity;
        sum.at_least |= !lun.is_known || (lun.info.DeviceType == disk && lun.info.Capacity == 0);
    }
    return sum;
}

} // namespace ctl
