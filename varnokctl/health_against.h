// What a host has lost since it was captured.
#pragma once

#include "varnokctl/capture_diff.h"
#include "varnokctl/health.h"

namespace ctl
{

// What a comparison says of the host before.
lost_parts lost_in(const capture_comparison &comparison);

// When the capture or the host cannot be read, nothing is compared. A failure of the host says why.
lost_parts lost_since(const std::string &capture, inventory &host, const output_style &style);

} // namespace ctl
