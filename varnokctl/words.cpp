#include "varnokctl/words.h"

#include "varnok_mgmt.h"

#include <fmt/format.h>

namespace ctl
{
namespace
{

constexpr code_word port_states[] = {
    {VARNOK_PORT_STATE_0, "online"},
    {VARNOK_PORT_STATE_1, "offline"},
};

constexpr code_word port_speeds[] = {
    {VARNOK_PORT_SPEED_10G, "10 Gbit/s"}, {VARNOK_PORT_SPEED_20G, "20 Gbit/s"},
    {VARNOK_PORT_SPEED_25G, "25 Gbit/s"}, {VARNOK_PORT_SPEED_40G, "40 Gbit/s"},
    {VARNOK_PORT_SPEED_50G, "50 Gbit/s"},
};

// Our reading of the numbers that drivers report.
constexpr code_word session_states[] = {
    {0, "not logged in"},
    {session_logged_in, "logged in"},
};

struct code_number {
    uint32_t code;
    uint64_t number;
};
constexpr uint64_t gigabit = 1000000000;
constexpr code_number port_bits[] = {
    {VARNOK_PORT_SPEED_10G, 10 * gigabit}, {VARNOK_PORT_SPEED_20G, 20 * gigabit},
    {VARNOK_PORT_SPEED_25G, 25 * gigabit}, {VARNOK_PORT_SPEED_40G, 40 * gigabit},
    {VARNOK_PORT_SPEED_50G, 50 * gigabit},
};

constexpr code_word pcie_speeds[] = {
    {VARNOK_PCIE_SPEED_2_5GT, " 2.5 GT/s"},
    {VARNOK_PCIE_SPEED_5_0GT, " 5.0 GT/s"},
    {VARNOK_PCIE_SPEED_8_0GT, " 8.0 GT/s"},
};

constexpr code_word pcie_widths[] = {
    {VARNOK_PCIE_WIDTH_X1, " x1"}, {VARNOK_PCIE_WIDTH_X2, " x2"},   {VARNOK_PCIE_WIDTH_X4, " x4"},
    {VARNOK_PCIE_WIDTH_X8, " x8"}, {VARNOK_PCIE_WIDTH_X16, " x16"}, {VARNOK_PCIE_WIDTH_X32, " x32"},
};

constexpr code_word device_types[] = {
    {0x00, "disk"},        {0x01, "tape"},        {0x02, "printer"},    {0x03, "processor"},
    {0x04, "write-once"},  {0x05, "cd/dvd"},      {0x06, "scanner"},    {0x07, "optical"},
    {0x08, "changer"},     {0x09, "comms"},       {0x0C, "array"},      {0x0D, "enclosure"},
    {0x0E, "simple disk"}, {0x0F, "card device"}, {0x10, "bridge"},     {0x11, "object store"},
    {0x12, "automation"},  {0x13, "security"},    {0x14, "zoned disk"}, {0x1E, "well-known"},
};

} // namespace

std::string word_of(std::span<const code_word> words, uint32_t code, const char *otherwise)
{
    for (const code_word &word : words)
        if (word.code == code)
            return word.text;
    return otherwise;
}

std::string port_state(uint32_t code) { return word_of(port_states, code, "unknown"); }

std::string port_speed(uint32_t code) { return word_of(port_speeds, code); }

uint64_t bits_per_second(uint32_t port_speed)
{
    for (const code_number &speed : port_bits)
        if (speed.code == port_speed)
            return speed.number;
    return 0;
}

std::string session_state(uint32_t state) { return word_of(session_states, state); }

std::string pcie_link(uint32_t speed, uint32_t width)
{
    const std::string link = word_of(pcie_speeds, speed) + word_of(pcie_widths, width);
    return link.empty() ? "" : fmt::format("PCIe{}", link);
}

std::string device_type(uint8_t code)
{
    const unsigned qualifier = code >> 5;
    std::string type = word_of(device_types, code & 0x1FU, "unknown");
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

} // namespace ctl
