// varnok_core.h - loading, unloading, and opening and closing a legacy port.
#pragma once

#include "varnok_export.h"
#include "varnok_instdb.h"

#define VARNOK_API_VERSION_TEXT "v5.00 build2"

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

// A legacy port. 0 or 1; the last argument receives the error number when the device cannot be
// opened or closed.
VARNOK_PRIVATE uint32_t varnok_open_adapter(varnok_priv_db *pdb, uint32_t *papi_handle,
                                            uint32_t *pret_err);
VARNOK_PRIVATE uint32_t varnok_close_adapter(varnok_priv_db *pdb, uint32_t *perr);
}
