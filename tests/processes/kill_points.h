// kill_points.h - ends or stops this process at a call that the library makes of the platform.
#pragma once

#include <string>

namespace kill_points
{

// At the nth call of that name, "*" for any, this process says where it is and sends itself the signal.
void arm(const std::string &call, long nth, int signal);

// Counts a call; loading and freeing the library count as calls, too.
void pass(const char *call);

} // namespace kill_points
