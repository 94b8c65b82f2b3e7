// How much data a command moves, by its bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace ctl
{

struct transfer_length {
    uint64_t count;
    bool in_blocks; // else in bytes
};

// Of a command that is known to return data. Nothing for any other.
std::optional<transfer_length> data_in_of(std::span<const uint8_t> cdb);

} // namespace ctl
