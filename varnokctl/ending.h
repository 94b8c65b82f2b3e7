// How the tool ends.
#pragma once

#include <string>

#include "varnokctl/model.h"

namespace ctl
{

enum ending { all_well = 0, refused = 1, usage = 2, partial = 3, no_host = 4 };

// How a host's reading ended.
ending ending_of(const inventory &host);

// Every ending, a line each, for the help.
std::string endings_text();

} // namespace ctl
