#include "values.h"

#include "requests.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

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

std::string_view text_of(const json &value)
{
    return value.is_string() ? std::string_view(value.get_ref<const std::string &>())
                             : std::string_view();
}

std::string address(const json &value, const place &at, int address_family, size_t size,
                    const char *what)
{
    std::array<char, 16> bytes{};
    const std::string text(text_of(value));
    if (text.find('\0') != std::string::npos ||
        inet_pton(address_family, text.c_str(), bytes.data()) != 1)
        at.fail(std::string("not an ") + what + " address");
    return {bytes.data(), size};
}

} // namespace

std::string place::text() const
{
    std::string above = up != nullptr ? up->text() : std::string();
    if (!above.empty() && !key.empty())
        above += '.';
    above += key;
    if (index != no_index)
        above += '[' + std::to_string(index) + ']';
    return above;
}

void place::fail(const std::string &what) const
{
    std::string where = text();
    throw scenario_error(where.empty() ? what : where + ": " + what);
}

void each_member(const json &object, const place &at, const take_member &take)
{
    if (!object.is_object())
        at.fail("not an object");
    for (const auto &[name, value] : object.items())
        take(name, value, place{&at, name});
}

void each_element(const json &array, const place &at, const take_element &take)
{
    if (!array.is_array())
        at.fail("not an array");
    for (size_t i = 0; i < array.size(); ++i)
        take(array[i], place{at.up, at.key, i});
}

bool has_member(const json &object, std::string_view name) { return object.contains(name); }

uint64_t to_number(const json &value, const place &at, uint64_t min, uint64_t max)
{
    std::optional<uint64_t> n;
    if (value.is_number_unsigned())
        n = value.get<uint64_t>();
    else if (text_of(value).starts_with("0x"))
        n = parse(text_of(value).substr(2), 16);
    if (!n || *n < min || *n > max)
        at.fail("not a number from " + std::to_string(min) + " to " + std::to_string(max));
    return *n;
}

bool to_bool(const json &value, const place &at)
{
    if (!value.is_boolean())
        at.fail("not true or false");
    return value.get<bool>();
}

// A text that is not UTF-8 comes as an array of its bytes.
std::string to_text(const json &value, const place &at, size_t max_bytes)
{
    std::string text(text_of(value));
    if (value.is_array())
        each_element(value, at, [&](const json &byte, const place &here) {
            text.push_back(static_cast<char>(to_number(byte, here, 0, UINT8_MAX)));
        });
    else if (!value.is_string())
        at.fail("not a text");
    if (text.size() > max_bytes)
        at.fail("longer than " + std::to_string(max_bytes) + " bytes");
    return text;
}

size_t to_choice(const json &value, const place &at, std::span<const std::string_view> choices)
{
    std::string list;
    for (size_t i = 0; i < choices.size(); ++i) {
        if (value.is_string() && text_of(value) == choices[i])
            return i;
        list += (i == 0 ? "" : ", ") + std::string(choices[i]);
    }
    at.fail("not one of " + list);
}

driver_id to_driver(const json &value, const place &at)
{
    return drivers[to_choice(value, at, driver_names)].id;
}

request to_request(const json &value, const place &at)
{
    return requests[to_choice(value, at, request_names)].what;
}

uint64_t to_byte_count(const json &value, const place &at)
{
    if (value.is_number_unsigned())
        return value.get<uint64_t>();

    constexpr std::array<std::string_view, 7> units = {"B",   "KiB", "MiB", "GiB",
                                                       "TiB", "PiB", "EiB"};
    std::string_view text = text_of(value);
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

int to_error_number(const json &value, const place &at)
{
    constexpr int last_error = 133;
    for (int e = 1; e <= last_error && value.is_string(); ++e) {
        const char *name = strerrorname_np(e);
        if (name != nullptr && text_of(value) == name)
            return e;
    }
    if (!value.is_number_unsigned())
        at.fail("not an error such as \"EIO\"");
    return static_cast<int>(to_number(value, at, 1, last_error));
}

sense_code to_sense(const json &value, const place &at)
{
    std::string bytes = parse_pairs(text_of(value), '/', 3);
    if (bytes.empty() || static_cast<unsigned char>(bytes[0]) > 0x0F)
        at.fail("not sense key, code and qualifier such as \"05/25/00\"");
    return {static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]),
            static_cast<uint8_t>(bytes[2])};
}

std::string portal_error(std::string_view portal)
{
    const size_t colon = portal.rfind(':');
    const std::string_view name = portal.substr(0, colon);
    const bool bracketed = name.size() > 2 && name.front() == '[' && name.back() == ']';
    const bool plain = !name.empty() && name.find_first_of("[]:") == std::string_view::npos;
    const char *const end = portal.data() + portal.size();
    uint16_t tcp_port = 0;
    if (colon == std::string_view::npos || (!bracketed && !plain) ||
        name.find('\0') != std::string_view::npos ||
        std::from_chars(portal.data() + colon + 1, end, tcp_port).ptr != end || tcp_port == 0)
        return "not host:port with a port from 1 to 65535";
    return {};
}

std::string to_portal(const json &value, const place &at)
{
    std::string portal = to_text(value, at, SIZE_MAX);
    const std::string error = portal_error(portal);
    if (!error.empty())
        at.fail(error);
    return portal;
}

std::string to_field(const json &value, const place &at, const field &where)
{
    std::string bytes;
    switch (where.kind) {
    case field_kind::number: {
        uint64_t n = to_number(value, at, 0, UINT64_MAX >> (64 - 8 * where.size));
        for (size_t i = 0; i < where.size; ++i)
            bytes.push_back(static_cast<char>(n >> (8 * i) & 0xFF));
        break;
    }
    case field_kind::text:
        bytes = to_text(value, at, where.size);
        break;
    case field_kind::mac:
        bytes = parse_pairs(text_of(value), ':', 6);
        if (bytes.empty())
            at.fail("not a MAC address");
        break;
    case field_kind::ipv4:
        bytes = address(value, at, AF_INET, 4, "IPv4");
        break;
    case field_kind::ipv6:
        bytes = address(value, at, AF_INET6, 16, "IPv6");
        break;
    }
    return bytes;
}

bool read_field(std::span<const field> fields, settings &into, std::string_view name,
                const json &value, const place &at)
{
    const field *const f = find_field(fields, name);
    if (f != nullptr)
        into.push_back({f, to_field(value, at, *f)});
    return f != nullptr;
}

lun_number numbered_lun(uint32_t number)
{
    constexpr uint64_t flat = 0x4000, peripheral_max = 255;
    return {(number > peripheral_max ? flat | number : number) << 48, false, number};
}

lun_number to_lun(const json &value, const place &at)
{
    std::string_view text = text_of(value);
    if (text.size() == 18 && text.starts_with("0x")) {
        if (auto wire = parse(text.substr(2), 16))
            return {*wire, true, 0};
    }
    if (!value.is_number_unsigned() || value.get<uint64_t>() > lun_number_max)
        at.fail("not a LUN: 0 to 16383, or \"0x\" and its 16 hexadecimal digits");
    return numbered_lun(value.get<uint32_t>());
}

} // namespace hostsim
