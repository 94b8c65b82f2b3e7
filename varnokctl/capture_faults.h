// The faults of a captured host: they make what could not be read fail as it did.
#pragma once

#include "varnokctl/json.h"
#include "varnokctl/model.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace ctl
{

// Adds the faults of a port, which is the driver's port with this number.
void add_faults(json &faults, const port_entry &port, const std::vector<failed_call> &failures,
                std::string_view driver, uint32_t instance);

} // namespace ctl
