#include "values.h"

#include "requests.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <climits>
#include <cstring>
#include <optional>

namespace hostsim
{
namespace
{

// Nothing when text is not a number from its beginning to its end.
std::optional<uint64_t> parse(std::string_view text, int radix)
{
    uint64_t n = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), n, radix);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return n;
}

// Pairs of hexadecimal digits with separators between them. Empty when text is anything else.
std::string parse_pairs(std::string_view text, char separator, size_t count)
{
    std::string bytes;
    if (text.size() != count * 3 - 1)
        return bytes;
    for (size_t i = 0; i < text.size(); i += 3) {
        auto byte = parse(text.substr(i, 2), 16);
        if (!byte || (i != 0 && text[i - 1] != separator))
            return {};
        bytes.push_back(static_cast<char>(*byte));
    }
    return bytes;
}

std::string_view text_of(const value &v)
{
    return v.what == kind::text ? v.text : std::string_view();
}

std::string address(const value &v, const place &at, int address_family, size_t size,
                    const char *what)
{
    std::array<char, 16> bytes{};
    const std::string text(text_of(v));
    if (text.find('\0') != std::string::npos ||
        inet_pton(address_family, text.c_str(), bytes.data()) != 1)
        at.fail(std::string("not an ") + what + " address");
    return {bytes.data(), size};
}

// Where the ":port" begins that follows a host's name or its address in brackets.
size_t host_length(std::string_view portal)
{
    const size_t bracket = portal.starts_with('[') ? portal.find(']') : 0;
    return bracket == std::string_view::npos ? portal.size()
                                             : std::min(portal.find(':', bracket), portal.size());
}

} // namespace

std::string hex_bytes(std::string_view text)
{
    std::string bytes;
    if (!text.starts_with("0x") || text.size() % 2 != 0)
        return bytes;
    for (size_t i = 2; i < text.size(); i += 2) {
        const auto byte = parse(text.substr(i, 2), 16);
        if (!byte)
            return {};
        bytes.push_back(static_cast<char>(*byte));
    }
    return bytes;
}

uint64_t to_number(const value &v, const place &at, uint64_t min, uint64_t max)
{
    std::optional<uint64_t> n;
    if (v.what == kind::natural)
        n = v.number;
    else if (text_of(v).starts_with("0x"))
        n = parse(text_of(v).substr(2), 16);
    if (!n || *n < min || *n > max)
        at.fail("not a number from " + std::to_string(min) + " to " + std::to_string(max));
    return *n;
}

bool to_bool(const value &v, const place &at)
{
    if (v.what != kind::boolean)
        at.fail("not true or false");
    return v.number != 0;
}

// A text that is not UTF-8 comes as an array of its bytes.
std::string to_text(const value &v, const place &at, size_t max_bytes)
{
    if (v.what != kind::text && v.what != kind::array)
        at.fail("not a text");
    if (v.other != place::no_index)
        place{&at, {}, v.other}.fail("not a number from 0 to 255");
    if (v.text.size() > max_bytes)
        at.fail("longer than " + std::to_string(max_bytes) + " bytes");
    return std::string(v.text);
}

std::string to_path(const value &v, const place &at)
{
    std::string path = to_text(v, at, PATH_MAX - 1);
    if (path.find('\0') != std::string::npos)
        at.fail("has a NUL byte");
    return path;
}

size_t to_choice(const value &v, const place &at, std::span<const std::string_view> choices)
{
    std::string list;
    for (size_t i = 0; i < choices.size(); ++i) {
        if (v.what == kind::text && text_of(v) == choices[i])
            return i;
        list += (i == 0 ? "" : ", ") + std::string(choices[i]);
    }
    at.fail("not one of " + list);
}

driver_id to_driver(const value &v, const place &at)
{
    return drivers[to_choice(v, at, driver_names)].id;
}

request to_request(const value &v, const place &at)
{
    return requests[to_choice(v, at, request_names)].what;
}

