// families.h - the adapter families, and which back-end serves a port.
#pragma once

#include "backend/backend.h"

#include <span>

namespace varnok
{

// A family's native driver wins: its legacy driver is asked only when the native one fails.
struct family {
    const backend &native;
    const backend *legacy;              // null: none
    bool (*serves)(uint16_t device_id); // null: every device that no other family serves
};

// In the order of discovery. What a load without ports returns is decided by the first.
std::span<const family> families();

// Derived afresh at each use from native_driver and device_id, which may change. Which pass found
// the port does not matter.
const backend &backend_of(const varnok_priv_db *pdb);

} // namespace varnok
