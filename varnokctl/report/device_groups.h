// Devices that are reached by the same paths stand together.
#pragma once

#include "varnokctl/devices.h"

#include <string>
#include <vector>

namespace ctl
{

struct device_group {
    std::vector<device_path> paths; // of the first device; the others differ in the LUN alone
    std::vector<const device_entry *> devices;
};

// In the order of their first devices.
std::vector<device_group> groups_of(const std::vector<device_entry> &devices);

// "1 of 2 paths works"
std::string paths_text(const device_group &group);

bool all_paths_work(const device_group &group);

struct capacity {
    uint64_t bytes = 0;
    bool at_least = false; // not every size is known
};

// "4.4 TiB", "at least 4.4 TiB"; empty when nothing is known.
std::string capacity_text(const capacity &sum);

// Each device counts once.
capacity capacity_of(const std::vector<const device_entry *> &devices);

} // namespace ctl
