// A captured host as if it were read: what works on a live host works on its capture.
#pragma once

#include "varnokctl/capture_file.h"
#include "varnokctl/model.h"

namespace ctl
{

// What could not be read when the host was captured is among the failures. Throws a capture_error
// when a value fits no record, or when one is missing that no host leaves out.
inventory host_of(const capture_json &document);

} // namespace ctl
