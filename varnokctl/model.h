// What was read of a host, in the library's own records.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <varnok_mgmt.h>

#include "varnokctl/failure.h"

namespace ctl
{

struct session_entry {
    uint32_t target; // number of the port's target that the session leads to
    VARNOK_SESS_INFO info;
};

struct target_entry {
    VARNOK_TGT_INFO info;
    std::vector<VARNOK_LUN_INFO> luns;
};

struct port_entry {
    uint32_t instance = 0;
    std::optional<VARNOK_PHY_PORT_INFO> info{}; // absent when the port could not be opened or read
    std::optional<VARNOK_ISCSI_PORTAL> portal{};
    std::vector<session_entry> sessions{};
    std::vector<target_entry> targets{};
};

struct inventory {
    std::vector<port_entry> ports;
    std::vector<failed_call> failures;
};

} // namespace ctl
