// portal_sessions.h - the sessions of a port that stands on a real portal.
#pragma once

#include "scenario.h"

namespace hostsim
{

// Makes the port's sessions those that its portal offers now. Returns 0, or why the portal does not
// answer; then the sessions stay as they are.
int refresh_sessions_from_portal(const port &p);

} // namespace hostsim
