// The shared file: creating it, and growing one that an earlier version left shorter.
#include "heap_buffer.h"
#include "own_file.h"
#include "varnok_log.h"
#include "varnok_shared_db.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t file_size = sizeof(varnok_shared_db);

// The file that the descriptor was opened on: the program around the library may have closed it.
struct {
    dev_t device;
    ino_t inode;
} opened;

bool wrote_all(int fd, const uint8_t *bytes)
{
    return write(fd, bytes, file_size) == static_cast<ssize_t>(file_size);
}

enum class outcome { good, failed, withdrawn };

// Fills a new file with zeros. A file that cannot be filled is withdrawn: closed and deleted.
outcome fill_new(const char *func, int fd)
{
    const varnok::heap_buffer<uint8_t> zeros(file_size);
    if (!zeros) {
        LOG_ERROR_AS(func, ": malloc tmp mem failed=", dec(errno));
        return outcome::failed;
    }
    if (!wrote_all(fd, zeros.get()))
        LOG_ERROR_AS(func, ": Unable to write completely to shared data file. errno=", dec(errno));
    else if (fsync(fd) != 0)
        LOG_ERROR_AS(func, ": fsync failed. errno=", dec(errno));
    else
        return outcome::good;
    close(fd);
    if (remove(varnok_db_fname) != 0)
        LOG_ERROR_AS(func, ": Unable to remove shared data file. errno=", dec(errno));
    return outcome::withdrawn;
}

// Keeps the bytes that are there at their offsets and adds zeros.
outcome grow(const char *func, int fd, size_t size)
{
    const varnok::heap_buffer<uint8_t> old(size == 0 ? 1 : size);
    if (!old) {
        LOG_ERROR_AS(func, ": malloc failed=", dec(errno));
        return outcome::failed;
    }
    if (read(fd, old.get(), size) != static_cast<ssize_t>(size)) {
        LOG_ERROR_AS(func, ": Unable to read shared data file. errno=", dec(errno));
        return outcome::failed;
    }
    const varnok::heap_buffer<uint8_t> image(file_size);
    if (!image) {
        LOG_ERROR_AS(func, ": Unable to alloc new shared data buf. errno=", dec(errno));
        return outcome::failed;
    }
    memcpy(image.get(), old.get(), size);
    if (lseek(fd, 0, SEEK_SET) != 0) {
        LOG_ERROR_AS(func, ": Unable to seek to beginning of shared data file. errno=", dec(errno));
        return outcome::failed;
    }
    if (!wrote_all(fd, image.get())) {
        LOG_ERROR_AS(func, ": Unable to upgrade shared data file. errno=", dec(errno));
        return outcome::failed;
    }
    if (fsync(fd) != 0) {
        LOG_ERROR_AS(func, ": fsync failed for existing file. errno=", dec(errno));
        return outcome::failed;
    }
    LOG_TRACE_AS(func, ": done upgrading shared data file.");
    return outcome::good;
}

// Only an empty file is taken for a new one: what is there already is never written over.
outcome make_whole(const char *func, int fd, bool created)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        LOG_ERROR_AS(func, ": Unable to read shared data file. errno=", dec(errno));
        return outcome::failed;
    }
    opened = {status.st_dev, status.st_ino};
    if (created && status.st_size == 0)
        return fill_new(func, fd);
    if (status.st_size >= static_cast<off_t>(file_size))
        return outcome::good;
    return grow(func, fd, static_cast<size_t>(status.st_size));
}

} // namespace

int varnok::open_shared_file(const char *func)
{
    int fd = open_own_file(varnok_db_fname, O_RDWR);
    const bool created = fd < 0;
    if (created)
        fd = open_own_file(varnok_db_fname, O_CREAT | O_RDWR);
    if (fd < 0) {
        LOG_ERROR_AS(func, ": Unable to create shared data file. errno=", dec(errno));
        return -1;
    }
    const outcome result = make_whole(func, fd, created);
    if (result == outcome::good)
        return fd;
    if (result == outcome::failed)
        close(fd);
    return -1;
}

bool varnok::shared_file_is_whole(int fd)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0 || status.st_dev != opened.device || status.st_ino != opened.inode)
        return true;
    return status.st_size >= static_cast<off_t>(file_size) ||
           posix_fallocate(fd, 0, file_size) == 0;
}
