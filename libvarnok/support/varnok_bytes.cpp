#include "support/varnok_bytes.h"

#include <cstdlib>

void varnok_revcpy(uint8_t *destination, const uint8_t *source, uint32_t size)
{
    for (uint32_t i = 0; i < size; ++i)
        destination[i] = source[size - 1 - i];
}

void varnok_to_array_hex(uint8_t *destination, const char *text, uint32_t size)
{
    if (size > 0)
        memset(destination, 0, size);
    if (text == nullptr)
        return;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text += 2;
    const size_t pairs = strlen(text) / 2;
    for (size_t i = 0; i < pairs && i < size; ++i) {
        const char pair[] = {text[2 * i], text[2 * i + 1], '\0'};
        destination[i] = static_cast<uint8_t>(strtoul(pair, nullptr, 16));
    }
}

uint32_t varnok_is_non_zero(const uint8_t *bytes, uint32_t size)
{
    for (uint32_t i = 0; i < size; ++i)
        if (bytes[i] != 0)
            return 1;
    return 0;
}

uint64_t varnok_ptr_to_64bit(const void *pointer) { return reinterpret_cast<uintptr_t>(pointer); }

void varnok::clear(void *at, size_t size) { memset(at, 0, size); }

void varnok::copy(void *to, const void *from, size_t size) { memcpy(to, from, size); }

void *varnok_64bit_to_ptr(uint64_t value)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(value));
}

uint32_t varnok::big_endian_32(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

uint64_t varnok::big_endian_64(const uint8_t *bytes)
{
    return static_cast<uint64_t>(big_endian_32(bytes)) << 32 | big_endian_32(bytes + 4);
}
