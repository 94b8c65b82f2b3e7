// Turns field bytes, addresses and sizes into text that is safe to print.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ctl
{

// How output is to look.
struct output_style {
    bool utf8 = false;    // else plain ASCII
    bool bytes = false;   // sizes in bytes too
    bool details = false; // every field, not only those that fit a table
    size_t width = 80;    // columns
};

// A text field: up to its NUL byte or its end, without trailing spaces. Whatever is not printable
// is written as \xNN, a byte at a time, and so is the backslash; without UTF-8 all but ASCII is.
std::string field_text(std::span<const uint8_t> field, const output_style &style);

// Bytes as hexadecimal digits in lower case, with a separator between two bytes.
std::string hex_bytes(std::span<const uint8_t> bytes, std::string_view separator = "");

// The number that the bytes are, the most significant first.
uint64_t big_endian(std::span<const uint8_t> bytes);

// Both are empty for an address of zeros.
std::string ip_address(std::span<const uint8_t, 4> address);
std::string ip_address(std::span<const uint8_t, 16> address);

// "10.0.0.1:3260" or "[fd00::1]:3260"; empty for an empty address.
std::string endpoint(const std::string &address, uint16_t port);

// In binary units: "512 B", "2.0 TiB"; empty for 0.
std::string size_text(uint64_t bytes);

// "no LUNs", "1 LUN", "5 LUNs".
std::string counted(size_t count, std::string_view noun);

// Columns that a text takes on a terminal, by the program's locale.
size_t display_width(std::string_view text);

// The text filled up with spaces, at its end or (right) at its start.
std::string padded(const std::string &text, size_t width, bool right = false);

// The text with its middle left out when it is wider than that: names differ at their end. No
// character and no escape is cut in two.
std::string shortened(const std::string &text, size_t width, const output_style &style);

} // namespace ctl
