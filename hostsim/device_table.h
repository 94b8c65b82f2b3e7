// device_table.h - which descriptors of this process are devices of a simulated driver.
#pragma once

#include "hostsim.h"

#include <optional>

namespace hostsim
{

std::optional<driver_id> driver_of(int fd);

// Without a driver, fd is no device any more.
void keep(int fd, std::optional<driver_id> driver);

// A duplicate belongs to the same device as fd. Its number may have been another device's. Returns
// the result of the call that made it.
int kept_duplicate(int fd, long made);

} // namespace hostsim
