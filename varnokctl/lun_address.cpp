#include "varnokctl/lun_address.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <span>
#include <vector>

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

namespace
{

lun_levels levels_of_wire(uint64_t wire)
{
    return {level_pair(static_cast<uint32_t>(wire >> 32)), level_pair(static_cast<uint32_t>(wire))};
}

// Takes the text apart by a pattern whose '#' stand for numbers. Nothing if it is not such a text.
std::optional<std::vector<uint64_t>> numbers_in(std::string_view text, std::string_view pattern)
{
    std::vector<uint64_t> numbers;
    while (!pattern.empty()) {
        const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
        if (pattern.front() == '#') {
            const auto number = parse_number(text.substr(0, digits), 10);
            if (!number)
                return {};
            numbers.push_back(*number);
            text.remove_prefix(digits);
        } else if (text.empty() || text.front() != pattern.front()) {
            return {};
        } else {
            text.remove_prefix(1);
        }
        pattern.remove_prefix(1);
    }
    return text.empty() ? std::optional(numbers) : std::nullopt;
}

// One of the forms of a level, and how its numbers stand in its two bytes.
struct level_pattern {
    std::string_view text;
    uint16_t method;
    std::array<unsigned, 3> bits; // of each number, the last one in the low bits
};
constexpr level_pattern level_patterns[] = {
    {"#", 0, {8}},
    {"# flat", 0x4000, {14}},
    {"bus # lun #", 0, {6, 8}},
    {"target # bus # lun #", 0x8000, {6, 3, 5}},
};

std::optional<uint64_t> parse_level(std::string_view text)
{
    for (const level_pattern &pattern : level_patterns) {
        const auto numbers = numbers_in(text, pattern.text);
        if (!numbers)
            continue;
        uint64_t level = 0;
        for (size_t at = 0; at < numbers->size(); ++at) {
            if ((*numbers)[at] >> pattern.bits[at] != 0)
                return {};
            level = level << pattern.bits[at] | (*numbers)[at];
        }
        return level | pattern.method;
    }
    return {};
}

std::optional<uint64_t> parse_extended(std::string_view text)
{
    constexpr uint64_t well_known = 0xC1, flat_3 = 0xD2, flat_5 = 0xE2;
    if (const auto role = numbers_in(text, "well-known #"); role && role->front() <= UINT8_MAX)
        return well_known << 56 | role->front() << 48;
    const auto flat = numbers_in(text, "# extended flat");
    if (!flat || flat->front() >> 40 != 0)
        return {};
    return flat->front() >> 24 == 0 ? flat_3 << 56 | flat->front() << 32
                                    : flat_5 << 56 | flat->front() << 16;
}

// Levels with slashes between them.
std::optional<uint64_t> parse_levels(std::string_view text)
{
    constexpr size_t most_levels = 4;
    uint64_t wire = 0;
    for (size_t at = 0; at < most_levels; ++at) {
        const size_t end = std::min(text.find('/'), text.size());
        const auto level = parse_level(text.substr(0, end));
        if (!level)
            return {};
        wire |= *level << (48 - 16 * at);
        if (end == text.size())
            return wire;
        text.remove_prefix(end + 1);
    }
    return {};
}

} // namespace

std::optional<lun_levels> parse_lun(std::string_view text)
{
    constexpr uint64_t peripheral_end = 256, flat_end = 16384, flat_method = 0x4000;
    constexpr size_t raw_length = 16;
    const bool marked = text.starts_with("0x");
    const std::string_view raw = text.substr(marked ? 2 : 0);
    if (marked || raw.size() == raw_length) {
        const auto wire = parse_number(raw, 16);
        if (wire && raw.size() == raw_length)
            return levels_of_wire(*wire);
        if (marked)
            return {};
    }
    if (const auto number = parse_number(text, 10))
        return *number >= flat_end
                   ? std::nullopt
                   : std::optional(levels_of_wire(
                         (*number < peripheral_end ? *number : flat_method | *number) << 48));
    auto wire = parse_extended(text);
    if (!wire)
        wire = parse_levels(text);
    return wire ? std::optional(levels_of_wire(*wire)) : std::nullopt;
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
