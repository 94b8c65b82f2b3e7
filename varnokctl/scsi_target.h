// Which target a SCSI command goes to, where it is named.
#pragma once

#include "varnokctl/scsi_command.h"

#include <vector>

namespace ctl
{

// Puts the numbers of the port and of the target into the request. Names are looked for among what
// the host has. Returns whether there is just one such target. If not, a failure says so.
bool find_target(scsi_options &options, std::vector<failed_call> &failures);

} // namespace ctl
