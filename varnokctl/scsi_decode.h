// The data of well-known commands in words.
#pragma once

#include "varnokctl/identity.h"
#include "varnokctl/json.h"
#include "varnokctl/scsi.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ctl
{

struct decoded_field {
    const char *title;
    const char *key; // in a document
    field_value value;
};

// Empty when the command's data are not known, or are not what the command asks for.
std::vector<decoded_field> decode_data(std::span<const uint8_t> cdb, std::span<const uint8_t> data);

// How much of the data came from the device, as the data themselves say.
size_t told_length(std::span<const uint8_t> cdb, std::span<const uint8_t> data);

} // namespace ctl
