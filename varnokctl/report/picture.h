// The host's ports, targets and devices as a picture.
#pragma once

#include "varnokctl/report/device_groups.h"
#include "varnokctl/report/finding_marks.h"

#include <string>
#include <vector>

namespace ctl
{

// In HTML. Of a large host the picture shows the first of each, and says how many it does not show.
std::string picture_of(const examined_host &examined, const std::vector<device_group> &groups,
                       const finding_marks &marks, const std::string &id);

} // namespace ctl
