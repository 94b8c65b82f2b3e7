// What the library's lists leave open: whether a target has no LUNs or does not answer, and what a
// LUN is whose own answers are missing.
#pragma once

#include "varnokctl/device.h"
#include "varnokctl/model.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace ctl
{

// How the detail of a failure begins after which a LUN is not known.
constexpr std::string_view says_not_what_it_is = "it does not say what it is";

// How many LUNs the target counts. Nothing when it does not say. Then the failure is added to the
// others, as one of the library's call that lists them.
std::optional<uint32_t> count_luns(const open_target &where, call_name lists,
                                   std::vector<failed_call> &failures);

// Asks for the names, the type and the capacity again where they are missing. Failures are added to
// the others. Returns whether it is worth while to ask the target's other LUNs.
bool complete_lun(const open_target &where, lun_entry &lun, std::vector<failed_call> &failures);

} // namespace ctl
