#include "calls.h"

#include "caller_memory.h"
#include "device_table.h"
#include "drivers.h"
#include "machine.h"
#include "requests.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

using namespace hostsim;

namespace
{

// The legacy driver whose device node the path names. What is wrong with a path that cannot be read
// is for the kernel to say.
const driver_facts *driver_at(const char *path)
{
    constexpr std::string_view folder = "/dev/char/vmkdriver/";
    std::array<char, 64> beginning{}; // longer than the paths of all nodes
    const size_t read = copy_beginning(path, beginning);
    const std::string_view name(beginning.data(), strnlen(beginning.data(), read));
    if (!name.starts_with(folder))
        return nullptr;
    const auto *at = std::find_if(drivers.begin(), drivers.end(), [&](const driver_facts &d) {
        return !is_native(d) && d.name == name.substr(folder.size());
    });
    return at == drivers.end() ? nullptr : at;
}

int real_open(const char *path, int flags, mode_t mode)
{
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

} // namespace

int calls::open(const char *path, int flags, mode_t mode)
{
    const driver_facts *d = driver_at(path);
    machine *const simulated = d != nullptr ? current() : nullptr;
    if (simulated == nullptr)
        return real_open(path, flags, mode);

    if (simulated->open_device(d->id) != 0)
        return -1;
    int fd = real_open("/dev/null", flags, mode); // fstat shows a character device
    if (fd >= 0)
        keep(fd, d->id);
    return fd;
}

int calls::close(int fd)
{
    keep(fd, std::nullopt);
    return static_cast<int>(syscall(SYS_close, fd));
}

int calls::fcntl(int fd, int command, void *argument)
{
    const long result = syscall(SYS_fcntl, fd, command, argument);
    const bool duplicates = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return duplicates ? kept_duplicate(fd, result) : static_cast<int>(result);
}

int calls::dup(int fd) { return kept_duplicate(fd, syscall(SYS_dup, fd)); }

// Some architectures have no system call for this.
int calls::dup2(int fd, int to)
{
    if (fd != to)
        return dup3(fd, to, 0);
    return fcntl(fd, F_GETFD, nullptr) < 0 ? -1 : fd;
}

int calls::dup3(int fd, int to, int flags)
{
    return kept_duplicate(fd, syscall(SYS_dup3, fd, to, flags));
}

int calls::ioctl(int fd, unsigned long code, void *argument)
{
    const std::optional<driver_id> driver = driver_of(fd);
    machine *const simulated = driver ? current() : nullptr;
    if (simulated == nullptr)
        return static_cast<int>(syscall(SYS_ioctl, fd, code, argument));
    return simulated->ioctl(*driver, code, argument);
}

int calls::uname(utsname *name)
{
    auto result = static_cast<int>(syscall(SYS_uname, name));
    machine *const simulated = result == 0 ? current() : nullptr;
    if (simulated != nullptr)
        snprintf(name->sysname, sizeof name->sysname, "%s",
                 simulated->description().sysname.c_str());
    return result;
}

uid_t calls::geteuid()
{
    machine *const simulated = current();
    return simulated != nullptr ? simulated->description().euid
                                : static_cast<uid_t>(syscall(SYS_geteuid));
}

int calls::mgmt_init(vmk_MgmtApiSignature *signature, vmk_MgmtUserHandle *handle)
{
    machine *const simulated = current();
    if (simulated == nullptr || signature == nullptr || handle == nullptr) {
        errno = simulated != nullptr ? EFAULT : ENOSYS;
        return -1;
    }
    const auto records = std::as_writable_bytes(std::span(signature, 1));
    if (!is_readable(records) || !is_writable(std::as_writable_bytes(std::span(handle, 1)))) {
        errno = EFAULT;
        return -1;
    }
    // No driver has more callbacks than requests: a larger number is refused unread.
    const auto count = std::min<size_t>(signature->numCallbacks, record_requests.size());
    if (!is_readable(std::as_bytes(std::span(signature->callbacks, count)))) {
        errno = EFAULT;
        return -1;
    }
    return simulated->init(*signature, *handle);
}

int calls::mgmt_invoke(vmk_MgmtUserHandle handle, vmk_uint64 instance, vmk_uint64 callback,
                       vmk_uint32 count, void *envelope)
{
    machine *const simulated = current();
    if (simulated == nullptr || instance != 0 || count != 1) {
        errno = simulated != nullptr ? EINVAL : ENOSYS;
        return -1;
    }
    return simulated->invoke(handle, callback, envelope);
}
