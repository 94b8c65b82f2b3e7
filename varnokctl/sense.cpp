#include "varnokctl/sense.h"

#include "varnokctl/scsi_names.h"

#include <algorithm>
#include <fmt/format.h>

namespace ctl
{
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

std::string key_text(const sense_data &sense) { return sense_key_name(sense.key); }

std::string code_text(const sense_data &sense) { return sense_code_name(sense.asc, sense.ascq); }

} // namespace ctl
