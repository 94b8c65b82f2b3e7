#include "process_locks.h"

#include "machine.h"

#include <atomic>
#include <pthread.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

std::atomic<pid_t> owner; // of this memory

void before_fork()
{
    locks().loading.lock();
    if (machine *const host = installed_host())
        host->before_fork();
    locks().devices.lock();
}

void after_fork(void (machine::*release)())
{
    locks().devices.unlock();
    if (machine *const host = installed_host())
        (host->*release)();
    locks().loading.unlock();
}

void after_fork_in_parent() { after_fork(&machine::after_fork_in_parent); }

void after_fork_in_child()
{
    owner = getpid();
    after_fork(&machine::after_fork_in_child);
}

process_locks *make_locks()
{
    owner = getpid();
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    return new process_locks;
}

} // namespace

// Made at their first use and never destroyed: other libraries call the interposed functions before
// the constructors run and after the destructors.
process_locks &locks()
{
    static process_locks *const made = make_locks();
    return *made;
}

bool borrows_memory()
{
    locks();
    return owner != getpid();
}

} // namespace hostsim
