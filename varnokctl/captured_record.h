// Reads a record of a capture into the fields of the library's records.
#pragma once

#include "varnokctl/capture_file.h"
#include "varnokctl/capture_view.h"

#include <cstdint>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <span>
#include <string>

namespace ctl
{

// Bytes as hexadecimal digits in pairs, with a separator between two pairs where there is one.
// Returns whether they fill the field.
bool hex_into(std::span<uint8_t> field, std::string_view text, std::string_view separator = "");

// A member that is left out leaves its field zero. What does not fit throws a capture_error.
class captured_record
{
  public:
    explicit captured_record(const capture_json &object) : object_(object) {}

    bool has(const char *key) const { return object_.contains(key); }
    const capture_json &at(const char *key) const { return member_or_null(object_, key); }

    void require(const char *key) const
    {
        if (!has(key))
            fail(key, "missing");
    }

    template <class Number>
    Number number(const char *key) const
    {
        return static_cast<Number>(number_up_to(key, std::numeric_limits<Number>::max()));
    }

    // Fields of packed records may lie at odd addresses: they are copied.
    template <size_t Size>
    void text(const char *key, uint8_t (&field)[Size], size_t room = Size) const
    {
        const std::string value = captured_text(at(key));
        if (value.size() > room)
            fail(key, "too long");
        std::memcpy(field, value.data(), value.size());
    }

    void hex(const char *key, std::span<uint8_t> field, std::string_view separator = "") const
    {
        if (has(key) && !hex_into(field, captured_text(at(key)), separator))
            fail(key, "not as many hexadecimal digits as there should be");
    }

    void address(const char *key, std::span<uint8_t> field) const; // IPv4 or IPv6, by its size

    // A number, or a text that is a number with this unit or "0x" and its digits.
    uint64_t large_number(const char *key, std::string_view unit) const;

    [[noreturn]] static void fail(const char *key, const char *what)
    {
        throw capture_error(fmt::format("{}: {}", key, what));
    }

  private:
    uint64_t number_up_to(const char *key, uint64_t most) const;

    const capture_json &object_;
};

} // namespace ctl
