#include "platform.h"

#include "calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <link.h>
#include <set>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "vmkapi_mgmt_lib.h"

namespace
{

struct fault {
    std::string name; // empty: any call
    long countdown = 0;
    int err = 0;
    bool met = false;
};

fault call_fault;
long allocation_countdown = 0;
bool allocation_met = false;
std::vector<std::string> record;
std::set<int> descriptors;
void *blocks[8192];
long block_count = 0;
long semaphores = 0;
std::string user_lines;
bool user_lines_set = false;

uintptr_t text_begin = 0;
uintptr_t text_end = 0;

int find_library(dl_phdr_info *info, size_t, void *)
{
    if (strstr(info->dlpi_name, "libvarnok.so") == nullptr)
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0)
            continue;
        text_begin = info->dlpi_addr + segment.p_vaddr;
        text_end = text_begin + segment.p_memsz;
    }
    return 1;
}

bool from_library(void *caller)
{
    const auto address = reinterpret_cast<uintptr_t>(caller);
    return address >= text_begin && address < text_end;
}

#define FROM_LIBRARY from_library(__builtin_return_address(0))

// Records a call of the library; true when it is the one that fails, with errno set.
bool fails(const char *name, const std::string &arguments = "")
{
    record.push_back(arguments.empty() ? name : name + (" " + arguments));
    if (call_fault.countdown == 0 || (!call_fault.name.empty() && call_fault.name != name))
        return false;
    if (--call_fault.countdown > 0)
        return false;
    call_fault.met = true;
    errno = call_fault.err;
    return true;
}

bool allocation_fails()
{
    if (allocation_countdown == 0 || --allocation_countdown > 0)
        return false;
    allocation_met = true;
    errno = ENOMEM;
    return true;
}

void *keep_block(void *block)
{
    if (block != nullptr && block_count < static_cast<long>(std::size(blocks)))
        blocks[block_count++] = block;
    return block;
}

void drop_block(void *block)
{
    for (long i = block_count - 1; i >= 0; --i)
        if (blocks[i] == block) {
            blocks[i] = blocks[--block_count];
            return;
        }
}

int keep_descriptor(int fd)
{
    if (fd >= 0)
        descriptors.insert(fd);
    return fd;
}

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

const std::string &private_folder()
{
    static const std::string folder = [] {
        std::string name = (std::filesystem::temp_directory_path() / "varnok-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            abort();
        static const std::string kept = name;
        atexit([] { std::filesystem::remove_all(kept); });
        return name;
    }();
    return folder;
}

} // namespace

std::string platform::private_path(const std::string &path)
{
    if (path != "/tmp/varnok_shared.dat" && path != "/var/tmp/libvarnok.log")
        return path;
    return private_folder() + path.substr(path.rfind('/'));
}

void platform::reset()
{
    if (text_end == 0)
        dl_iterate_phdr(find_library, nullptr);
    private_folder();
    call_fault = {};
    allocation_countdown = 0;
    allocation_met = false;
    record.clear();
    user_lines_set = false;
}

void platform::fail_allocation(long nth)
{
    allocation_countdown = nth;
    allocation_met = false;
}

void platform::fail_call(long nth, int err) { fail_call("", nth, err); }

void platform::fail_call(const std::string &name, long nth, int err) { call_fault = {name, nth, err, false}; }

bool platform::fault_met() { return call_fault.met || allocation_met; }

const std::vector<std::string> &platform::calls() { return record; }

long platform::live_blocks() { return block_count; }

long platform::open_descriptors() { return static_cast<long>(descriptors.size()); }

long platform::held_semaphores() { return semaphores; }

void platform::set_user_lines(const std::string &text)
{
    user_lines = text;
    user_lines_set = true;
}

// ---- The calls --------------------------------------------------------------------------------

extern "C" {

// The sanitizers' allocator where there is one, else the C library's.
void *__interceptor_malloc(size_t) __attribute__((weak));
void *__interceptor_calloc(size_t, size_t) __attribute__((weak));
void __interceptor_free(void *) __attribute__((weak));
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void __libc_free(void *);

void *malloc(size_t size)
{
    const auto allocate = __interceptor_malloc != nullptr ? __interceptor_malloc : __libc_malloc;
    if (!FROM_LIBRARY)
        return allocate(size);
    return allocation_fails() ? nullptr : keep_block(allocate(size));
}

void *calloc(size_t count, size_t size)
{
    const auto allocate = __interceptor_calloc != nullptr ? __interceptor_calloc : __libc_calloc;
    if (!FROM_LIBRARY)
        return allocate(count, size);
    return allocation_fails() ? nullptr : keep_block(allocate(count, size));
}

void free(void *block)
{
    if (FROM_LIBRARY && block != nullptr)
        drop_block(block);
    (__interceptor_free != nullptr ? __interceptor_free : __libc_free)(block);
}

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (!FROM_LIBRARY)
        return hostsim::calls::open(path, flags, mode);
    if (fails("open", path + (" " + std::to_string(flags))))
        return -1;
    return keep_descriptor(hostsim::calls::open(platform::private_path(path).c_str(), flags, mode));
}

// A close that fails has given the descriptor up all the same, as on Linux.
int close(int fd)
{
    if (!FROM_LIBRARY)
        return hostsim::calls::close(fd);
    descriptors.erase(fd);
    const bool failed = fails("close");
    const int err = errno;
    const int result = hostsim::calls::close(fd);
    if (!failed)
        return result;
    errno = err;
    return -1;
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (FROM_LIBRARY && fails("ioctl"))
        return -1;
    return hostsim::calls::ioctl(fd, request, argument);
}

