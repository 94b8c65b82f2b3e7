#include "core/varnok_device_rules.h"

#include "support/varnok_log.h"

const varnok_device_info varnok_quad_port_zt_list[18] = {
    {0x1E2B, 0x7A24, 0x1E2B, 0x0136}, {0x1E2B, 0x7A24, 0x1E2B, 0x0137},
    {0x1E2B, 0x7A24, 0x1E2B, 0x0141}, {0x1E2B, 0x7A2C, 0x1E2B, 0x0162},
    {0x1E2B, 0x7A2C, 0x1E2B, 0x0163}, {0x1E2B, 0x7A24, 0x1E2B, 0x0165},
    {0x1E2B, 0x7A24, 0x1E2B, 0x0166}, {0x1E2B, 0x7A24, 0x1E2B, 0x0103},
    {0x1E2B, 0x7A24, 0x1E2B, 0x0104}, {0x1E2B, 0x7A24, 0x1E2B, 0x0105},
    {0x1E2B, 0x7A24, 0x1E2B, 0x0106}, {0x1E2B, 0x7A24, 0x1E2B, 0x0110},
    {0x1E2B, 0x7A2C, 0x1A47, 0x0328}, {0x1E2B, 0x7A2C, 0x1A47, 0x037B},
    {0x1E2B, 0x7A24, 0x1C63, 0x2110}, {0x1E2B, 0x7A2C, 0x1D05, 0x617B},
    {0x1E2B, 0x7A2C, 0x1D05, 0x6181}, {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF},
};

namespace
{

constexpr uint16_t end_of_list = 0xFFFF;

// Each admitted device once.
constexpr uint16_t older_family[] = {
    0x2E35, 0x2E36, 0x2E5D, 0x2E61, 0x2E74, 0x2E75, 0x2E77, 0x2E78, 0x2E81,
};
constexpr uint16_t newer_generation[] = {0x7A24, 0x7B24, 0x2E31};

template <size_t Size>
bool holds(const uint16_t (&ids)[Size], uint16_t id)
{
    for (const uint16_t each : ids)
        if (each == id)
            return true;
    return false;
}

} // namespace

uint32_t varnok_is_quad_port_zt(varnok_hw_info *hw_info)
{
    const varnok::trace_scope scope(__func__);
    for (const varnok_device_info *row = varnok_quad_port_zt_list; row->device_id != end_of_list;
         ++row)
        if (hw_info->vendor_id == row->vendor_id && hw_info->device_id == row->device_id &&
            hw_info->ssvendor_id == row->ssvendor_id && hw_info->ssdevice_id == row->ssdevice_id)
            return 0;
    return 1;
}

bool varnok::is_admitted(uint16_t device_id)
{
    return holds(older_family, device_id) || holds(newer_generation, device_id);
}

bool varnok::is_newer_generation(uint16_t device_id) { return holds(newer_generation, device_id); }
