/*
 * vmkapi_mgmt_lib.h - the part of the VMkernel management user library that libvarnok uses.
 *
 * An application and a kernel driver declare the same signature. The application opens a handle on
 * it and calls the driver's kernel callbacks, each with one in/out parameter.
 */
#ifndef VMKAPI_MGMT_LIB_H
#define VMKAPI_MGMT_LIB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t vmk_uint8;
typedef uint32_t vmk_uint32;
typedef uint64_t vmk_uint64;
typedef uint32_t vmk_revnum;
typedef uint64_t vmk_MgmtUserHandle;

#define VMK_NAME_MAX 32
#define VMK_MGMT_MAX_PARMS 4

typedef struct vmk_Name {
    char string[VMK_NAME_MAX];
} vmk_Name;

typedef enum vmk_MgmtCallbackLocation { VMK_MGMT_CALLBACK_KERNEL = 1 } vmk_MgmtCallbackLocation;

typedef enum vmk_MgmtParmType { VMK_MGMT_PARMTYPE_INOUT = 2 } vmk_MgmtParmType;

typedef struct vmk_MgmtCallbackInfo {
    vmk_MgmtCallbackLocation location;
    void *callback; /* null for a function that lives in the driver */
    vmk_uint8 synchronous;
    vmk_uint8 numParms;
    vmk_uint32 parmTypes[VMK_MGMT_MAX_PARMS]; /* vmk_MgmtParmType, 0 when unused */
    vmk_uint32 parmSizes[VMK_MGMT_MAX_PARMS]; /* bytes, 0 when unused */
    vmk_uint64 callbackId;
} vmk_MgmtCallbackInfo;

typedef struct vmk_MgmtApiSignature {
    vmk_revnum version;
    vmk_Name name;
    vmk_Name vendor;
    vmk_uint32 numCallbacks;
    vmk_MgmtCallbackInfo *callbacks;
} vmk_MgmtApiSignature;

/* Opens a management handle. 0 when the kernel side with this signature is present; any other
 * result means that it is not. There is no matching release. */
int vmk_MgmtUserInit(vmk_MgmtApiSignature *signature, vmk_uint64 cookie,
                     vmk_MgmtUserHandle *handle);

/* Runs a kernel callback and returns when it has run. parm_count addresses follow, each of the size
 * that the signature's table gives. 0 when the call was carried out, else nonzero with errno set.
 */
int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, vmk_uint64 instance,
                                  vmk_uint64 callback_id, vmk_uint32 parm_count, ...);

#ifdef __cplusplus
}
#endif

#endif
