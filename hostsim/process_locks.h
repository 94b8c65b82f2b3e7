// process_locks.h - what the interposed calls of a process share. A fork finds all of it at rest, so
// that the child can go on with its copy.
#pragma once

#include <mutex>

namespace hostsim
{

// In the order in which they are taken. The host's own lock comes between them.
struct process_locks {
    std::mutex loading; // of the scenario
    std::mutex devices; // the table of them
};

process_locks &locks();

// True after vfork: this process writes to its parent's memory until it runs another program.
bool borrows_memory();

} // namespace hostsim
