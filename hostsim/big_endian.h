// big_endian.h - numbers in the order of bytes that SCSI has.
#pragma once

#include <cstddef>
#include <cstdint>

namespace hostsim
{

template <class T>
void put_number(uint8_t *to, T value)
{
    for (size_t i = sizeof value; i-- > 0; value = static_cast<T>(value >> 8))
        to[i] = static_cast<uint8_t>(value);
}

} // namespace hostsim
