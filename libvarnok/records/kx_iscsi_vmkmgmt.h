/* kx_iscsi_vmkmgmt.h - the management signature that the library shares with the native driver
 * "rovani". */
#ifndef KX_ISCSI_VMKMGMT_H
#define KX_ISCSI_VMKMGMT_H

#include "records/kx_iscsi_vmkmgmt_struct.h"
#include "records/varnok_export.h"
#include "vmkapi_mgmt_lib.h"

#define KX_ISCSI_DRIVER_NAME "rovani"

#ifdef __cplusplus
extern "C" {
#endif

VARNOK_PRIVATE extern vmk_MgmtCallbackInfo kx_iscsi_callbacks[VARNOK_DRV_CALLBACK_COUNT];
VARNOK_PRIVATE extern vmk_MgmtApiSignature kx_iscsi_sig;

/* Set by every discovery pass, used by all queries, never released. */
VARNOK_PRIVATE extern vmk_MgmtUserHandle kx_iscsi_handle;

#ifdef __cplusplus
}
#endif

#endif
