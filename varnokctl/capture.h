// A host as it was read, as a scenario that the simulated host runs.
#pragma once

#include "varnokctl/fields.h"

namespace ctl
{

// Ports, sessions and LUNs in the order of their numbers. A port that could not be read fails in
// the scenario, too. The document notes the failures as any other does.
json capture_document(const inventory &host);

} // namespace ctl
