// The tool's exit statuses.
#pragma once

#include "varnokctl/model.h"

#include <string>

namespace ctl
{

enum ending { all_well = 0, refused = 1, usage = 2, partial = 3, no_host = 4 };

// The exit status after a host was read.
ending ending_of(const inventory &host);

// A line for each exit status, for the help.
std::string endings_text();

} // namespace ctl
