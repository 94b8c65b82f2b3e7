// What was read of a host, in the library's own records.
#pragma once

#include "varnok_mgmt.h"
#include "varnokctl/failure.h"
#include "varnokctl/identity.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace ctl
{

// The library lists no more LUNs of a target, however many the target counts.
constexpr uint32_t most_listed_luns = 2047;

struct session_entry {
    uint32_t target; // the number of the target that the session leads to
    VARNOK_SESS_INFO info;
};

struct lun_entry {
    VARNOK_LUN_INFO info;
    std::optional<lun_identity> identity{}; // only when it was asked for and could be read
    bool is_known = true;                   // else the device does not say what it is
};

struct target_entry {
    VARNOK_TGT_INFO info;
    std::vector<lun_entry> luns{};
    bool is_counted = true; // else the target does not say how many LUNs it has
};

struct port_entry {
    uint32_t instance = 0;
    std::optional<VARNOK_PHY_PORT_INFO> info{}; // absent when the port could not be read
    std::optional<VARNOK_ISCSI_PORTAL> portal{};
    std::vector<session_entry> sessions{};
    std::vector<target_entry> targets{};
    bool sessions_unread = false; // none could be listed
    bool targets_unread = false;
};

struct inventory {
    std::vector<port_entry> ports;
    std::vector<failed_call> failures;
};

} // namespace ctl
