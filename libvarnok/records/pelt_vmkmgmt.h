/* pelt_vmkmgmt.h - the management signature that the library shares with the native driver "pelt".
 */
#ifndef PELT_VMKMGMT_H
#define PELT_VMKMGMT_H

#include "records/pelt_vmkmgmt_struct.h"
#include "records/varnok_export.h"
#include "vmkapi_mgmt_lib.h"

#define PELT_DRIVER_NAME "pelt"

#ifdef __cplusplus
extern "C" {
#endif

VARNOK_PRIVATE extern vmk_MgmtCallbackInfo pelt_callbacks[VARNOK_DRV_CALLBACK_COUNT];
VARNOK_PRIVATE extern vmk_MgmtApiSignature pelt_sig;

/* Set by every discovery pass, used by all queries, never released. */
VARNOK_PRIVATE extern vmk_MgmtUserHandle pelt_handle;

#ifdef __cplusplus
}
#endif

#endif
