#include "varnokctl/sense.h"

#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>

namespace ctl
{
namespace
{

constexpr const char *keys[] = {
    "no sense",       "recovered error", "not ready",      "medium error",
    "hardware error", "illegal request", "unit attention", "data protect",
    "blank check",    "vendor specific", "copy aborted",   "aborted command",
    "reserved",       "volume overflow", "miscompare",     "completed",
};

// By the additional sense code and its qualifier, a byte each.
constexpr code_word codes[] = {
    {0x0000, "no additional information"},
    {0x0006, "I/O process terminated"},
    {0x0401, "becoming ready"},
    {0x0402, "needs an initializing command"},
    {0x0403, "needs manual intervention"},
    {0x0404, "format in progress"},
    {0x040A, "target port in transition"},
    {0x040B, "target port in standby state"},
    {0x040C, "target port in unavailable state"},
    {0x0500, "logical unit does not respond to selection"},
    {0x0800, "logical unit communication failure"},
    {0x0C00, "write error"},
    {0x1000, "ID CRC or ECC error"},
    {0x1100, "unrecovered read error"},
    {0x1A00, "parameter list length error"},
    {0x1D00, "miscompare during verify"},
    {0x2000, "invalid command operation code"},
    {0x2002, "access denied"},
    {0x2100, "logical block address out of range"},
    {0x2400, "invalid field in CDB"},
    {0x2500, "logical unit not supported"},
    {0x2600, "invalid field in parameter list"},
    {0x2700, "write protected"},
    {0x2707, "space allocation failed"},
    {0x2800, "not ready to ready change, medium may have changed"},
    {0x2900, "power on, reset, or bus device reset"},
    {0x2A01, "mode parameters changed"},
    {0x2A03, "reservations preempted"},
    {0x2A09, "capacity data has changed"},
    {0x2F00, "commands cleared by another initiator"},
    {0x3100, "medium format corrupted"},
    {0x3A00, "medium not present"},
    {0x3E01, "logical unit failure"},
    {0x3F03, "inquiry data has changed"},
    {0x3F0E, "reported LUNs data has changed"},
    {0x4400, "internal target failure"},
    {0x4700, "SCSI parity error"},
    {0x4900, "invalid message error"},
    {0x4E00, "overlapped commands attempted"},
    {0x5500, "system resource failure"},
    {0x5D00, "failure prediction threshold exceeded"},
};

} // namespace

std::optional<sense_data> decode_sense(std::span<const uint8_t> buffer)
{
    constexpr size_t header = 8;
    constexpr size_t fixed_codes_end = 14;
    const unsigned response = buffer.size() < header ? 0 : buffer[0] & 0x7FU;
    if (response < 0x70 || response > 0x73)
        return {};
    const auto raw = buffer.first(std::min(buffer.size(), header + buffer[7]));
    const bool deferred = response % 2 != 0;
    const auto low = [](uint8_t byte) { return static_cast<uint8_t>(byte & 0x0FU); };
    if (response >= 0x72)
        return sense_data{true, deferred, low(raw[1]), raw[2], raw[3], raw};
    const bool codes_there = raw.size() >= fixed_codes_end;
    return sense_data{false,
                      deferred,
                      low(raw[2]),
                      codes_there ? raw[12] : uint8_t{0},
                      codes_there ? raw[13] : uint8_t{0},
                      raw};
}

bool harmless(const sense_data &sense)
{
    constexpr uint8_t recovered = 1, completed = 15;
    return !sense.deferred && (sense.key <= recovered || sense.key == completed);
}

std::string cause_text(const sense_data &sense)
{
    const std::string code = code_text(sense);
    return fmt::format("{}{}: {}", sense.deferred ? "deferred error, " : "", key_text(sense),
                       code.empty() ? fmt::format("{:02x}/{:02x}", sense.asc, sense.ascq) : code);
}

std::string key_text(const sense_data &sense) { return keys[sense.key]; }

std::string code_text(const sense_data &sense)
{
    return word_of(codes, static_cast<uint32_t>(sense.asc) << 8 | sense.ascq);
}

} // namespace ctl
