// Asks a device itself. The library does not tell whether a command ended with sense data.
#pragma once

#include "varnokctl/failure.h"
#include "varnokctl/scsi.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <varnok.hpp>
#include <vector>

namespace ctl
{

struct open_target {
    const varnok::port &on;
    uint32_t port, target;
};

enum class refusal { none, no_medium, unknown_command, illegal_request, other };

struct device_answer {
    std::vector<uint8_t> data; // as long as there was room; empty after a failure
    refusal refused = refusal::none;
    std::optional<failed_call> failure{}; // says why in words
};

// Reads data from a LUN. What a device says about something else is no answer: then the command is
// sent again, a few times.
device_answer ask_device(const open_target &where, const lun_levels &lun,
                         std::initializer_list<uint8_t> cdb, size_t room);

} // namespace ctl
