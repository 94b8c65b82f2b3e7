// calls.h - the calls of the system and of the management library, as the simulated host answers
// them. A call that does not concern the host goes to the kernel.
#pragma once

#include "vmkapi_mgmt_lib.h"

#include <sys/types.h>
#include <sys/utsname.h>

namespace hostsim::calls
{

int open(const char *path, int flags, mode_t mode);
int close(int fd);
int fcntl(int fd, int command, void *argument);
int dup(int fd);
int dup2(int fd, int to);
int dup3(int fd, int to, int flags);
int ioctl(int fd, unsigned long code, void *argument);
int uname(utsname *name);
uid_t geteuid();
int mgmt_init(vmk_MgmtApiSignature *signature, vmk_MgmtUserHandle *handle);
int mgmt_invoke(vmk_MgmtUserHandle handle, vmk_uint64 instance, vmk_uint64 callback,
                vmk_uint32 count, void *envelope);

} // namespace hostsim::calls
