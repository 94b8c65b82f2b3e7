#include "platform.h"

#include "calls.h"
#include "core/shared_db_file.h"
#include "core/varnok_instdb.h"
#include "core/varnok_shared_db.h"
#include "hostsim.h"
#include "next_calls.h"
#include "support/varnok_dbg.h"
#include "varnok_mgmt.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <unistd.h>

namespace
{

struct private_folder {
    std::string name = "/dev/shm/varnok-fuzz-XXXXXX"; // in memory
    std::string shared;

    private_folder()
    {
        if (mkdtemp(name.data()) == nullptr)
            abort();
        shared = name + "/shared.dat";
    }
    ~private_folder()
    {
        unlink(shared.c_str());
        rmdir(name.c_str());
    }
};

enum semaphore { database, debug_log };

std::string user_lines = "4\n";
int open_files = 0;
int mappings = 0;
int semaphore_values[] = {1, 1};

// The path that a call really means; null for one that nobody may write to.
const char *real_path(const char *path, bool write)
{
    if (strcmp(path, varnok_db_fname) == 0)
        return platform::shared_file().c_str();
    const bool device = strncmp(path, "/dev/", 5) == 0;
    return write && !device ? nullptr : path;
}

} // namespace

void platform::fail(const char *file, int line, const char *what)
{
    char text[512];
    const int size = snprintf(text, sizeof text, "%s:%d: not so: %s\n", file, line, what);
    static_cast<void>(!::write(STDERR_FILENO, text, static_cast<size_t>(size)));
    abort();
}

const std::string &platform::shared_file()
{
    static const private_folder folder;
    return folder.shared;
}

void platform::set_user_lines(std::string_view text) { user_lines = text; }

void platform::free_library()
{
    REQUIRE(VARNOK_FreeLibrary() == VARNOK_STATUS_SUCCESS);
    REQUIRE(varnok_priv_database == nullptr && varnok_phy_info == nullptr);
    REQUIRE(varnok_shared_data == nullptr && varnok_shm_fildes == -1);
    REQUIRE(open_files == 0 && mappings == 0);
    REQUIRE(semaphore_values[database] == 1 && semaphore_values[debug_log] == 1);
    REQUIRE(hostsim::open_devices() == 0);
    REQUIRE(varnokdbg_fp == nullptr);
}

size_t bytes::copy_to(void *to, size_t size)
{
    const size_t taken = std::min(size, left_);
    if (taken != 0)
        memcpy(to, at_, taken);
    at_ += taken;
    left_ -= taken;
    return taken;
}

std::string_view bytes::text(size_t size)
{
    const std::string_view taken(reinterpret_cast<const char *>(at_), std::min(size, left_));
    at_ += taken.size();
    left_ -= taken.size();
    return taken;
}

// ---- The calls --------------------------------------------------------------------------------

extern "C" {

// Large records come and go: their pages need not wait long.
const char *__asan_default_options() { return "quarantine_size_mb=8"; }

int open(const char *path, int flags, ...)
{
    FROM_REST(flags, const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0);
    path = real_path(path, (flags & (O_WRONLY | O_RDWR | O_CREAT)) != 0);
    if (path == nullptr) {
        errno = EACCES;
        return -1;
    }
    const int fd = hostsim::calls::open(path, flags, mode);
    open_files += fd >= 0 ? 1 : 0;
    return fd;
}

int close(int fd)
{
    const int result = hostsim::calls::close(fd);
    open_files -= result == 0 ? 1 : 0;
    return result;
}

// The file closes the descriptor.
FILE *fdopen(int fd, const char *mode) noexcept
{
    static const auto real = REAL(fdopen);
    FILE *const file = real(fd, mode);
    open_files -= file != nullptr ? 1 : 0;
    return file;
}

int remove(const char *path) noexcept
{
    return unlink(strcmp(path, varnok_db_fname) == 0 ? platform::shared_file().c_str() : path);
}

void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    static const auto real = REAL(mmap);
    mappings += fd >= 0 ? 1 : 0;
    return real(at, size, protection, flags, fd, offset);
}

int munmap(void *at, size_t size) noexcept
{
    static const auto real = REAL(munmap);
    mappings -= at == varnok_shared_data ? 1 : 0;
    return real(at, size);
}

// Nothing is flushed: the file goes with the process.
int fsync(int) { return 0; }
int msync(void *, size_t, int) { return 0; }
void sync() noexcept {}

FILE *popen(const char *, const char *)
{
    return fmemopen(user_lines.data(), user_lines.size(), "r");
}
int pclose(FILE *stream) { return fclose(stream); }

// The sanitizers see every byte of the line.
int fputs(const char *text, FILE *) { return strlen(text) < 4096 ? 0 : EOF; }

int semget(key_t key, int, int) noexcept { return key == varnok_db_semkey ? database : debug_log; }
int semop(int id, sembuf *operations, size_t) noexcept
{
    REQUIRE(id == database || id == debug_log);
    semaphore_values[id] += operations->sem_op;
    REQUIRE(semaphore_values[id] == 0 || semaphore_values[id] == 1);
    return 0;
}
int semctl(int id, int, int command, ...) noexcept
{
    return command == GETVAL ? semaphore_values[id] : 0;
}
}

namespace answers = hostsim::calls;
#include "interposed_calls.h"
