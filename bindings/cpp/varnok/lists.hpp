// Lists of the library's records, as long as they really are. A part of varnok.hpp.
#ifndef VARNOK_LISTS_HPP
#define VARNOK_LISTS_HPP

#include "status.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <vector>

#ifdef __cpp_exceptions
#include <new>
#include <stdexcept>
#endif

#include <varnok_mgmt.h>

namespace varnok
{

namespace detail
{

// The library does not tell how many entries of an array it wrote. They are fewer than there is
// room for when a list became shorter or when an entry failed. So each entry starts with a mark, a
// value that the library never writes there, or no device has a reason to send.
inline constexpr std::uint8_t never8 = 0xFF;
inline constexpr std::uint32_t never32 = 0xFFFFFFFF;

inline void mark(VARNOK_ISCSI_PORTAL &entry) { entry.IsIPv4 = never8; }
inline void mark(VARNOK_SESS_INFO &entry) { entry.TgtIsIPv4 = never8; }
inline void mark(VARNOK_TGT_INFO &entry) { entry.ScsiTgtNum = never32; }
inline void mark(VARNOK_LUN_INFO &entry)
{
    entry.ScsiLunNum = entry.ScsiLunNumExt = never32;
    entry.DeviceType = never8;
}

inline bool is_marked(const VARNOK_ISCSI_PORTAL &entry) { return entry.IsIPv4 == never8; }
inline bool is_marked(const VARNOK_SESS_INFO &entry) { return entry.TgtIsIPv4 == never8; }
inline bool is_marked(const VARNOK_TGT_INFO &entry) { return entry.ScsiTgtNum == never32; }
inline bool is_marked(const VARNOK_LUN_INFO &entry)
{
    return entry.ScsiLunNum == never32 && entry.ScsiLunNumExt == never32 &&
           entry.DeviceType == never8;
}

// Room for an array of the library's. Entries take memory only when they are written, however many
// a driver claims to have.
template <class Record>
class record_room
{
  public:
    explicit record_room(std::size_t count)
        : count_(count), is_small_(count <= most_in_heap / sizeof(Record)),
          memory_(is_small_ ? std::calloc(std::max<std::size_t>(count, 1), sizeof(Record))
                            : mapped(count)),
          marked_(ok() ? std::min(count, most_marked) : 0)
    {
        for (Record *record = entries(); record != entries() + marked_; ++record) {
            record->Version = VARNOK_LUN_INFO_VERSION; // the other records ignore it
            mark(*record);
        }
    }
    ~record_room()
    {
        if (is_small_)
            std::free(memory_);
        else if (ok())
            munmap(memory_, count_ * sizeof(Record));
    }
    record_room(const record_room &) = delete;
    record_room &operator=(const record_room &) = delete;

    bool ok() const { return memory_ != nullptr; }
    Record *entries() const { return static_cast<Record *>(memory_); }

    // How many entries the library wrote.
    std::size_t written() const
    {
        std::size_t end = 0;
        while (end < count_ && (end < marked_ ? !is_marked(entries()[end]) : !is_zero(end)))
            ++end;
        return end;
    }

  private:
    static constexpr std::size_t most_in_heap = 1 << 20, most_marked = 4096;

    static void *mapped(std::size_t count)
    {
        if (count > SIZE_MAX / sizeof(Record)) // where a size has 32 bits
            return nullptr;
        const std::size_t size = count * sizeof(Record);
        constexpr int kind = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, no_file = -1;
        // cppcheck-suppress invalidFunctionArg; memory without a file has this number
        void *const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, kind, no_file, 0);
        if (memory == MAP_FAILED)
            return nullptr;
        return memory;
    }

    bool is_zero(std::size_t at) const
    {
        const Record zeros{};
        return std::memcmp(entries() + at, &zeros, sizeof zeros) == 0;
    }

    std::size_t count_;
    bool is_small_;
    void *memory_;
    std::size_t marked_; // the entries that start with a mark; others start as zeros
};

// Does what allocates. False when there is no memory; without exceptions the program ends then.
template <class Work>
bool had_memory(const Work &work)
{
#ifdef __cpp_exceptions
    try {
        work();
    } catch (const std::bad_alloc &) {
        return false;
    } catch (const std::length_error &) {
        return false;
    }
#else
    work();
#endif
    return true;
}

// Calls query(&count, &array) with room for count entries, and again with more room when the
// library asks for it. The library writes at most so many entries. The list has those that were
// written, whatever the status.
template <class Record, class Query>
result<std::vector<Record>> list_of(const char *call, std::uint32_t count, std::uint32_t most,
                                    const Query &query)
{
    for (int left = 10;; --left) { // the list may grow meanwhile
        const record_room<Record> room(std::min(count, most));
        if (!room.ok())
            return {{VARNOK_STATUS_NO_MEMORY, call}, {}};
        const std::uint32_t asked = count;
        Record *array = room.entries();
        const std::uint32_t code = query(&count, &array);
        if (code == VARNOK_STATUS_INSUFFICIENT_BUFFER && count > asked && left > 0)
            continue;
        result<std::vector<Record>> list = {{code, call}, {}};
        const bool copied =
            had_memory([&] { list.value.assign(room.entries(), room.entries() + room.written()); });
        if (!copied)
            list.status = {VARNOK_STATUS_NO_MEMORY, call};
        return list;
    }
}

} // namespace detail

} // namespace varnok

#endif
