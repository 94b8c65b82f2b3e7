#include "caller_memory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

using mover = ssize_t (*)(pid_t, const iovec *, unsigned long, const iovec *, unsigned long,
                          unsigned long);

constexpr size_t large = 65536;

uintptr_t page_size()
{
    static const auto size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    return size;
}

uintptr_t next_page(uintptr_t at) { return (at / page_size() + 1) * page_size(); }

void *pointer(uintptr_t at) { return reinterpret_cast<void *>(at); }

// Where the kernel does not move a process's own bytes, every address counts as good.
bool is_not_answered(ssize_t moved) { return moved < 0 && (errno == ENOSYS || errno == EPERM); }

// Reads a byte of each page, and writes it back if the page must be writable.
bool is_there(const void *first, size_t size, bool writable)
{
    const int error = errno;
    auto at = reinterpret_cast<uintptr_t>(first);
    if (size > UINTPTR_MAX - at)
        return false;
    const uintptr_t end = at + size;
    // Of a large range the pages between are only asked for: to look at each costs more than the
    // request itself.
    if (size > large) {
        const bool mapped = msync(pointer(at / page_size() * page_size()),
                                  end - at / page_size() * page_size(), MS_ASYNC) == 0;
        errno = error;
        return mapped && is_there(first, 1, writable) && is_there(pointer(end - 1), 1, writable);
    }
    std::array<std::byte, 64> bytes;
    std::array<iovec, bytes.size()> pages;
    while (at < end) {
        size_t count = 0;
        for (; at < end && count < pages.size(); at = next_page(at))
            pages[count++] = {pointer(at), 1};
        const iovec local = {bytes.data(), count};
        for (const mover move : {process_vm_readv, process_vm_writev}) {
            if (move == process_vm_writev && !writable)
                continue;
            const ssize_t moved = move(getpid(), &local, 1, pages.data(), count, 0);
            const bool answered = !is_not_answered(moved);
            errno = error;
            if (!answered)
                return first != nullptr;
            if (moved != static_cast<ssize_t>(count))
                return false;
        }
    }
    return true;
}

} // namespace

bool is_readable(std::span<const std::byte> memory)
{
    return is_there(memory.data(), memory.size(), false);
}

bool is_writable(std::span<std::byte> memory)
{
    return is_there(memory.data(), memory.size(), true);
}

size_t copy_beginning(const void *from, std::span<char> into)
{
    const int error = errno;
    const auto at = reinterpret_cast<uintptr_t>(from);
    const size_t on_first_page = std::min<size_t>(into.size(), next_page(at) - at);
    const iovec local = {into.data(), into.size()};
    const iovec pages[] = {{pointer(at), on_first_page},
                           {pointer(next_page(at)), into.size() - on_first_page}};
    const ssize_t copied = process_vm_readv(getpid(), &local, 1, pages, 2, 0);
    const bool answered = !is_not_answered(copied);
    errno = error;
    if (answered || from == nullptr)
        return copied > 0 ? static_cast<size_t>(copied) : 0;
    const size_t length = strnlen(static_cast<const char *>(from), into.size());
    std::memcpy(into.data(), from, length);
    return length;
}

} // namespace hostsim
