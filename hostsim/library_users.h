// library_users.h - counts the library's users as the host's lsof does, but without starting it.
#pragma once

#include <cstddef>
#include <optional>

namespace hostsim
{

// How many lines of lsof have "libvarnok" in them. Nothing: the processes cannot be listed.
std::optional<size_t> lines_with_the_library();

} // namespace hostsim
