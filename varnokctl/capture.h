// A host as it was read, as a scenario that the simulated host runs.
#pragma once

#include "varnokctl/model.h"

#include <string>

namespace ctl
{

// Ports, sessions and LUNs keep their order. What could not be read gets a fault that makes it
// fail the same way.
std::string capture_document(const inventory &host, bool ascii);

} // namespace ctl
