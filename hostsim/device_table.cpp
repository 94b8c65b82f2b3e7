#include "device_table.h"

#include "process_locks.h"

#include <map>
#include <mutex>

namespace hostsim
{
namespace
{

// Never destroyed, like its lock.
std::map<int, driver_id> &devices()
{
    static auto *const by_descriptor = new std::map<int, driver_id>;
    return *by_descriptor;
}

} // namespace

std::optional<driver_id> driver_of(int fd)
{
    std::lock_guard lock(locks().devices);
    const auto at = devices().find(fd);
    return at == devices().end() ? std::nullopt : std::optional(at->second);
}

void keep(int fd, std::optional<driver_id> driver)
{
    if (borrows_memory())
        return; // the table is the parent's, and so are its descriptors
    std::lock_guard lock(locks().devices);
    devices().erase(fd);
    if (driver)
        devices().emplace(fd, *driver);
}

int kept_duplicate(int fd, long made)
{
    if (made >= 0)
        keep(static_cast<int>(made), driver_of(fd));
    return static_cast<int>(made);
}

int open_devices()
{
    std::lock_guard lock(locks().devices);
    return static_cast<int>(devices().size());
}

} // namespace hostsim
