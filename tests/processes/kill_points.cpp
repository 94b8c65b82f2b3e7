#include "kill_points.h"

#include "core/varnok_shared_db.h"
#include "library_calls.h"
#include "support/varnok_dbg.h"

#include <csignal>
#include <cstdio>
#include <ctime>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

std::string chosen;
long countdown = 0; // 0: not armed
int deadly = SIGKILL;
bool holds_database = false, holds_log = false;
int slot = -1; // marked in use for this process

bool strikes(const char *call)
{
    if (holds_database && varnok_shared_data != nullptr) {
        const uint8_t instance = varnok_library_instance;
        slot = instance < VARNOK_LIBINST_MAX && varnok_shared_data->libinst_flags[instance] & 4 ? instance : -1;
    }
    return countdown > 0 && (chosen == "*" || chosen == call) && --countdown == 0;
}

void fall(const char *call)
{
    dprintf(STDOUT_FILENO, "at %d %s %d %d %d\n", getpid(), call, holds_database, holds_log, slot);
    raise(deadly);
    kill_points::arm("freed", 1, SIGKILL); // who was stopped only, and goes on, leaves
}

} // namespace

void kill_points::arm(const std::string &call, long nth, int signal)
{
    find_library();
    chosen = call;
    countdown = nth;
    deadly = signal;
}

void kill_points::pass(const char *call)
{
    if (strikes(call))
        fall(call);
}

#define PASS(name) (FROM_LIBRARY ? kill_points::pass(#name) : void())
#define PASSED(name, ...) (PASS(name), REAL(name)(__VA_ARGS__))

extern "C" {

// The test machine's disk is not under test: nothing is flushed.
int fsync(int) { return PASS(fsync), 0; }
void sync(void) noexcept { PASS(sync); }
int msync(void *, size_t, int) { return PASS(msync), 0; }

int fstat(int fd, struct stat *status) noexcept { return PASSED(fstat, fd, status); }
ssize_t read(int fd, void *buffer, size_t size) { return PASSED(read, fd, buffer, size); }
off_t lseek(int fd, off_t offset, int whence) noexcept { return PASSED(lseek, fd, offset, whence); }
int munmap(void *at, size_t size) noexcept { return PASSED(munmap, at, size); }
void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    return PASSED(mmap, at, size, protection, flags, fd, offset);
}
FILE *popen(const char *command, const char *mode) { return PASSED(popen, command, mode); }
int pclose(FILE *stream) { return PASSED(pclose, stream); }
int remove(const char *path) noexcept { return PASSED(remove, path); }
FILE *fdopen(int fd, const char *mode) noexcept { return PASSED(fdopen, fd, mode); }
int fputs(const char *text, FILE *stream) { return PASSED(fputs, text, stream); }
int fflush(FILE *stream) { return PASSED(fflush, stream); }
int fclose(FILE *stream) { return PASSED(fclose, stream); }
time_t time(time_t *when) noexcept
{
    const char *const ahead = getenv("CLOCK_AHEAD");
    return PASSED(time, when) + (ahead != nullptr ? atol(ahead) : 0);
}
int nanosleep(const timespec *for_this, timespec *left) { return PASSED(nanosleep, for_this, left); }
int posix_fallocate(int fd, off_t from, off_t size) { return PASSED(posix_fallocate, fd, from, size); }
tm *localtime(const time_t *when) noexcept { return PASSED(localtime, when); }
int semget(key_t key, int count, int flags) noexcept { return PASSED(semget, key, count, flags); }
int semctl(int id, int number, int command, ...) noexcept
{
    FROM_REST(command, void *const argument = va_arg(rest, void *));
    return PASSED(semctl, id, number, command, argument);
}

// Whoever falls here leaves a file of half the size.
ssize_t write(int fd, const void *buffer, size_t size)
{
    if (FROM_LIBRARY && strikes("write")) {
        REAL(write)(fd, buffer, size / 2);
        fall("write");
    }
    return REAL(write)(fd, buffer, size);
}

int semop(int id, sembuf *operations, size_t count) noexcept
{
    const int result = PASSED(semop, id, operations, count);
    if (result == 0)
        (id == varnok_db_sem_id ? holds_database : holds_log) = operations->sem_op < 0;
    return result;
}
}
