// drivers.h - the table of the four kernel drivers. Everything that lists drivers reads it.
#pragma once

#include "hostsim.h"
#include "records/kx_iscsi_vmkmgmt.h"
#include "records/pelt_vmkmgmt.h"
#include "records/peltl_ioctl.h"
#include "records/varnok_ioctl.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace hostsim
{

enum class transport : uint8_t { native, legacy }; // callbacks, or ioctls on a device node
enum class family : uint8_t { older, newer };

// The PCI device IDs that the library admits. A port has the first of its family by default.
inline constexpr uint16_t older_device_ids[] = {0x2E35, 0x2E36, 0x2E5D, 0x2E61, 0x2E74,
                                                0x2E75, 0x2E77, 0x2E78, 0x2E81};
inline constexpr uint16_t newer_device_ids[] = {0x7A24, 0x7B24, 0x2E31};

struct driver_facts {
    driver_id id;
    std::string_view name;
    transport called_by;
    family adapters;
    std::span<const uint16_t> device_ids;
    std::string_view ioctl_signature;
    uint32_t ioctl_base;
};

// In the order of enum driver_id.
inline constexpr std::array<driver_facts, 4> drivers = {{
    {driver_id::rovani, KX_ISCSI_DRIVER_NAME, transport::native, family::older, older_device_ids,
     "", 0},
    {driver_id::tepli, TEPLI_DRIVER_NAME, transport::legacy, family::older, older_device_ids,
     TEPLI_IOCTL_SIGNATURE, TEPLI_IOCTL_BASE},
    {driver_id::pelt, PELT_DRIVER_NAME, transport::native, family::newer, newer_device_ids, "", 0},
    {driver_id::dxo, DXO_DRIVER_NAME, transport::legacy, family::newer, newer_device_ids,
     DXO_IOCTL_SIGNATURE, DXO_IOCTL_BASE},
}};

constexpr const driver_facts &facts(driver_id d) { return drivers[static_cast<size_t>(d)]; }
static_assert(std::ranges::all_of(drivers, [](const auto &d) { return &facts(d.id) == &d; }));

constexpr bool is_native(const driver_facts &d) { return d.called_by == transport::native; }
constexpr bool is_native(driver_id d) { return is_native(facts(d)); }

// The names of a table's rows.
template <class Row, size_t N>
constexpr std::array<std::string_view, N> names_of(const std::array<Row, N> &rows)
{
    std::array<std::string_view, N> names;
    std::ranges::transform(rows, names.begin(), &Row::name);
    return names;
}

inline constexpr auto driver_names = names_of(drivers);

} // namespace hostsim
