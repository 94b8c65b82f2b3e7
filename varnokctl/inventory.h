// Reads a host's adapters through the library.
#pragma once

#include <cstdint>
#include <optional>

#include "varnokctl/model.h"
#include "varnokctl/progress.h"

namespace ctl
{

// What a command needs besides the ports themselves.
enum need : unsigned {
    need_ports = 0,
    need_portals = 1,
    need_sessions = 2,
    need_targets = 4,
    need_luns = 8 | need_targets,
};

struct inventory_request {
    unsigned needs = need_ports;
    std::optional<uint32_t> port; // only this one
    std::optional<uint32_t> target;
};

// Loads the library, reads what is asked for and frees the library again. A call that fails is
// noted in the host's failures; what was read before it is kept. While LUNs are read, the line
// tells how far that is; it is gone in the end.
inventory read_host(const inventory_request &ask, progress line = progress(stderr));

} // namespace ctl
