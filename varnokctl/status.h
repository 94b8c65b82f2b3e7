// What a failed call means and what to do about it.
#pragma once

#include <string>

#include "varnokctl/model.h"

namespace ctl
{

struct advice {
    std::string name; // "VARNOK_STATUS_DRIVER_6", or "EIO" for an error number of the system
    std::string number;
    std::string meaning;
    std::string next;
};

advice advice_on(const failure &failure);

// "VARNOK_GetLunInfo, port 0, target 2: VARNOK_STATUS_DRIVER_6 (0x80000006): driver status 6"
std::string failure_text(const failure &failure);

} // namespace ctl
