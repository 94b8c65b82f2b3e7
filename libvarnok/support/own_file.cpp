#include "support/own_file.h"

#include "support/descriptor.h"
#include "support/own_user.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using namespace varnok;

constexpr mode_t file_mode = 0644;
// A FIFO must not block, and a terminal must not become this process's own.
constexpr int guards = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
// Other processes make and remove the file at any moment; each time the name is looked at again.
constexpr int attempts_max = 10'000;

enum class verdict { good, failed, again };

verdict refuse(own_file &file, const char *why, int err = EPERM)
{
    file.refused = why;
    errno = err;
    return verdict::failed;
}

// On a file system without owners every file seems to be a stranger's, the library's own too.
bool keeps_owners(const char *path, uid_t stranger)
{
    char probe[64];
    snprintf(probe, sizeof probe, "%s.%ld", path, static_cast<long>(getpid()));
    const descriptor made(open(probe, O_RDWR | O_CREAT | O_EXCL | guards, file_mode));
    if (!made)
        return true;
    struct stat status = {};
    const bool strange = fstat(made.get(), &status) == 0 && status.st_uid == stranger;
    remove(probe);
    return !strange;
}

// Only the file that was looked at goes: another process may have put its own there since.
verdict replace_strangers_file(own_file &file, const char *path, const struct stat &seen)
{
    struct stat now = {};
    if (!is_root())
        return refuse(file, "it belongs to another user");
    if (lstat(path, &now) == 0 && now.st_dev == seen.st_dev && now.st_ino == seen.st_ino &&
        remove(path) != 0)
        return refuse(file, "it belongs to another user and cannot be removed");
    return verdict::again;
}

bool is_strangers(const char *path, const struct stat &seen)
{
    return !is_trusted(seen.st_uid) && keeps_owners(path, seen.st_uid);
}

verdict judge(own_file &file, const char *path, int fd, owner_rule rule)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0)
        return verdict::failed;
    if (!S_ISREG(status.st_mode))
        return refuse(file, "it is not a plain file");
    if (status.st_nlink == 0)
        return verdict::again; // removed since it was opened
    if (rule == owner_rule::trusted && is_strangers(path, status))
        return replace_strangers_file(file, path, status);
    if (status.st_nlink > 1)
        return refuse(file, "it has a second name");
    // A file that cannot be closed to others is used all the same.
    if (rule == owner_rule::trusted && (status.st_mode & 07777 & ~file_mode) != 0)
        fchmod(fd, status.st_mode & file_mode);
    return verdict::good;
}

// Something lies there and does not open: a stranger may run it as a program, or hold a lease on
// it.
verdict judge_unopened(own_file &file, const char *path, owner_rule rule, int why, bool first_time)
{
    struct stat status = {};
    if (first_time || lstat(path, &status) != 0)
        return verdict::again;
    if (rule == owner_rule::trusted && S_ISREG(status.st_mode) && is_strangers(path, status))
        return replace_strangers_file(file, path, status);
    return refuse(file, "it cannot be opened", why);
}

// The name leads to something that open itself refuses.
const char *refused_by_open()
{
    switch (errno) {
    case ELOOP:
        return "it is a symbolic link";
    case EISDIR:
        return "it is a folder";
    case ENXIO: // nobody reads from it, or nothing answers there
        return "it is not a plain file";
    default:
        return nullptr;
    }
}

verdict open_once(own_file &file, const char *path, int flags, owner_rule rule, bool first_time)
{
    descriptor found(open(path, flags | guards));
    if (found) {
        const verdict result = judge(file, path, found.get(), rule);
        if (result == verdict::good)
            file.fd = found.release();
        return result;
    }
    file.refused = refused_by_open();
    if (file.refused != nullptr)
        return verdict::failed;
    const int why = errno;
    // What was made here and now is nobody else's.
    file.fd = above_standard(open(path, flags | O_CREAT | O_EXCL | guards, file_mode));
    file.created = file.fd >= 0;
    if (file.created)
        return verdict::good;
    if (errno != EEXIST)
        return verdict::failed;
    return why == ENOENT ? verdict::again : judge_unopened(file, path, rule, why, first_time);
}

} // namespace

varnok::own_file varnok::open_own_file(const char *path, int flags, owner_rule rule)
{
    own_file file;
    verdict result = verdict::again;
    for (int attempt = 0; attempt < attempts_max && result == verdict::again; ++attempt)
        result = open_once(file, path, flags, rule, attempt == 0);
    if (result == verdict::again)
        refuse(file, "it comes and goes", EBUSY);
    return file;
}
