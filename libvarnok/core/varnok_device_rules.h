// varnok_device_rules.h - what a PCI device ID decides: admission, the adapter generation,
// quad-port boards.
#pragma once

#include "core/varnok_instdb.h"

extern "C" {

typedef struct varnok_device_info {
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t ssvendor_id;
    uint16_t ssdevice_id;
} varnok_device_info;

// Ends with a row of 0xFFFF.
VARNOK_PRIVATE extern const varnok_device_info varnok_quad_port_zt_list[18];

// 0 for a quad-port adapter, 1 for any other.
VARNOK_PRIVATE uint32_t varnok_is_quad_port_zt(varnok_hw_info *hw_info);
}

namespace varnok
{

// Discovery drops every other device without a word.
bool is_admitted(uint16_t device_id);

bool is_newer_generation(uint16_t device_id);

} // namespace varnok
