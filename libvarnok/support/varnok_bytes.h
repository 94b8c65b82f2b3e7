// varnok_bytes.h - bytes: copied, compared, and read as numbers.
#pragma once

#include "records/varnok_export.h"

#include <cstdint>
#include <cstring>

extern "C" {

// Copies size bytes in reverse order.
VARNOK_PRIVATE void varnok_revcpy(uint8_t *destination, const uint8_t *source, uint32_t size);

// Converts hexadecimal text, with or without 0x, to at most size bytes, a pair of digits each; the
// rest of the destination becomes zero. An odd last digit is ignored. The text may be null.
VARNOK_PRIVATE void varnok_to_array_hex(uint8_t *destination, const char *text, uint32_t size);

// 1 when any of the bytes is nonzero, else 0.
VARNOK_PRIVATE uint32_t varnok_is_non_zero(const uint8_t *bytes, uint32_t size);

VARNOK_PRIVATE uint64_t varnok_ptr_to_64bit(const void *pointer);
VARNOK_PRIVATE void *varnok_64bit_to_ptr(uint64_t value);
}

namespace varnok
{

// memset and memcpy, out of line: where a compiler sees that a record is large, it puts a string
// instruction in their place that takes twice their time.
void clear(void *at, size_t size);
void copy(void *to, const void *from, size_t size);

template <size_t Size>
void copy_field(uint8_t (&to)[Size], const uint8_t (&from)[Size])
{
    memcpy(to, from, Size);
}

uint32_t big_endian_32(const uint8_t *bytes);
uint64_t big_endian_64(const uint8_t *bytes);

// By value: the fields of packed records cannot be referred to.
constexpr size_t smaller(size_t a, size_t b) { return a < b ? a : b; }

} // namespace varnok
