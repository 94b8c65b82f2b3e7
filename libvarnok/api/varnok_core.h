// varnok_core.h - loading and unloading.
#pragma once

#include "records/varnok_export.h"

#include <cstdint>

extern "C" {

// 1 on ESXi, 2 elsewhere, 0 before the first check.
VARNOK_PRIVATE extern uint8_t varnok_os_type;

// Checks the user and the host, asks the four drivers and joins the shared database. 0 on success
// and when an older-family driver answered and no port was kept; nothing is loaded then.
VARNOK_PRIVATE uint32_t varnok_load_lib(void);

// Closes every device, leaves the shared database, forgets every port. Returns 0.
VARNOK_PRIVATE uint32_t varnok_unload_lib(void);

VARNOK_PRIVATE void varnok_check_esx(void);

// Closes every open device and withdraws every handle, whatever the open counts.
VARNOK_PRIVATE void varnok_cleanup_hbas(void);
}
