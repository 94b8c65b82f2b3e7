// Reads a host's adapters through the library.
#pragma once

#include "varnokctl/choice.h"
#include "varnokctl/model.h"
#include "varnokctl/progress.h"

#include <cstdint>
#include <cstdio>
#include <optional>

namespace ctl
{

// What a command needs besides the ports themselves. LUNs are found by their targets.
enum need : unsigned {
    need_ports = 0,
    need_portals = 1,
    need_sessions = 2,
    need_targets = 4,
    need_luns = 8 | need_targets,
    need_identities = 16 | need_luns, // of the LUNs, as lists show them
    need_all_designators = 32 | need_identities,
};

struct inventory_request {
    unsigned needs = need_ports;
    port_choice port;
    target_choice target;
};

// Loads the library, reads what is asked for and frees the library again. Calls that fail go to the
// inventory's failures; what else was read is kept. The line shows progress while LUNs are read.
inventory read_host(const inventory_request &request, progress line = progress(stderr));

} // namespace ctl
