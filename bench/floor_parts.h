// floor_parts.h - what the floors of the calls are made of: memory, and the platform's calls.
#pragma once

#include "records/varnok_driver_records.h"
#include "records/varnok_ioctl.h"
#include "vmkapi_mgmt_lib.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>

namespace bench::floor
{

inline constexpr size_t portal_size =
    offsetof(varnok_drv_port_info, hba_name) -
    offsetof(varnok_drv_port_info, ipv4_port); // what is kept fresh

// The C library's own, which are faster than what is put in their place for a known size.
[[gnu::noinline]] inline void copy(void *to, const void *from, size_t size)
{
    memcpy(to, from, size);
}
[[gnu::noinline]] inline void clear(void *at, size_t size) { memset(at, 0, size); }

template <class T>
T *zeros(size_t count = 1)
{
    return static_cast<T *>(calloc(count, sizeof(T)));
}

inline void call_native(uint32_t id, void *envelope)
{
    vmk_MgmtUserCallbackInvokeInt(1, 0, id, 1, envelope);
}

inline void call_legacy(int fd, uint32_t number, uint32_t instance, void *record)
{
    varnok_drv_ioctl header = {};
    memcpy(header.signature, "LEGACY", 7);
    header.addrmode = VARNOK_DRV_IOCTL_ADDRMODE;
    header.version = VARNOK_DRV_IOCTL_VERSION;
    header.ioctlstructaddr = reinterpret_cast<uintptr_t>(record);
    header.hbaselect = static_cast<uint16_t>(instance);
    ioctl(fd, number, &header);
}

} // namespace bench::floor
