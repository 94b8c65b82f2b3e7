// Sense data in words.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ctl
{

struct sense_data {
    bool descriptors; // in the descriptor format, else in the fixed one
    bool deferred;    // about an earlier command; this one was not begun
    uint8_t key, asc, ascq;
    std::span<const uint8_t> raw; // as long as the data say
};

// Nothing when the buffer holds no sense data.
std::optional<sense_data> decode_sense(std::span<const uint8_t> buffer);

// Whether the device carried the command out all the same.
bool harmless(const sense_data &sense);

// "not ready: becoming ready"; the numbers where there are no words.
std::string cause_text(const sense_data &sense);

std::string key_text(const sense_data &sense);  // "illegal request"
std::string code_text(const sense_data &sense); // "logical unit not supported"; empty when unknown

} // namespace ctl
