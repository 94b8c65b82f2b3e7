// descriptor.h - a file descriptor for the length of a scope, clear of the standard ones.
#pragma once

#include "support/errno_keeper.h"

#include <fcntl.h>
#include <unistd.h>

namespace varnok
{

// In a program that closed its standard descriptors, a file could take the place of standard error,
// and log lines would be written into it. Such a file moves up at once. One that cannot move stays.
inline int above_standard(int fd)
{
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const errno_keeper keeper;
    const bool ends_on_exec = (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
    const int moved = fcntl(fd, ends_on_exec ? F_DUPFD_CLOEXEC : F_DUPFD, STDERR_FILENO + 1);
    if (moved < 0)
        return fd;
    close(fd);
    return moved;
}

class descriptor
{
  public:
    // Takes what open returned, a failure included.
    explicit descriptor(int fd) : fd_(above_standard(fd)) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }

    // Closes it before the scope ends.
    void reset()
    {
        const errno_keeper keeper;
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    // Hands it over to a longer life.
    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_;
};

} // namespace varnok
