// Which ports and targets are meant, as a user names them.
#pragma once

#include "varnok_mgmt.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ctl
{

constexpr const char *port_help = "The port: its number, its name or its MAC address";

// A number, an adapter's name or a MAC address. Empty: every port.
struct port_choice {
    std::string text;

    bool any() const { return text.empty(); }
    std::optional<uint32_t> number() const;
    bool fits(uint32_t instance, const VARNOK_PHY_PORT_INFO &info) const;
};

// A number, or a name in which '*' stands for any characters. Empty: every target.
struct target_choice {
    std::string text;

    bool any() const { return text.empty(); }
    std::optional<uint32_t> number() const;
    bool fits(uint32_t number, const uint8_t (&name)[256]) const;
};

} // namespace ctl
