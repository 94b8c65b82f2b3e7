// legacy_adapter.h - opening and closing a port of a legacy driver. Its character device is opened
// once, by the first open.
#pragma once

#include "core/varnok_instdb.h"
#include "records/varnok_export.h"

extern "C" {

// 0 or 1; the last argument receives the error number when the device cannot be opened or closed.
VARNOK_PRIVATE uint32_t varnok_open_adapter(varnok_priv_db *pdb, uint32_t *papi_handle,
                                            uint32_t *pret_err);
VARNOK_PRIVATE uint32_t varnok_close_adapter(varnok_priv_db *pdb, uint32_t *perr);
}

namespace varnok
{

// Whether the port's device is open. The descriptor's value, 0 included, does not tell.
inline bool device_is_open(const varnok_hw_info *hw)
{
    return hw->native_driver != 1 && hw->open_cnt != 0;
}

} // namespace varnok
