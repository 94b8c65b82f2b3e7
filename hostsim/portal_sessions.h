// portal_sessions.h - the sessions of a port that stands on a real portal.
#pragma once

#include "scenario.h"

namespace hostsim
{

// Gives the port the sessions that its portal offers now. Returns 0, or an errno: then the sessions
// stay as they are.
int refresh_sessions_from_portal(const port &p);

} // namespace hostsim
