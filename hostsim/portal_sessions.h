// portal_sessions.h - the sessions of a port that stands on a real portal.
#pragma once

#include "records/varnok_driver_records.h"
#include "scenario.h"

#include <cstdint>

namespace hostsim
{

// Gives the port the sessions that its portal offers now. Returns 0, or an errno: then the sessions
// stay as they are.
int refresh_sessions_from_portal(const port &p);

// The record of such a session. What is not known is zero: all but the names while the target is
// not logged in.
varnok_drv_session_info real_session_record(const port &p, const real_target &target,
                                            uint32_t number);

} // namespace hostsim
