// Sense data in words.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ctl
{

struct sense_data {
    bool descriptors; // else in the fixed format
    bool deferred;    // of an earlier command; this one was not begun
    uint8_t key, asc, ascq;
    std::span<const uint8_t> raw; // as long as it says it is
};

// Nothing when the buffer holds no sense data.
std::optional<sense_data> decode_sense(std::span<const uint8_t> buffer);

// Whether the device carried the command out nevertheless.
bool harmless(const sense_data &sense);

std::string key_text(const sense_data &sense);  // "illegal request"
std::string code_text(const sense_data &sense); // "logical unit not supported"; empty when unknown

} // namespace ctl
