// caller_array.h - a caller's array of public records, and the one place that says how long a
// record is at which Version.
#pragma once

#include "include/varnok_mgmt.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace varnok
{

struct record_form {
    uint32_t version; // any_version in the last row, which is for every other caller
    size_t size;
};

constexpr uint32_t any_version = UINT32_MAX;

// The forms of a record. A form that is shorter lacks the last fields.
template <class Record>
inline constexpr record_form forms[] = {{any_version, sizeof(Record)}};

template <>
inline constexpr record_form forms<VARNOK_PHY_PORT_INFO>[] = {
    {VARNOK_PHY_PORT_INFO_VERSION, sizeof(VARNOK_PHY_PORT_INFO)},
    {any_version, offsetof(VARNOK_PHY_PORT_INFO, PCIESpeed)},
};

template <>
inline constexpr record_form forms<VARNOK_LUN_INFO>[] = {
    {VARNOK_LUN_INFO_VERSION, sizeof(VARNOK_LUN_INFO)},
    {any_version, VARNOK_LUN_INFO_SIZE_1},
};

// The length of the record at this address, by its Version.
template <class Record>
size_t size_at(const void *record)
{
    uint32_t version = 0;
    memcpy(&version, record, sizeof version);
    for (const record_form &form : forms<Record>)
        if (form.version == version || form.version == any_version)
            return form.size;
    return 0; // GCOVR_EXCL_LINE: the last row is for all
}

// The entries follow each other with no gap. The first one's Version says how long they all are.
template <class Record>
class caller_array
{
  public:
    caller_array(Record *first, uint32_t capacity)
        : base_(reinterpret_cast<uint8_t *>(first)), stride_(size_at<Record>(first)),
          capacity_(capacity)
    {
    }

    uint32_t capacity() const { return capacity_; }

    // Has fill write an entry. Where an entry may lack the last fields, fill gets a whole record
    // with the caller's bytes, and as much of it as the entry has goes back.
    template <class Fill>
    void write(uint32_t index, Fill fill) const
    {
        uint8_t *const entry = base_ + index * stride_;
        if constexpr (std::size(forms<Record>) == 1)
            return fill(*reinterpret_cast<Record *>(entry));
        Record record;
        memcpy(&record, entry, stride_);
        fill(record);
        memcpy(entry, &record, stride_);
    }

  private:
    uint8_t *base_;
    size_t stride_;
    uint32_t capacity_;
};

} // namespace varnok
