// Codes of the library's records, and the drivers' numbers for the same.
#pragma once

#include "varnok_mgmt.h"

#include <algorithm>
#include <cstdint>
#include <span>

namespace ctl
{

struct code_pair {
    uint32_t reported, driver;
};

constexpr code_pair pcie_speed_codes[] = {
    {VARNOK_PCIE_SPEED_2_5GT, 20}, {VARNOK_PCIE_SPEED_5_0GT, 21}, {VARNOK_PCIE_SPEED_8_0GT, 22}};

constexpr code_pair pcie_width_codes[] = {{VARNOK_PCIE_WIDTH_X1, 1},   {VARNOK_PCIE_WIDTH_X2, 2},
                                          {VARNOK_PCIE_WIDTH_X4, 4},   {VARNOK_PCIE_WIDTH_X8, 8},
                                          {VARNOK_PCIE_WIDTH_X16, 16}, {VARNOK_PCIE_WIDTH_X32, 32}};

constexpr code_pair port_state_codes[] = {
    {VARNOK_PORT_STATE_0, 0}, {VARNOK_PORT_STATE_1, 1}, {VARNOK_PORT_STATE_OTHER, 2}};

constexpr code_pair port_speed_codes[] = {{VARNOK_PORT_SPEED_10G, 10000},
                                          {VARNOK_PORT_SPEED_20G, 20000},
                                          {VARNOK_PORT_SPEED_25G, 25000},
                                          {VARNOK_PORT_SPEED_40G, 40000},
                                          {VARNOK_PORT_SPEED_50G, 50000}};

// 0 for a code that is not in the list: the library did not know the driver's number.
inline uint32_t driver_code(std::span<const code_pair> codes, uint32_t reported)
{
    const auto found = std::ranges::find(codes, reported, &code_pair::reported);
    return found == codes.end() ? 0 : found->driver;
}

// 0 for a number that is not in the list.
inline uint32_t reported_code(std::span<const code_pair> codes, uint64_t driver)
{
    const auto found = std::ranges::find(codes, driver, &code_pair::driver);
    return found == codes.end() ? 0 : found->reported;
}

} // namespace ctl