uint64_t to_byte_count(const value &v, const place &at)
{
    if (v.what == kind::natural)
        return v.number;

    constexpr std::array<std::string_view, 7> units = {"B",   "KiB", "MiB", "GiB",
                                                       "TiB", "PiB", "EiB"};
    std::string_view text = text_of(v);
    size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    std::string_view unit = text.substr(digits);
    if (unit.starts_with(' '))
        unit.remove_prefix(1);
    for (size_t i = 0; digits != 0 && i < units.size(); ++i) {
        if (unit != units[i])
            continue;
        auto n = parse(text.substr(0, digits), 10);
        if (!n || *n > UINT64_MAX >> (10 * i))
            at.fail("more bytes than 64 bits count");
        return *n << (10 * i);
    }
    at.fail("not a size such as 65536 or \"500 GiB\"");
}

int to_error_number(const value &v, const place &at)
{
    constexpr int last_error = 133;
    for (int e = 1; e <= last_error && v.what == kind::text; ++e) {
        const char *name = strerrorname_np(e);
        if (name != nullptr && text_of(v) == name)
            return e;
    }
    if (v.what != kind::natural)
        at.fail("not an error such as \"EIO\"");
    return static_cast<int>(to_number(v, at, 1, last_error));
}

sense_code to_sense(const value &v, const place &at)
{
    std::string bytes = parse_pairs(text_of(v), '/', 3);
    if (bytes.empty() || static_cast<unsigned char>(bytes[0]) > 0x0F)
        at.fail("not sense key, code and qualifier such as \"05/25/00\"");
    return {static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]),
            static_cast<uint8_t>(bytes[2])};
}

std::string portal_error(std::string_view portal)
{
    const std::string_view host = portal.substr(0, host_length(portal));
    const std::string_view port = portal.substr(host.size());
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    const bool printable = std::ranges::all_of(portal, [](char c) { return c > ' ' && c <= '~'; });
    const bool plain = !host.empty() && host.find_first_of("[]") == std::string_view::npos;
    const auto number = parse(port.substr(std::min<size_t>(port.size(), 1)), 10);
    if ((!bracketed && !plain) || !printable ||
        (!port.empty() && (!number || *number == 0 || *number > UINT16_MAX)))
        return "not host:port with a port from 1 to 65535";
    return {};
}

std::string to_portal(const value &v, const place &at)
{
    constexpr size_t longest = 300; // a host's name has at most 255 bytes
    std::string portal = to_text(v, at, longest);
    const std::string error = portal_error(portal);
    if (!error.empty())
        at.fail(error);
    return host_length(portal) == portal.size() ? portal + ":3260" : portal;
}

std::string to_field(const value &v, const place &at, const field &where)
{
    std::string bytes;
    switch (where.kind) {
    case field_kind::number: {
        uint64_t n = to_number(v, at, 0, UINT64_MAX >> (64 - 8 * where.size));
        for (size_t i = 0; i < where.size; ++i)
            bytes.push_back(static_cast<char>(n >> (8 * i) & 0xFF));
        break;
    }
    case field_kind::text:
        bytes = to_text(v, at, where.size);
        break;
    case field_kind::mac:
        bytes = parse_pairs(text_of(v), ':', 6);
        if (bytes.empty())
            at.fail("not a MAC address");
        break;
    case field_kind::ipv4:
        bytes = address(v, at, AF_INET, 4, "IPv4");
        break;
    case field_kind::ipv6:
        bytes = address(v, at, AF_INET6, 16, "IPv6");
        break;
    }
    return bytes;
}

lun_number numbered_lun(uint32_t number)
{
    constexpr uint64_t flat = 0x4000, peripheral_max = 255;
    return {(number > peripheral_max ? flat | number : number) << 48, false, number};
}

lun_number to_lun(const value &v, const place &at)
{
    std::string_view text = text_of(v);
    if (text.size() == 18 && text.starts_with("0x")) {
        if (auto wire = parse(text.substr(2), 16))
            return {*wire, true, 0};
    }
    if (v.what != kind::natural || v.number > lun_number_max)
        at.fail("not a LUN: 0 to 16383, or \"0x\" and its 16 hexadecimal digits");
    return numbered_lun(static_cast<uint32_t>(v.number));
}

} // namespace hostsim
