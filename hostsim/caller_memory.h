// caller_memory.h - the addresses that a caller gives, as a kernel takes them: a bad one is an error
// of the call.
#pragma once

#include <cstddef>
#include <span>

namespace hostsim
{

bool is_readable(std::span<const std::byte> memory);
bool is_writable(std::span<std::byte> memory);

// Copies what can be read from the address on. Returns how many bytes that is.
size_t copy_beginning(const void *from, std::span<char> into);

} // namespace hostsim
