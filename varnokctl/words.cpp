#include "words.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "text.h"

namespace ctl
{
namespace
{

struct word {
    uint32_t code;
    const char *text;
};

constexpr word port_states[] = {
    {VARNOK_PORT_STATE_0, "online"},
    {VARNOK_PORT_STATE_1, "offline"},
};

constexpr word port_speeds[] = {
    {VARNOK_PORT_SPEED_10G, "10 Gbit/s"}, {VARNOK_PORT_SPEED_20G, "20 Gbit/s"},
    {VARNOK_PORT_SPEED_25G, "25 Gbit/s"}, {VARNOK_PORT_SPEED_40G, "40 Gbit/s"},
    {VARNOK_PORT_SPEED_50G, "50 Gbit/s"},
};

constexpr word pcie_speeds[] = {
    {VARNOK_PCIE_SPEED_2_5GT, " 2.5 GT/s"},
    {VARNOK_PCIE_SPEED_5_0GT, " 5.0 GT/s"},
    {VARNOK_PCIE_SPEED_8_0GT, " 8.0 GT/s"},
};

constexpr word pcie_widths[] = {
    {VARNOK_PCIE_WIDTH_X1, " x1"}, {VARNOK_PCIE_WIDTH_X2, " x2"},   {VARNOK_PCIE_WIDTH_X4, " x4"},
    {VARNOK_PCIE_WIDTH_X8, " x8"}, {VARNOK_PCIE_WIDTH_X16, " x16"}, {VARNOK_PCIE_WIDTH_X32, " x32"},
};

constexpr word device_types[] = {
    {0x00, "disk"},        {0x01, "tape"},        {0x02, "printer"},    {0x03, "processor"},
    {0x04, "write-once"},  {0x05, "cd/dvd"},      {0x06, "scanner"},    {0x07, "optical"},
    {0x08, "changer"},     {0x09, "comms"},       {0x0C, "array"},      {0x0D, "enclosure"},
    {0x0E, "simple disk"}, {0x0F, "card device"}, {0x10, "bridge"},     {0x11, "object store"},
    {0x12, "automation"},  {0x13, "security"},    {0x14, "zoned disk"}, {0x1E, "well-known"},
};

struct status_word {
    uint32_t code;
    const char *name;
    const char *meaning;
};

#define STATUS(name, meaning)                                                                      \
    {                                                                                              \
        VARNOK_STATUS_##name, "VARNOK_STATUS_" #name, meaning                                      \
    }
constexpr status_word statuses[] = {
    STATUS(SUCCESS, "success"),
    STATUS(FAILED, "not loaded (that takes root, ESXi and an adapter driver), port not open, or "
                   "driver status 1"),
    STATUS(DRIVER_2, "driver status 2"),
    STATUS(DRIVER_3, "driver status 3"),
    STATUS(INVALID_PARAMETER, "an argument is missing or invalid, or driver status 4"),
    STATUS(DRIVER_5, "driver status 5"),
    STATUS(DRIVER_6, "driver status 6"),
    STATUS(NOT_FOUND, "there is no such port, or driver status 7"),
    STATUS(DRIVER_8, "driver status 8"),
    STATUS(INSUFFICIENT_BUFFER, "there are more entries than asked for, or driver status 9"),
    STATUS(NO_MEMORY, "out of memory, or driver status 10"),
    STATUS(DRIVER_FAILED, "the driver failed the request without a usable status"),
    STATUS(DRIVER_12, "driver status 12"),
    STATUS(DRIVER_13, "driver status 13"),
};
#undef STATUS

constexpr uint32_t first_failure = 0x80000000; // below it a status is an error number of the system

std::string find(std::span<const word> words, uint32_t code, const char *otherwise = "")
{
    for (const word &word : words)
        if (word.code == code)
            return word.text;
    return otherwise;
}

std::array<uint8_t, 8> wire_lun(uint32_t levels_1_and_2, uint32_t levels_3_and_4)
{
    std::array<uint8_t, 8> bytes{};
    for (size_t level = 0; level < 4; level++) {
        const uint32_t pair = level < 2 ? levels_1_and_2 : levels_3_and_4;
        const uint32_t value = level % 2 == 0 ? pair : pair >> 16;
        bytes[2 * level] = static_cast<uint8_t>(value >> 8);
        bytes[2 * level + 1] = static_cast<uint8_t>(value);
    }
    return bytes;
}

uint64_t big_endian(std::span<const uint8_t> bytes)
{
    uint64_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

bool extended(uint8_t first) { return first >> 6 == 3; }

// One two-byte level, of any method but the extended one.
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

// A LUN that takes more than a level, or names a unit by its role. Empty for a form without words.
std::string extended_text(std::span<const uint8_t, 8> lun)
{
    const size_t length = 2 + 2 * (lun[0] >> 4 & 3U);
    if (length > lun.size() || big_endian(lun.subspan(length)) != 0)
        return "";
    const uint64_t value = big_endian(lun.subspan(1, length - 1));
    if (lun[0] == 0xC1)
        return fmt::format("well-known {}", value);
    return lun[0] == 0xD2 || lun[0] == 0xE2 ? fmt::format("{} extended flat", value) : "";
}

std::string lun_words(std::span<const uint8_t, 8> lun)
{
    if (extended(lun[0]))
        return extended_text(lun);
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

std::string status_text(uint32_t status)
{
    if (status < first_failure)
        return fmt::format("{} (error {})",
                           std::generic_category().message(static_cast<int>(status)), status);
    for (const status_word &word : statuses)
        if (word.code == status)
            return fmt::format("{} (0x{:08X}): {}", word.name, status, word.meaning);
    return fmt::format("unknown status 0x{:08X}", status);
}

} // namespace

std::string port_state(uint32_t code) { return find(port_states, code, "unknown"); }

std::string port_speed(uint32_t code) { return find(port_speeds, code); }

std::string pcie_link(uint32_t speed, uint32_t width)
{
    const std::string link = find(pcie_speeds, speed) + find(pcie_widths, width);
    return link.empty() ? "" : fmt::format("PCIe{}", link);
}

std::string device_type(uint8_t code)
{
    const unsigned qualifier = code >> 5;
    std::string type = find(device_types, code & 0x1FU, "unknown");
    switch (qualifier) {
    case 0:
        return type;
    case 1:
        return type + " (absent)";
    case 3:
        return "no device";
    default:
        return fmt::format("{} (qualifier {})", type, qualifier);
    }
}

std::string lun_number(uint32_t levels_1_and_2, uint32_t levels_3_and_4)
{
    const std::string words = lun_words(wire_lun(levels_1_and_2, levels_3_and_4));
    return words.empty() ? fmt::format("0x{}", lun_bytes(levels_1_and_2, levels_3_and_4)) : words;
}

std::string lun_bytes(uint32_t levels_1_and_2, uint32_t levels_3_and_4)
{
    return hex_bytes(wire_lun(levels_1_and_2, levels_3_and_4));
}

std::string failure_text(const failure &failure)
{
    std::string where;
    if (failure.port)
        where += fmt::format(", port {}", *failure.port);
    if (failure.target)
        where += fmt::format(", target {}", *failure.target);
    return fmt::format("{}{}: {}", failure.call, where, status_text(failure.status));
}

} // namespace ctl
