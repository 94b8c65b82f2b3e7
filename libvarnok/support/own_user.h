// own_user.h - whom this process trusts: root and its own effective user.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace varnok
{

// Asked of the kernel itself: other objects of the process may answer geteuid for it.
inline uid_t kernel_euid()
{
#ifdef SYS_geteuid32 // the plain call of 32-bit x86 cuts users to 16 bits
    return static_cast<uid_t>(syscall(SYS_geteuid32));
#else
    return static_cast<uid_t>(syscall(SYS_geteuid));
#endif
}

inline bool is_root() { return kernel_euid() == 0; }

inline bool is_trusted(uid_t user) { return user == 0 || user == kernel_euid(); }

} // namespace varnok
