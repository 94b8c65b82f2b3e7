// Lists of the library's records, as long as they really are.
#pragma once

#include "varnok_mgmt.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <sys/mman.h>
#include <vector>

namespace ctl
{

// The library does not tell how many entries of an array it wrote. They are fewer than there is
// room for when a list became shorter or when an entry failed. So each entry starts with a mark, a
// value that the library never writes there.
constexpr uint8_t never8 = 0xFF;
constexpr uint32_t never32 = 0xFFFFFFFF;

inline void mark(VARNOK_ISCSI_PORTAL &entry) { entry.IsIPv4 = never8; }
inline void mark(VARNOK_SESS_INFO &entry) { entry.TgtIsIPv4 = never8; }
inline void mark(VARNOK_TGT_INFO &entry) { entry.ScsiTgtNum = never32; }
inline void mark(VARNOK_LUN_INFO &entry) { entry.ScsiLunNum = entry.ScsiLunNumExt = never32; }

inline bool is_marked(const VARNOK_ISCSI_PORTAL &entry) { return entry.IsIPv4 == never8; }
inline bool is_marked(const VARNOK_SESS_INFO &entry) { return entry.TgtIsIPv4 == never8; }
inline bool is_marked(const VARNOK_TGT_INFO &entry) { return entry.ScsiTgtNum == never32; }
inline bool is_marked(const VARNOK_LUN_INFO &entry)
{
    return entry.ScsiLunNum == never32 && entry.ScsiLunNumExt == never32;
}

// Room for an array of the library's. Entries take memory only when they are written, however many
// a driver claims to have.
template <class Record>
class record_room
{
  public:
    explicit record_room(size_t count)
        : size_(count * sizeof(Record)), is_small_(size_ <= most_in_heap),
          memory_(is_small_ ? std::calloc(std::max<size_t>(count, 1), sizeof(Record))
                            : mapped(size_))
    {
        if (!*this)
            return;
        marked_ = std::min(count, most_marked);
        for (Record &record : std::span(entries(), marked_)) {
            record.Version = VARNOK_LUN_INFO_VERSION; // the other records ignore it
            mark(record);
        }
    }
    ~record_room()
    {
        if (is_small_)
            std::free(memory_);
        else if (*this)
            munmap(memory_, size_);
    }
    record_room(const record_room &) = delete;
    record_room &operator=(const record_room &) = delete;

    explicit operator bool() const { return memory_ != nullptr && memory_ != MAP_FAILED; }
    Record *entries() const { return static_cast<Record *>(memory_); }

    std::span<const Record> written() const
    {
        const size_t count = size_ / sizeof(Record);
        size_t end = 0;
        while (end < count &&
               (end < marked_ ? !is_marked(entries()[end]) : !is_zero(entries()[end])))
            ++end;
        return {entries(), end};
    }

  private:
    static constexpr size_t most_in_heap = 1 << 20, most_marked = 4096;

    static void *mapped(size_t size)
    {
        constexpr int kind = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, no_file = -1;
        // cppcheck-suppress invalidFunctionArg; memory without a file has this number
        return mmap(nullptr, size, PROT_READ | PROT_WRITE, kind, no_file, 0);
    }

    static bool is_zero(const Record &record)
    {
        const Record zeros{};
        return std::memcmp(&record, &zeros, sizeof record) == 0;
    }

    size_t size_;
    bool is_small_;
    void *memory_;
    size_t marked_ = 0; // the entries that start with a mark; others start as zeros
};

// Calls query(&count, &array) with room for count entries, and again with more room when the
// library asks for it. The library writes at most so many entries. The list keeps those that were
// written, whatever the status.
template <class Record, class Query>
uint32_t read_list(std::vector<Record> &list, uint32_t count, uint32_t most, const Query &query)
try {
    for (int left = 10;; --left) { // the list may grow meanwhile
        const record_room<Record> room(std::min(count, most));
        if (!room)
            return VARNOK_STATUS_NO_MEMORY;
        const uint32_t asked = count;
        Record *array = room.entries();
        const uint32_t status = query(&count, &array);
        if (status == VARNOK_STATUS_INSUFFICIENT_BUFFER && count > asked && left > 0)
            continue;
        const auto written = room.written();
        list.assign(written.begin(), written.end());
        return status;
    }
} catch (const std::bad_alloc &) {
    list.clear();
    return VARNOK_STATUS_NO_MEMORY;
}

} // namespace ctl
