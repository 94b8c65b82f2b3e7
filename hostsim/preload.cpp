// preload.cpp - the preloaded form takes the scenario from the environment. Only a process that
// uses the library sees the simulated host. The shells and tools that it starts do not.
#include "machine.h"
#include "next_calls.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <mutex>
#include <string>

namespace hostsim
{
namespace
{

bool is_the_library(const char *file)
{
    return file != nullptr && std::strstr(file, "libvarnok.so") != nullptr;
}

bool uses_the_library()
{
    static std::atomic<bool> seen{false}; // a process may load the library late
    if (!seen)
        seen = dl_iterate_phdr([](dl_phdr_info *object, size_t,
                                  void *) { return is_the_library(object->dlpi_name) ? 1 : 0; },
                               nullptr) != 0;
    return seen;
}

machine *load_host()
{
    const char *path = std::getenv("VARNOK_HOST_SCENARIO");
    if (path == nullptr)
        return nullptr;
    try {
        // A short scenario comes as its text.
        auto made = *path == '{' ? host::from_text(path) : host::from_file(path);
        return static_cast<machine *>(made.release());
    } catch (const std::exception &e) {
        std::fprintf(stderr, "varnok-hostsim: %s: %s\n", path, e.what());
        return nullptr;
    }
}

machine *host_of_process()
{
    static thread_local bool busy = false; // reading the scenario calls this again
    if (busy)
        return nullptr;
    const int error = errno;
    machine *found = nullptr;
    busy = true;
    if (uses_the_library()) {
        static machine *const the_host = load_host();
        found = the_host;
    }
    busy = false;
    errno = error;
    return found;
}

__attribute__((constructor)) void set_finder() { find_host = host_of_process; }

bool is_in_the_library(const void *code)
{
    Dl_info object{};
    return dladdr(code, &object) != 0 && is_the_library(object.dli_fname);
}

} // namespace
} // namespace hostsim

// The library counts its users with a pipeline of the machine's programs. They start without this
// object, which lsof would otherwise find in each of them.
extern "C" __attribute__((visibility("default"))) FILE *popen(const char *command, const char *mode)
{
    static const auto real = REAL(popen);
    const char *preloaded = hostsim::is_in_the_library(__builtin_return_address(0))
                                ? std::getenv("LD_PRELOAD")
                                : nullptr;
    if (preloaded == nullptr)
        return real(command, mode);
    const std::string kept = preloaded;
    unsetenv("LD_PRELOAD");
    FILE *const stream = real(command, mode);
    const int error = errno;
    setenv("LD_PRELOAD", kept.c_str(), 1);
    errno = error;
    return stream;
}
