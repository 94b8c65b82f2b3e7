// preload.cpp - the preloaded form takes the scenario from the environment. Only a process that
// uses the library sees the simulated host. The shells and tools that it starts do not.
#include "machine.h"
#include "messages.h"
#include "process_locks.h"
#include "scenario_source.h"
#include "the_library.h"

#include <atomic>
#include <cerrno>
#include <link.h>
#include <mutex>
#include <unistd.h>

namespace hostsim
{
namespace
{

std::atomic<bool> is_up{false};

bool uses_the_library()
{
    static std::atomic<bool> seen{false}; // a process may load the library late
    if (!seen)
        seen = dl_iterate_phdr([](dl_phdr_info *object, size_t,
                                  void *) { return is_the_library(object->dlpi_name) ? 1 : 0; },
                               nullptr) != 0;
    return seen;
}

// Without its host the process would go on to the real machine.
void install_passed_host()
{
    constexpr int not_started = 127;
    try {
        install(load(passed_source()).release());
    } catch (const std::exception &e) {
        complain(e.what());
        _exit(not_started);
    }
}

machine *host_of_process()
{
    static thread_local bool busy = false; // reading the scenario calls this again
    if (busy)
        return nullptr;
    const int error = errno;
    busy = true;
    if (uses_the_library()) {
        std::lock_guard lock(locks().loading);
        if (installed_host() == nullptr)
            install_passed_host();
    }
    busy = false;
    errno = error;
    return installed_host();
}

// The host's own sources have no objects that a constructor must make before.
__attribute__((constructor)) void start()
{
    find_host = host_of_process;
    is_up = true;
    host_of_process();
}

} // namespace
} // namespace hostsim

// Tells varnok-host that the loader has taken this object.
extern "C" __attribute__((visibility("default"))) bool varnok_hostsim_is_up()
{
    return hostsim::is_up;
}
