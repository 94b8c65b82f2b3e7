// preload.cpp - the preloaded form: the scenario comes by the environment, and only a process that
// uses the library sees the simulated host. The shells and tools that it starts do not.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <mutex>

#include "machine.h"

namespace hostsim
{
namespace
{

int is_the_library(struct dl_phdr_info *object, size_t, void *)
{
    return object->dlpi_name && std::strstr(object->dlpi_name, "libvarnok.so") ? 1 : 0;
}

bool uses_the_library()
{
    static std::atomic<bool> seen{false}; // the library may be loaded at any time
    if (!seen)
        seen = dl_iterate_phdr(is_the_library, nullptr) != 0;
    return seen;
}

machine *load()
{
    const char *path = std::getenv("VARNOK_HOST_SCENARIO");
    if (!path)
        return nullptr;
    try {
        // A scenario of a line or two comes as it is.
        auto made = *path == '{' ? host::from_text(path) : host::from_file(path);
        return static_cast<machine *>(made.release());
    } catch (const std::exception &e) {
        std::fprintf(stderr, "varnok-hostsim: %s: %s\n", path, e.what());
        return nullptr;
    }
}

machine *find()
{
    static thread_local bool busy = false; // reading the scenario comes through here again
    if (busy)
        return nullptr;
    const int error = errno;
    machine *found = nullptr;
    busy = true;
    if (uses_the_library()) {
        static machine *const the_host = load();
        found = the_host;
    }
    busy = false;
    errno = error;
    return found;
}

__attribute__((constructor)) void arm() { find_host = find; }

} // namespace
} // namespace hostsim
