#include "varnokctl/choice.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fnmatch.h>
#include <string_view>

namespace ctl
{
namespace
{

std::optional<uint32_t> number_in(std::string_view text)
{
    uint32_t number = 0;
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(number) : std::nullopt;
}

// A MAC address may be written with dashes and in upper case.
std::string plain_mac(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) {
        return c == '-' ? ':' : static_cast<char>(std::tolower(c));
    });
    return text;
}

// Only '*' is special.
std::string pattern_of(std::string_view text)
{
    std::string pattern;
    for (const char c : text) {
        if (c == '?' || c == '[' || c == ']' || c == '\\')
            pattern += '\\';
        pattern += c;
    }
    return pattern;
}

} // namespace

std::optional<uint32_t> port_choice::number() const { return number_in(text); }

bool port_choice::fits(uint32_t instance, const VARNOK_PHY_PORT_INFO &info) const
{
    if (any() || number())
        return any() || *number() == instance;
    return text == field_text(info.HbaName, {.utf8 = true}) ||
           plain_mac(text) == hex_bytes(info.MAC, ":");
}

std::optional<uint32_t> target_choice::number() const { return number_in(text); }

bool target_choice::fits(uint32_t number_there, const uint8_t (&name)[256]) const
{
    if (any())
        return true;
    if (const auto wanted = number())
        return *wanted == number_there;
    return fnmatch(pattern_of(text).c_str(), field_text(name, {.utf8 = true}).c_str(), 0) == 0;
}

} // namespace ctl
