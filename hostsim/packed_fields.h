// packed_fields.h - reads and writes fields of packed records by copying.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

namespace hostsim
{

template <class T>
T get_field(std::span<const std::byte> record, size_t offset = 0)
{
    T value;
    std::memcpy(&value, record.data() + offset, sizeof value);
    return value;
}

template <class T>
void set_field(std::span<std::byte> record, const T &value, size_t offset = 0)
{
    std::memcpy(record.data() + offset, &value, sizeof value);
}

} // namespace hostsim
