#include "varnokctl/transfer_length.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <iterator>

namespace ctl
{
namespace
{

constexpr bool in_blocks = true;

struct known_command {
    uint8_t operation;
    uint8_t at, size; // of the field that holds the length; no size: the length itself
    bool blocks = false;
};

constexpr known_command known_commands[] = {
    {0x03, 4, 1},             // REQUEST SENSE
    {0x05, 6, 0},             // READ BLOCK LIMITS
    {0x08, 4, 1, in_blocks},  // READ(6)
    {0x12, 3, 2},             // INQUIRY
    {0x1A, 4, 1},             // MODE SENSE(6)
    {0x1C, 3, 2},             // RECEIVE DIAGNOSTIC RESULTS
    {0x25, 8, 0},             // READ CAPACITY(10)
    {0x28, 7, 2, in_blocks},  // READ(10)
    {0x37, 7, 2},             // READ DEFECT DATA(10)
    {0x3C, 6, 3},             // READ BUFFER(10)
    {0x43, 7, 2},             // READ TOC
    {0x46, 7, 2},             // GET CONFIGURATION
    {0x4A, 7, 2},             // GET EVENT STATUS NOTIFICATION
    {0x4D, 7, 2},             // LOG SENSE
    {0x51, 7, 2},             // READ DISC INFORMATION
    {0x5A, 7, 2},             // MODE SENSE(10)
    {0x5E, 7, 2},             // PERSISTENT RESERVE IN
    {0x84, 10, 4},            // RECEIVE COPY RESULTS
    {0x88, 10, 4, in_blocks}, // READ(16)
    {0x8C, 10, 4},            // READ ATTRIBUTE
    {0x95, 10, 4},            // ZONING IN
    {0x9B, 10, 4},            // READ BUFFER(16)
    {0x9E, 10, 4},            // SERVICE ACTION IN(16)
    {0xA0, 6, 4},             // REPORT LUNS
    {0xA3, 6, 4},             // MAINTENANCE IN
    {0xA8, 6, 4, in_blocks},  // READ(12)
    {0xAB, 6, 4},             // SERVICE ACTION IN(12)
    {0xB7, 6, 4},             // READ DEFECT DATA(12)
    {0xB8, 7, 3},             // READ ELEMENT STATUS
};

} // namespace

std::optional<transfer_length> data_in_of(std::span<const uint8_t> cdb)
{
    constexpr uint8_t read_6 = 0x08;
    constexpr uint64_t most_of_read_6 = 256;
    const auto *known = std::ranges::find(known_commands, cdb.front(), &known_command::operation);
    if (known == std::end(known_commands))
        return {};
    if (known->size == 0)
        return transfer_length{known->at, false};
    if (cdb.size() < size_t{known->at} + known->size)
        return {};
    const uint64_t count = big_endian(cdb.subspan(known->at, known->size));
    return transfer_length{count == 0 && known->operation == read_6 ? most_of_read_6 : count,
                           known->blocks};
}

} // namespace ctl
