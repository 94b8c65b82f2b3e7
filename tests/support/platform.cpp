#include "platform.h"

#include "calls.h"
#include "library_calls.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <utility>

using std::to_string;

namespace
{

struct fault {
    long countdown = 0;
    int err = 0;
    std::string name; // empty: any call
    bool met = false;

    bool strikes()
    {
        if (countdown == 0 || --countdown > 0)
            return false;
        errno = err;
        return met = true;
    }
};

fault call_fault, allocation_fault;
std::vector<std::string> record;
std::set<int> descriptors;
std::set<void *> blocks;
long semaphores = 0;
std::string user_lines;
std::string doomed_file;
long lone_owner = -1;
std::function<void()> sleeper, next_fault;
long slept = 0; // nanoseconds

// What the library still calls when these are gone, counting coverage, is nobody's business.
struct ending {
    ~ending() { library = {}; }
} const at_the_end;

// Records a call of the library; true when it is the one that fails, with errno set.
bool fails(const char *name, const std::string &arguments = "")
{
    record.push_back(arguments.empty() ? name : name + (" " + arguments));
    if ((!call_fault.name.empty() && call_fault.name != name) || !call_fault.strikes())
        return false;
    const int err = call_fault.err;
    if (next_fault != nullptr)
        next_fault();
    errno = err;
    return true;
}

// Out of line: the sanitizers allocate before they can guard a stack frame.
[[gnu::noinline]] void *keep_block(void *block)
{
    if (block != nullptr)
        blocks.insert(block);
    return block;
}
[[gnu::noinline]] void drop_block(void *block) { blocks.erase(block); }

template <class... Size>
void *allocate(void *caller, void *(*sanitizers)(Size...), void *(*libc)(Size...), Size... size)
{
    const auto call = sanitizers != nullptr ? sanitizers : libc;
    if (!from_library(caller))
        return call(size...);
    return allocation_fault.strikes() ? nullptr : keep_block(call(size...));
}

struct private_folder {
    std::string name = std::filesystem::temp_directory_path() / "varnok-test-XXXXXX";

    private_folder()
    {
        if (mkdtemp(name.data()) == nullptr)
            abort();
    }
    ~private_folder() { std::filesystem::remove_all(name); }
};

} // namespace

namespace platform
{

std::string private_path(const std::string &path)
{
    static const private_folder folder;
    const bool fixed = path.starts_with("/tmp/varnok_shared.dat") || path == "/var/tmp/libvarnok.log";
    return fixed ? folder.name + path.substr(path.rfind('/')) : path;
}

void reset()
{
    find_library();
    call_fault = allocation_fault = {};
    lone_owner = -1;
    sleeper = next_fault = nullptr;
    slept = 0;
    record.clear();
    set_user_lines("2\n");
}

void fail_allocation(long nth) { allocation_fault = {nth, ENOMEM, "", false}; }
void fail_call(long nth, int err) { fail_call("", nth, err); }
void fail_call(const std::string &name, long nth, int err) { call_fault = {nth, err, name, false}; }
bool fault_met() { return call_fault.met || allocation_fault.met; }
const std::vector<std::string> &calls() { return record; }
long live_blocks() { return static_cast<long>(blocks.size()); }
long open_descriptors() { return static_cast<long>(descriptors.size()); }
long held_semaphores() { return semaphores; }
void set_user_lines(const std::string &text) { user_lines = text; }
void show_every_file_as(long user) { lone_owner = user; }
void unlink_before_fstat(const std::string &path) { doomed_file = path; }
void when_it_fails(const std::function<void()> &run) { next_fault = run; }
void when_it_sleeps(const std::function<void()> &run) { sleeper = run; }

} // namespace platform

// ---- The calls --------------------------------------------------------------------------------

#define UNLESS_IT_FAILS(failure, name, arguments, call) (FROM_LIBRARY && fails(name, arguments) ? (failure) : (call))
#define PLAIN(failure, name, arguments, ...) UNLESS_IT_FAILS(failure, #name, arguments, REAL(name)(__VA_ARGS__))
#define PRIVATE(path) (FROM_LIBRARY ? platform::private_path(path).c_str() : (path))

