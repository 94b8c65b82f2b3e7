// byte_map.h - what goes where from one record to another, as a table of bytes, checked over every byte of both.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

struct byte_move {
    size_t to;
    size_t from;
    size_t size;
    size_t source_size = SIZE_MAX; // less than size: the rest becomes zero
};

// The image of `to` after the moves from `from`.
inline std::string moved(std::string to, const std::string &from, std::initializer_list<byte_move> moves)
{
    for (const byte_move &m : moves) {
        const size_t taken = m.source_size < m.size ? m.source_size : m.size;
        to.replace(m.to, m.size, from.substr(m.from, taken) + std::string(m.size - taken, '\0'));
    }
    return to;
}

// Bytes that all differ from their neighbours and from those of another seed, and are never zero.
inline std::string pattern(size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(1 + (i * 7 + i / 256 * 13 + seed * 101) % 251);
    return bytes;
}
