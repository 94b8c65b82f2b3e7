// Whether a rule without a finding means that all is well.
#pragma once

#include "varnokctl/health.h"

namespace ctl
{

// Whether the rule looked at all that it has to look at. What was asked for is a sum of enum need and
// compared_capture.
bool is_wholly_judged(const health_rule &rule, const examined_host &examined, unsigned asked);

} // namespace ctl
