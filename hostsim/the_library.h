// the_library.h - tells the library from other objects of a process.
#pragma once

#include <cstring>

namespace hostsim
{

inline bool is_the_library(const char *file)
{
    return file != nullptr && std::strstr(file, "libvarnok.so") != nullptr;
}

} // namespace hostsim