extern "C" {

// The sanitizers' allocator where there is one, else the C library's.
void *__interceptor_malloc(size_t) __attribute__((weak));
void *__interceptor_calloc(size_t, size_t) __attribute__((weak));
void __interceptor_free(void *) __attribute__((weak));
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void __libc_free(void *);

void *malloc(size_t size) { return allocate(CALLER, __interceptor_malloc, __libc_malloc, size); }

void *calloc(size_t n, size_t size) { return allocate(CALLER, __interceptor_calloc, __libc_calloc, n, size); }

void free(void *block)
{
    if (FROM_LIBRARY)
        drop_block(block);
    (__interceptor_free != nullptr ? __interceptor_free : __libc_free)(block);
}

int open(const char *path, int flags, ...)
{
    FROM_REST(flags, const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0);
    const int fd =
        UNLESS_IT_FAILS(-1, "open", path + (" " + to_string(flags)), hostsim::calls::open(PRIVATE(path), flags, mode));
    if (FROM_LIBRARY && fd >= 0)
        descriptors.insert(fd);
    return fd;
}

// A close that fails has given the descriptor up all the same, as on Linux.
int close(int fd)
{
    if (FROM_LIBRARY)
        descriptors.erase(fd);
    const int result = hostsim::calls::close(fd);
    return UNLESS_IT_FAILS(-1, "close", "", result);
}

// What the library duplicates it holds, too.
int fcntl(int fd, int command, ...)
{
    FROM_REST(command, void *const argument = va_arg(rest, void *));
    const int result = UNLESS_IT_FAILS(-1, "fcntl", to_string(command), hostsim::calls::fcntl(fd, command, argument));
    if (FROM_LIBRARY && result >= 0 && (command == F_DUPFD || command == F_DUPFD_CLOEXEC))
        descriptors.insert(result);
    return result;
}

int ioctl(int fd, unsigned long request, ...)
{
    FROM_REST(request, void *const argument = va_arg(rest, void *));
    return UNLESS_IT_FAILS(-1, "ioctl", "", hostsim::calls::ioctl(fd, request, argument));
}

// An err of 0 makes a short write.
ssize_t write(int fd, const void *buffer, size_t size)
{
    const bool failed = FROM_LIBRARY && fails("write", to_string(size));
    return failed && errno != 0 ? -1 : REAL(write)(fd, buffer, failed ? size / 2 : size);
}

// The test machine's disk is not under test: nothing is flushed.
int fsync(int) { return UNLESS_IT_FAILS(-1, "fsync", "", 0); }
void sync(void) noexcept {}

int fstat(int fd, struct stat *status)
{
    if (FROM_LIBRARY && !doomed_file.empty())
        std::filesystem::remove(std::exchange(doomed_file, ""));
    const int result = PLAIN(-1, fstat, "", fd, status);
    if (FROM_LIBRARY && result == 0 && lone_owner != -1)
        status->st_uid = static_cast<uid_t>(lone_owner);
    return result;
}
ssize_t read(int fd, void *buffer, size_t size) { return PLAIN(-1, read, "", fd, buffer, size); }
off_t lseek(int fd, off_t offset, int whence) noexcept { return PLAIN(-1, lseek, "", fd, offset, whence); }
int msync(void *at, size_t size, int flags) { return PLAIN(-1, msync, to_string(flags), at, size, flags); }
tm *localtime(const time_t *when) noexcept { return PLAIN(nullptr, localtime, "", when); }
int semget(key_t key, int count, int flags) noexcept { return PLAIN(-1, semget, to_string(flags), key, count, flags); }
int remove(const char *path) noexcept { return PLAIN(-1, remove, path, PRIVATE(path)); }
int lstat(const char *path, struct stat *status) noexcept { return PLAIN(-1, lstat, path, PRIVATE(path), status); }

// The descriptor goes with the file.
FILE *fdopen(int fd, const char *mode) noexcept
{
    FILE *const file = PLAIN(nullptr, fdopen, mode, fd, mode);
    if (file != nullptr)
        descriptors.erase(fd);
    return file;
}

int posix_fallocate(int fd, off_t from, off_t size) { return PLAIN(errno, posix_fallocate, "", fd, from, size); }
// The library's clock goes on by what it sleeps, and no test waits for it.
int nanosleep(const timespec *time, timespec *left)
{
    if (!FROM_LIBRARY)
        return REAL(nanosleep)(time, left);
    if (fails("nanosleep"))
        return -1;
    sleeper != nullptr ? sleeper() : void(slept += time->tv_nsec);
    return 0;
}
time_t time(time_t *when) noexcept { return REAL(time)(when) + (FROM_LIBRARY ? slept / 1'000'000'000 : 0); }

int uname(utsname *name) noexcept { return UNLESS_IT_FAILS(-1, "uname", "", hostsim::calls::uname(name)); }
uid_t geteuid(void) noexcept { return hostsim::calls::geteuid(); }

void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    return PLAIN(MAP_FAILED, mmap, "", at, size, protection, flags, fd, offset);
}

int munmap(void *at, size_t size) noexcept
{
    const int result = REAL(munmap)(at, size);
    return UNLESS_IT_FAILS(-1, "munmap", "", result);
}

FILE *popen(const char *command, const char *mode)
{
    if (!FROM_LIBRARY)
        return REAL(popen)(command, mode);
    return fails("popen", command) ? nullptr : fmemopen(user_lines.data(), user_lines.size(), "r");
}
int pclose(FILE *stream) { return FROM_LIBRARY ? fclose(stream) : REAL(pclose)(stream); }

// A signal that fails has been given all the same: nobody could mend it.
int semop(int id, sembuf *operations, size_t count) noexcept
{
    const int by = operations->sem_op;
    const bool failed = FROM_LIBRARY && fails("semop", to_string(by));
    const int err = errno;
    const int result = failed && by < 0 ? -1 : REAL(semop)(id, operations, count);
    if (FROM_LIBRARY && result == 0)
        semaphores -= by;
    if (failed)
        errno = err;
    return failed ? -1 : result;
}

// A semaphore's removal is recorded but does not fail.
int semctl(int id, int number, int command, ...) noexcept
{
    FROM_REST(command, void *const argument = va_arg(rest, void *));
    const bool failed = FROM_LIBRARY && fails("semctl", to_string(command)) && command != IPC_RMID;
    return failed ? -1 : REAL(semctl)(id, number, command, argument);
}

int vmk_MgmtUserInit(vmk_MgmtApiSignature *signature, vmk_uint64, vmk_MgmtUserHandle *handle)
{
    return UNLESS_IT_FAILS(-1, "vmk_init", signature->name.string, hostsim::calls::mgmt_init(signature, handle));
}

int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, vmk_uint64 instance, vmk_uint64 id, vmk_uint32 count, ...)
{
    FROM_REST(count, void *const envelope = va_arg(rest, void *));
    return UNLESS_IT_FAILS(-1, "vmk_invoke", to_string(id),
                           hostsim::calls::mgmt_invoke(handle, instance, id, count, envelope));
}
}
