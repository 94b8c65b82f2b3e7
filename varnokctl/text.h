// Turns the bytes of fields, addresses and sizes into text that is safe to print.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ctl
{

struct output_style {
    bool utf8 = false;     // else ASCII only
    bool bytes = false;    // sizes in bytes too
    bool identity = false; // what identifies LUNs
    bool details = false;  // every field, not only those that fit a table
    bool headings = true;
    bool colours = false; // for what is down or failed
    size_t width = 80;    // in columns
};

struct ip_endpoint {
    std::string ip; // empty for none
    uint16_t tcp_port = 0;
};

// A text field up to its NUL byte or its end, without trailing spaces. Each byte that is not
// printable is written as \xNN, and so is the backslash. Without UTF-8, only ASCII is printable.
std::string field_text(std::span<const uint8_t> field, const output_style &style);

// What a user typed, with escapes as in field_text. A long text lacks its middle.
std::string safe_text(std::string_view typed, size_t longest = 300);

// Bytes as hexadecimal digits in lower case, with a separator between two bytes.
std::string hex_bytes(std::span<const uint8_t> bytes, std::string_view separator = "");

// The number that the bytes are, the most significant first.
uint64_t big_endian(std::span<const uint8_t> bytes);

// Empty for an address of zeros.
std::string ip_address(std::span<const uint8_t, 4> address);
std::string ip_address(std::span<const uint8_t, 16> address);

// "10.0.0.1:3260" or "[fd00::1]:3260"; the address alone for port 0.
std::string endpoint_text(const ip_endpoint &endpoint);

// In binary units: "512 B", "2.0 TiB"; empty for 0.
std::string size_text(uint64_t bytes);

// "no LUNs", "1 LUN", "5 LUNs"
std::string counted(size_t count, std::string_view noun);

// How many columns a text takes on a terminal, by the program's locale.
size_t display_width(std::string_view text);

// The text filled up with spaces at its end or, aligned right, at its start.
std::string padded(const std::string &text, size_t width, bool right = false);

// The text cut to the width. The middle is left out, because names differ at their end. Characters
// and escapes stay whole.
std::string shortened(const std::string &text, size_t width, const output_style &style);

// The line without spaces at its end.
std::string trimmed(std::string line);

// The text in red if it is about something bad and the style has colours.
std::string coloured(const std::string &text, bool bad, const output_style &style);

} // namespace ctl
