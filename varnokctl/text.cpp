#include "varnokctl/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cwchar>
#include <fmt/format.h>
#include <iterator>
#include <vector>

namespace ctl
{
namespace
{

struct range {
    char32_t first, last;
};

// Characters that control a terminal, change the order of its text or show nothing. The backslash
// is among them because it begins an escape.
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

struct character {
    char32_t code;
    size_t length; // in bytes
};

// The character that the bytes start with; its length is 0 when that is none.
character first_character(std::span<const uint8_t> bytes, bool utf8)
{
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const uint8_t lead = bytes.front();
    if (lead < 0x80)
        return {lead, 1};
    const auto length = static_cast<size_t>(std::countl_one(lead));
    if (!utf8 || length < 2 || length > 4 || length > bytes.size())
        return {};
    char32_t code = lead & (0x7FU >> length);
    for (const uint8_t byte : bytes.subspan(1, length - 1)) {
        if (!continues(byte))
            return {};
        code = code << 6 | (byte & 0x3FU);
    }
    return code >= smallest[length] ? character{code, length} : character{};
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

struct extent {
    size_t length, columns;
};

// The extent of the character that a printable text starts with.
extent first_extent(std::string_view text)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(text.data());
    const character first = first_character({bytes, text.size()}, true);
    const int columns = wcwidth(static_cast<wchar_t>(first.code));
    // The locale may not know the character.
    return {std::max<size_t>(first.length, 1), columns < 0 ? 1U : static_cast<size_t>(columns)};
}

// The parts that stay whole in a cut: a character or an escape, with its combining marks.
std::vector<std::string_view> parts_of(std::string_view text)
{
    constexpr size_t escape_length = 4;
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        size_t length = text.front() == '\\' ? escape_length : first_extent(text).length;
        while (length < text.size() && first_extent(text.substr(length)).columns == 0)
            length += first_extent(text.substr(length)).length;
        parts.push_back(text.substr(0, length));
        text.remove_prefix(parts.back().size());
    }
    return parts;
}

} // namespace

std::string field_text(std::span<const uint8_t> field, const output_style &style)
{
    field = field.first(static_cast<size_t>(std::ranges::find(field, 0) - field.begin()));
    while (!field.empty() && field.back() == ' ')
        field = field.first(field.size() - 1);

    std::string text;
    while (!field.empty()) {
        const auto [code, length] = first_character(field, style.utf8);
        const bool shown = length != 0 && printable(code);
        if (!shown)
            fmt::format_to(std::back_inserter(text), "\\x{:02X}", field.front());
        else
            text.append(field.begin(), field.begin() + static_cast<ptrdiff_t>(length));
        field = field.subspan(shown ? length : 1);
    }
    return text;
}

std::string safe_text(std::string_view typed, size_t longest)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(typed.data());
    return shortened(field_text({bytes, typed.size()}, {}), longest, {});
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

std::string endpoint_text(const ip_endpoint &endpoint)
{
    const auto &[ip, port] = endpoint;
    if (ip.empty() || port == 0)
        return ip;
    const bool ipv6 = ip.find(':') != std::string::npos;
    return ipv6 ? fmt::format("[{}]:{}", ip, port) : fmt::format("{}:{}", ip, port);
}

std::string size_text(uint64_t bytes)
{
    constexpr const char *units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double rounds_up = 1023.95; // shows as 1024.0
    if (bytes < 1024)
        return bytes == 0 ? "" : fmt::format("{} B", bytes);
    double size = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    for (; size >= rounds_up && unit + 1 < std::size(units); ++unit)
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
    size_t width = 0;
    for (size_t at = 0; at < text.size();) {
        const extent next = first_extent(text.substr(at));
        width += next.columns;
        at += next.length;
    }
    return width;
}

std::string padded(const std::string &text, size_t width, bool right)
{
    const std::string fill(width - std::min(width, display_width(text)), ' ');
    return right ? fill + text : text + fill;
}

std::string shortened(const std::string &text, size_t width, const output_style &style)
{
    if (display_width(text) <= width)
        return text;
    const std::string gap = style.utf8 ? "…" : "...";
    size_t room = width - std::min(width, display_width(gap));
    const size_t room_at_end = room - room / 3;
    const auto takes = [&room](std::string_view part, size_t to_leave) {
        const size_t columns = display_width(part);
        const bool fits = columns + to_leave <= room;
        room -= fits ? columns : 0;
        return fits;
    };
    const std::vector<std::string_view> parts = parts_of(text);
    std::string head;
    for (auto part = parts.begin(); takes(*part, room_at_end); ++part)
        head += *part;
    size_t tail = text.size();
    for (auto part = parts.rbegin(); takes(*part, 0); ++part)
        tail -= part->size();
    return head + gap + text.substr(tail);
}

std::string coloured(const std::string &text, bool bad, const output_style &style)
{
    return bad && style.colours ? "\x1B[31m" + text + "\x1B[0m" : text;
}

std::string trimmed(std::string line)
{
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace ctl
