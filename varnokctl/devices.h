// The devices behind a host's ports, each with all its paths.
#pragma once

#include "varnokctl/model.h"
#include "varnokctl/networks.h"
#include "varnokctl/text.h"

#include <string>
#include <vector>

namespace ctl
{

struct device_path {
    const port_entry *port;
    const target_entry *target;
    const lun_entry *lun;
    const session_entry *session; // null when it was not read
};

// Whether nothing says that the path is down.
bool path_works(const device_path &path);

// "logged in"; "port offline" when that is why. Empty when it is not known.
std::string path_state(const device_path &path);

struct device_note {
    const char *rule; // of the health check that finds the same
    std::string text;
};

struct device_entry {
    std::string name; // what identifies it; empty when that is not known, and it has one path then
    std::vector<device_path> paths;
    std::vector<device_note> notes; // what is wrong with it
};

constexpr const char *single_path_rule = "single-path";
constexpr const char *paths_disagree_rule = "paths-disagree";
constexpr const char *lun_differs_rule = "lun-differs";

// In the order of their first paths.
std::vector<device_entry> devices_of(const inventory &host, const port_places &places,
                                     const output_style &style);

} // namespace ctl
