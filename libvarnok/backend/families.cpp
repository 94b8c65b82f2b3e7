#include "backend/families.h"

#include "backend/peltl_core.h"
#include "backend/varnok_core_ioctl.h"
#include "backend/varnok_ntapi.h"
#include "backend/varnok_ryx_ntapi.h"
#include "core/varnok_device_rules.h"

namespace
{

using namespace varnok;

constexpr family all_families[] = {
    {rovani_backend, &tepli_backend, nullptr},
    {pelt_backend, &dxo_backend, is_newer_generation},
};

const family &family_of(uint16_t device_id)
{
    for (const family &each : all_families)
        if (each.serves != nullptr && each.serves(device_id))
            return each;
    return all_families[0];
}

} // namespace

std::span<const varnok::family> varnok::families() { return all_families; }

const varnok::backend &varnok::backend_of(const varnok_priv_db *pdb)
{
    const varnok_hw_info *const hw = pdb->hw_info;
    const family &its = family_of(hw->device_id);
    return hw->native_driver == 1 || its.legacy == nullptr ? its.native : *its.legacy;
}
