// What was read of a host, in the library's own records.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <varnok_mgmt.h>

#include "varnokctl/failure.h"

namespace ctl
{

struct session {
    uint32_t target; // number of the port's target that the session leads to
    VARNOK_SESS_INFO info;
};

struct target {
    VARNOK_TGT_INFO info;
    std::vector<VARNOK_LUN_INFO> luns;
};

struct port {
    uint32_t instance = 0;
    std::optional<VARNOK_PHY_PORT_INFO> info{}; // absent when the port could not be opened or read
    std::optional<VARNOK_ISCSI_PORTAL> portal{};
    std::vector<session> sessions{};
    std::vector<target> targets{};
};

struct host {
    std::vector<port> ports;
    std::vector<failed_call> failures;
};

} // namespace ctl
