/* The management library of a host without VMkernel: no driver answers. */
#include "vmkapi_mgmt_lib.h"

#include <errno.h>

int vmk_MgmtUserInit(vmk_MgmtApiSignature *signature, vmk_uint64 cookie, vmk_MgmtUserHandle *handle)
{
    (void)signature;
    (void)cookie;
    (void)handle;
    errno = ENOSYS;
    return -1;
}

int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, vmk_uint64 instance,
                                  vmk_uint64 callback_id, vmk_uint32 parm_count, ...)
{
    (void)handle;
    (void)instance;
    (void)callback_id;
    (void)parm_count;
    errno = ENOSYS;
    return -1;
}
