// The devices of a host with their paths, for the eye and for a program.
#pragma once

#include "varnokctl/model.h"
#include "varnokctl/text.h"

#include <string>

namespace ctl
{

// A block for each device, with a row for each path. LUNs whose device is not known stand alone.
std::string paths_text(const inventory &host, const output_style &style);

std::string paths_document(const inventory &host, bool ascii);

} // namespace ctl
