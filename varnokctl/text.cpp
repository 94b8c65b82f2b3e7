#include "text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

#include <arpa/inet.h>
#include <fmt/format.h>

namespace ctl
{
namespace
{

struct range {
    char32_t first, last;
};

// Characters that steer a terminal or the order of its text, show nothing, or would make an escape
// ambiguous.
constexpr range unprintable[] = {
    {0x00, 0x1F},     {'\\', '\\'},     {0x7F, 0x9F},     {0xAD, 0xAD},       {0x61C, 0x61C},
    {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},   {0xD800, 0xDFFF},
    {0xFEFF, 0xFEFF}, {0xFFF0, 0xFFFB}, {0xFFFE, 0xFFFF}, {0xE0000, 0xE0FFF},
};

bool printable(char32_t c)
{
    return c <= 0x10FFFF && std::ranges::none_of(unprintable, [c](const range &r) {
               return r.first <= c && c <= r.last;
           });
}

bool continues(uint8_t byte) { return (byte & 0xC0) == 0x80; }

// Length of the printable character that the bytes start with; 0 when there is none.
size_t printable_length(std::span<const uint8_t> bytes, bool utf8)
{
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const uint8_t lead = bytes.front();
    if (lead < 0x80)
        return printable(lead) ? 1 : 0;
    const auto length = static_cast<size_t>(std::countl_one(lead));
    if (!utf8 || length < 2 || length > 4 || length > bytes.size())
        return 0;
    char32_t code = lead & (0x7FU >> length);
    for (const uint8_t byte : bytes.subspan(1, length - 1)) {
        if (!continues(byte))
            return 0;
        code = code << 6 | (byte & 0x3FU);
    }
    return code >= smallest[length] && printable(code) ? length : 0;
}

bool all_zero(std::span<const uint8_t> bytes)
{
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

std::string ip_text(int family, std::span<const uint8_t> address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (!all_zero(address))
        inet_ntop(family, address.data(), text.data(), text.size());
    return text.data();
}

// Where the character number count starts.
size_t offset_of(std::string_view text, size_t count)
{
    size_t at = 0;
    for (; at < text.size(); at++)
        if (!continues(static_cast<uint8_t>(text[at])) && count-- == 0)
            break;
    return at;
}

} // namespace

std::string field_text(std::span<const uint8_t> field, const style &style)
{
    field = field.first(static_cast<size_t>(std::ranges::find(field, 0) - field.begin()));
    while (!field.empty() && field.back() == ' ')
        field = field.first(field.size() - 1);

    std::string text;
    while (!field.empty()) {
        const size_t length = printable_length(field, style.utf8);
        if (length == 0)
            fmt::format_to(std::back_inserter(text), "\\x{:02X}", field.front());
        else
            text.append(field.begin(), field.begin() + static_cast<ptrdiff_t>(length));
        field = field.subspan(std::max<size_t>(length, 1));
    }
    return text;
}

std::string hex_bytes(std::span<const uint8_t> bytes, std::string_view separator)
{
    return fmt::format("{:02x}", fmt::join(bytes, separator));
}

uint64_t big_endian(std::span<const uint8_t> bytes)
{
    uint64_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

std::string ip_address(std::span<const uint8_t, 4> address) { return ip_text(AF_INET, address); }

std::string ip_address(std::span<const uint8_t, 16> address) { return ip_text(AF_INET6, address); }

std::string endpoint(const std::string &address, uint16_t port)
{
    if (address.empty() || port == 0)
        return address;
    const bool ipv6 = address.find(':') != std::string::npos;
    return ipv6 ? fmt::format("[{}]:{}", address, port) : fmt::format("{}:{}", address, port);
}

std::string size_text(uint64_t bytes)
{
    constexpr const char *units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double rounds_up = 1023.95; // one decimal would show 1024.0
    if (bytes < 1024)
        return bytes == 0 ? "" : fmt::format("{} B", bytes);
    double size = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    for (; size >= rounds_up && unit + 1 < std::size(units); unit++)
        size /= 1024;
    return fmt::format("{:.1f} {}", size, units[unit]);
}

std::string counted(size_t count, std::string_view noun)
{
    const std::string number = count == 0 ? "no" : fmt::to_string(count);
    return fmt::format("{} {}{}", number, noun, count == 1 ? "" : "s");
}

size_t display_width(std::string_view text)
{
    return static_cast<size_t>(std::ranges::count_if(
        text, [](char byte) { return !continues(static_cast<uint8_t>(byte)); }));
}

std::string padded(const std::string &text, size_t width, bool right)
{
    const std::string fill(width - std::min(width, display_width(text)), ' ');
    return right ? fill + text : text + fill;
}

std::string shortened(const std::string &text, size_t width, const style &style)
{
    const size_t had = display_width(text);
    if (had <= width)
        return text;
    const std::string gap = style.utf8 ? "…" : "...";
    const size_t kept = width - std::min(width, display_width(gap));
    const size_t head = kept / 3;
    return text.substr(0, offset_of(text, head)) + gap +
           text.substr(offset_of(text, had - (kept - head)));
}

} // namespace ctl
