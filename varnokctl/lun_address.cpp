#include "varnokctl/lun_address.h"

#include "varnokctl/text.h"

#include <array>
#include <charconv>
#include <fmt/format.h>
#include <span>

namespace ctl
{
namespace
{

using wire_lun = std::array<uint8_t, 8>;

wire_lun wire_lun_of(const lun_levels &lun)
{
    wire_lun bytes{};
    for (size_t level = 0; level < 4; ++level) {
        const uint32_t pair = level < 2 ? lun.levels_1_and_2 : lun.levels_3_and_4;
        const uint32_t value = level % 2 == 0 ? pair : pair >> 16;
        bytes[2 * level] = static_cast<uint8_t>(value >> 8);
        bytes[2 * level + 1] = static_cast<uint8_t>(value);
    }
    return bytes;
}

bool extended(uint8_t first) { return first >> 6 == 3; }

// One level, which is two bytes, by any method but the extended ones.
std::string level_text(uint8_t first, uint8_t second)
{
    const unsigned low = first & 0x3FU;
    switch (first >> 6) {
    case 0:
        return low == 0 ? fmt::to_string(+second) : fmt::format("bus {} lun {}", low, +second);
    case 1:
        return fmt::format("{} flat", low << 8 | second);
    default:
        return fmt::format("target {} bus {} lun {}", low, second >> 5, second & 0x1FU);
    }
}

// An extended address takes more than one level, or names a unit by its role.
lun_form extended_form(std::span<const uint8_t, 8> lun)
{
    const size_t length = 2 + 2 * (lun[0] >> 4 & 3U);
    if (length > lun.size() || big_endian(lun.subspan(length)) != 0)
        return {"other", {}};
    const uint64_t value = big_endian(lun.subspan(1, length - 1));
    if (lun[0] == 0xC1)
        return {"well-known", value};
    if (lun[0] == 0xD2 || lun[0] == 0xE2)
        return {"extended flat", value};
    return {"other", {}};
}

// Empty when there are no words for the form.
std::string extended_text(const lun_form &form)
{
    if (!form.number)
        return "";
    return form.method == "well-known" ? fmt::format("well-known {}", *form.number)
                                       : fmt::format("{} extended flat", *form.number);
}

std::string lun_words(std::span<const uint8_t, 8> lun)
{
    if (extended(lun[0]))
        return extended_text(extended_form(lun));
    std::string text;
    for (size_t at = 0; at < lun.size(); at += 2) {
        if (at != 0 && big_endian(lun.subspan(at)) == 0)
            break;
        if (extended(lun[at]))
            return "";
        text += at == 0 ? "" : "/";
        text += level_text(lun[at], lun[at + 1]);
    }
    return text;
}

lun_form one_level_form(uint8_t first, uint8_t second)
{
    const unsigned low = first & 0x3FU;
    if (first >> 6 == 1)
        return {"flat", low << 8 | second};
    if (first >> 6 != 0)
        return {"logical unit", {}};
    return {"peripheral", low == 0 ? std::optional<uint64_t>(second) : std::nullopt};
}

std::optional<uint64_t> parse_number(std::string_view digits, int base)
{
    uint64_t value = 0;
    const char *end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, value, base);
    return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(value) : std::nullopt;
}

// Swaps two levels: the records hold the first one in the low half.
uint32_t level_pair(uint32_t bytes) { return bytes << 16 | bytes >> 16; }

} // namespace

std::optional<lun_levels> parse_lun(std::string_view text)
{
    constexpr uint64_t peripheral_end = 256, flat_end = 16384, flat_method = 0x4000;
    constexpr size_t raw_length = 18;
    if (text.starts_with("0x")) {
        const auto raw = parse_number(text.substr(2), 16);
        if (!raw || text.size() != raw_length)
            return {};
        return lun_levels{level_pair(static_cast<uint32_t>(*raw >> 32)),
                          level_pair(static_cast<uint32_t>(*raw))};
    }
    const auto number = parse_number(text, 10);
    if (!number || *number >= flat_end)
        return {};
    const uint64_t level = *number < peripheral_end ? *number : flat_method | *number;
    return lun_levels{static_cast<uint32_t>(level), 0};
}

lun_form lun_form_of(const lun_levels &lun)
{
    const wire_lun bytes = wire_lun_of(lun);
    if (extended(bytes[0]))
        return extended_form(bytes);
    if (big_endian(std::span(bytes).subspan(2)) != 0)
        return {"levels", {}};
    return one_level_form(bytes[0], bytes[1]);
}

std::string lun_number(const lun_levels &lun)
{
    const std::string words = lun_words(wire_lun_of(lun));
    return words.empty() ? "0x" + lun_bytes(lun) : words;
}

std::string lun_bytes(const lun_levels &lun) { return hex_bytes(wire_lun_of(lun)); }

} // namespace ctl
