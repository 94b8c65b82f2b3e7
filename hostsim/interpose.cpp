// interpose.cpp - defines the calls of the simulated host under their ordinary names, for a program
// that links this file or has it preloaded.
#include "calls.h"
#include "next_calls.h"

#include <fcntl.h>

namespace answers = hostsim::calls;
#include "interposed_calls.h"

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED int open(const char *path, int flags, ...)
{
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    FROM_REST(flags, const mode_t mode = makes ? va_arg(rest, mode_t) : 0);
    return hostsim::calls::open(path, flags, mode);
}

INTERPOSED int close(int fd) { return hostsim::calls::close(fd); }

INTERPOSED int fcntl(int fd, int command, ...)
{
    FROM_REST(command, void *const argument = va_arg(rest, void *));
    return hostsim::calls::fcntl(fd, command, argument);
}

// The name in programs that use 64-bit file offsets.
INTERPOSED int fcntl64(int fd, int command, ...) __attribute__((alias("fcntl")));

INTERPOSED int dup(int fd) noexcept { return hostsim::calls::dup(fd); }
INTERPOSED int dup2(int fd, int to) noexcept { return hostsim::calls::dup2(fd, to); }
INTERPOSED int dup3(int fd, int to, int flags) noexcept
{
    return hostsim::calls::dup3(fd, to, flags);
}
