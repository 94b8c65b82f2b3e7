#include "core/shared_db_file.h"

#include "core/varnok_shared_db.h"
#include "support/descriptor.h"
#include "support/heap_buffer.h"
#include "support/own_file.h"
#include "support/varnok_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const char varnok_db_fname[40] = "/tmp/varnok_shared.dat";

namespace
{

constexpr size_t file_size = sizeof(varnok_shared_db);

// The file is opened, made and grown on behalf of this function alone.
constexpr char func[] = "varnok_open_database";

// The file that the descriptor was opened on: the program around the library may have closed it.
struct {
    dev_t device;
    ino_t inode;
} opened;

bool wrote_all(int fd, const uint8_t *bytes)
{
    const ssize_t written = write(fd, bytes, file_size);
    if (written == static_cast<ssize_t>(file_size))
        return true;
    if (written >= 0)
        errno = ENOSPC; // a short write sets none
    return false;
}

// Fills a new file with zeros. A file that cannot be filled is closed and deleted.
bool fill_new(varnok::descriptor &file)
{
    const varnok::heap_buffer<uint8_t> zeros(file_size);
    if (!zeros) {
        LOG_ERROR_AS(func, ": malloc tmp mem failed=", dec(errno));
        return false;
    }
    if (!wrote_all(file.get(), zeros.get()))
        LOG_ERROR_AS(func, ": Unable to write completely to shared data file. errno=", dec(errno));
    else if (fsync(file.get()) != 0)
        LOG_ERROR_AS(func, ": fsync failed. errno=", dec(errno));
    else
        return true;
    file.reset();
    if (remove(varnok_db_fname) != 0)
        LOG_ERROR_AS(func, ": Unable to remove shared data file. errno=", dec(errno));
    return false;
}

// Keeps the bytes that are there at their offsets and adds zeros.
bool grow(int fd, size_t size)
{
    const varnok::heap_buffer<uint8_t> old(size == 0 ? 1 : size);
    if (!old) {
        LOG_ERROR_AS(func, ": malloc failed=", dec(errno));
        return false;
    }
    if (read(fd, old.get(), size) != static_cast<ssize_t>(size)) {
        LOG_ERROR_AS(func, ": Unable to read shared data file. errno=", dec(errno));
        return false;
    }
    const varnok::heap_buffer<uint8_t> image(file_size);
    if (!image) {
        LOG_ERROR_AS(func, ": Unable to alloc new shared data buf. errno=", dec(errno));
        return false;
    }
    memcpy(image.get(), old.get(), size);
    if (lseek(fd, 0, SEEK_SET) != 0) {
        LOG_ERROR_AS(func, ": Unable to seek to beginning of shared data file. errno=", dec(errno));
        return false;
    }
    if (!wrote_all(fd, image.get())) {
        LOG_ERROR_AS(func, ": Unable to upgrade shared data file. errno=", dec(errno));
        return false;
    }
    if (fsync(fd) != 0) {
        LOG_ERROR_AS(func, ": fsync failed for existing file. errno=", dec(errno));
        return false;
    }
    LOG_TRACE_AS(func, ": done upgrading shared data file.");
    return true;
}

bool make_whole(varnok::descriptor &file, bool created)
{
    struct stat status = {};
    if (fstat(file.get(), &status) != 0) {
        LOG_ERROR_AS(func, ": Unable to read shared data file. errno=", dec(errno));
        return false;
    }
    opened = {status.st_dev, status.st_ino};
    if (created)
        return fill_new(file);
    if (status.st_size >= static_cast<off_t>(file_size))
        return true;
    return grow(file.get(), static_cast<size_t>(status.st_size));
}

// To touch a page of the mapping that has no block, and gets none, would kill this process. 0 or
// the error number. A file system that cannot tell is trusted.
int allocate_blocks(int fd)
{
    int err = 0;
    do
        err = posix_fallocate(fd, 0, file_size);
    while (err == EINTR);
    return err == EINVAL || err == ENOSYS || err == EOPNOTSUPP ? 0 : err;
}

} // namespace

int varnok::open_shared_file()
{
    const own_file found = open_own_file(varnok_db_fname, O_RDWR, owner_rule::trusted);
    descriptor file(found.fd);
    if (!file) {
        LOG_ERROR_AS(func, ": Unable to create shared data file. errno=", dec(errno));
        if (found.refused != nullptr)
            LOG_ERROR_AS(func, ": refused ", varnok_db_fname, ": ", found.refused);
        return -1;
    }
    if (!make_whole(file, found.created))
        return -1;
    if (const int err = allocate_blocks(file.get())) {
        LOG_ERROR_AS(func, ": Unable to allocate shared data file. errno=", dec(err));
        return -1;
    }
    return file.release();
}

int varnok::make_shared_file_whole(int fd)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0 || status.st_dev != opened.device || status.st_ino != opened.inode)
        return 0;
    return allocate_blocks(fd);
}
