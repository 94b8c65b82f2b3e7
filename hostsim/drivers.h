// drivers.h - what tells the four kernel drivers apart.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "hostsim.h"
#include "kx_iscsi_vmkmgmt.h"
#include "pelt_vmkmgmt.h"
#include "peltl_ioctl.h"
#include "varnok_ioctl.h"

namespace hostsim
{

struct driver_facts {
    std::string_view name;
    bool native;
    bool newer;
    std::string_view ioctl_signature;
    uint32_t ioctl_base;
};

inline constexpr std::array<driver_facts, 4> drivers = {{
    {KX_ISCSI_DRIVER_NAME, true, false, "", 0},
    {TEPLI_DRIVER_NAME, false, false, TEPLI_IOCTL_SIGNATURE, TEPLI_IOCTL_BASE},
    {PELT_DRIVER_NAME, true, true, "", 0},
    {DXO_DRIVER_NAME, false, true, DXO_IOCTL_SIGNATURE, DXO_IOCTL_BASE},
}};

inline const driver_facts &facts(driver_id d) { return drivers[static_cast<size_t>(d)]; }

} // namespace hostsim