int fstat(int fd, struct stat *status)
{
    if (FROM_LIBRARY && fails("fstat"))
        return -1;
    return real<int(int, struct stat *)>("fstat")(fd, status);
}

ssize_t read(int fd, void *buffer, size_t size)
{
    if (FROM_LIBRARY && fails("read"))
        return -1;
    return real<ssize_t(int, void *, size_t)>("read")(fd, buffer, size);
}

// An err of 0 makes a short write.
ssize_t write(int fd, const void *buffer, size_t size)
{
    const auto call = real<ssize_t(int, const void *, size_t)>("write");
    if (FROM_LIBRARY && fails("write", std::to_string(size)))
        return call_fault.err == 0 ? call(fd, buffer, size / 2) : -1;
    return call(fd, buffer, size);
}

off_t lseek(int fd, off_t offset, int whence) noexcept
{
    if (FROM_LIBRARY && fails("lseek"))
        return -1;
    return real<off_t(int, off_t, int)>("lseek")(fd, offset, whence);
}

int fsync(int)
{
    if (FROM_LIBRARY && fails("fsync"))
        return -1;
    return 0;
}

// The log asks for it with every line; the test machine's disk is not under test.
void sync(void) noexcept
{
    if (FROM_LIBRARY)
        record.emplace_back("sync");
}

void *mmap(void *address, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    if (FROM_LIBRARY && fails("mmap"))
        return MAP_FAILED;
    return real<void *(void *, size_t, int, int, int, off_t)>("mmap")(address, size, protection, flags, fd, offset);
}

int msync(void *address, size_t size, int flags)
{
    if (FROM_LIBRARY && fails("msync", std::to_string(flags)))
        return -1;
    return real<int(void *, size_t, int)>("msync")(address, size, flags);
}

int munmap(void *address, size_t size) noexcept
{
    const int result = real<int(void *, size_t)>("munmap")(address, size);
    return FROM_LIBRARY && fails("munmap") ? -1 : result;
}

int remove(const char *path) noexcept
{
    const auto call = real<int(const char *)>("remove");
    if (!FROM_LIBRARY)
        return call(path);
    return fails("remove", path) ? -1 : call(platform::private_path(path).c_str());
}

FILE *fopen(const char *path, const char *mode)
{
    const auto call = real<FILE *(const char *, const char *)>("fopen");
    if (!FROM_LIBRARY)
        return call(path, mode);
    return fails("fopen", path) ? nullptr : call(platform::private_path(path).c_str(), mode);
}

FILE *popen(const char *command, const char *mode)
{
    const auto call = real<FILE *(const char *, const char *)>("popen");
    if (!FROM_LIBRARY)
        return call(command, mode);
    if (fails("popen", command))
        return nullptr;
    if (!user_lines_set)
        return call(command, mode);
    FILE *const lines = tmpfile();
    fputs(user_lines.c_str(), lines);
    rewind(lines);
    return lines;
}

int pclose(FILE *stream)
{
    return FROM_LIBRARY && user_lines_set ? fclose(stream) : real<int(FILE *)>("pclose")(stream);
}

int uname(utsname *name) noexcept
{
    if (FROM_LIBRARY && fails("uname"))
        return -1;
    return hostsim::calls::uname(name);
}

uid_t geteuid(void) noexcept { return hostsim::calls::geteuid(); }

tm *localtime(const time_t *when) noexcept
{
    if (FROM_LIBRARY && fails("localtime"))
        return nullptr;
    return real<tm *(const time_t *)>("localtime")(when);
}

int semget(key_t key, int count, int flags) noexcept
{
    if (FROM_LIBRARY && fails("semget", std::to_string(flags)))
        return -1;
    return real<int(key_t, int, int)>("semget")(key, count, flags);
}

// A signal that fails has been given all the same: nobody could mend it.
int semop(int id, sembuf *operations, size_t count) noexcept
{
    const auto call = real<int(int, sembuf *, size_t)>("semop");
    if (!FROM_LIBRARY)
        return call(id, operations, count);
    const int by = operations->sem_op;
    const bool failed = fails("semop", std::to_string(by));
    const int err = errno;
    if (failed && by < 0)
        return -1;
    const int result = call(id, operations, count);
    if (result == 0)
        semaphores -= by;
    if (!failed)
        return result;
    errno = err;
    return -1;
}

int semctl(int id, int number, int command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (FROM_LIBRARY && fails("semctl", std::to_string(command)) && command != IPC_RMID)
        return -1;
    return real<int(int, int, int, ...)>("semctl")(id, number, command, argument);
}

int vmk_MgmtUserInit(vmk_MgmtApiSignature *signature, vmk_uint64, vmk_MgmtUserHandle *handle)
{
    if (FROM_LIBRARY && fails("vmk_init", signature->name.string))
        return -1;
    return hostsim::calls::mgmt_init(signature, handle);
}

int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, vmk_uint64 instance, vmk_uint64 callback_id,
                                  vmk_uint32 parm_count, ...)
{
    va_list arguments;
    va_start(arguments, parm_count);
    void *const envelope = va_arg(arguments, void *);
    va_end(arguments);
    if (FROM_LIBRARY && fails("vmk_invoke", std::to_string(callback_id)))
        return -1;
    return hostsim::calls::mgmt_invoke(handle, instance, callback_id, parm_count, envelope);
}
}
