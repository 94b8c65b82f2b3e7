#include "own_file.h"

#include "errno_keeper.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr mode_t file_mode = 0644;
constexpr mode_t others_may_write = S_IWGRP | S_IWOTH;

// Asked of the kernel itself: other objects of the process may answer geteuid for it.
bool is_owner_trusted(uid_t owner)
{
    return owner == 0 || owner == static_cast<uid_t>(syscall(SYS_geteuid));
}

bool is_own(int fd)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0)
        return false;
    if (S_ISREG(status.st_mode) && status.st_nlink == 1 &&
        (status.st_mode & others_may_write) == 0 && is_owner_trusted(status.st_uid))
        return true;
    errno = EPERM;
    return false;
}

} // namespace

int varnok::open_own_file(const char *path, int flags)
{
    // A FIFO must not block, and a terminal must not become this process's own.
    const int fd = open(path, flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, file_mode);
    if (fd < 0 || is_own(fd))
        return fd;
    const errno_keeper keeper;
    close(fd);
    return -1;
}
