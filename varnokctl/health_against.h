// What a host has lost since it was captured.
#pragma once

#include "varnokctl/health.h"

namespace ctl
{

// When the capture or the host cannot be read, nothing is compared. A failure of the host says why.
lost_parts lost_since(const std::string &capture, inventory &host, const output_style &style);

} // namespace ctl
