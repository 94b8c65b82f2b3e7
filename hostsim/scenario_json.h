// scenario_json.h - reads the text of a scenario piece by piece. Each piece goes to the object or
// array that it stands in, and nothing else is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace hostsim
{

// A place in the scenario. Only an error makes its text, which is fit for a terminal.
struct place {
    static constexpr size_t no_index = SIZE_MAX;

    const place *up = nullptr;
    std::string_view key{};
    size_t index = no_index;

    std::string text() const;
    [[noreturn]] void fail(const std::string &what) const;
};

enum class kind : uint8_t { null, boolean, natural, other_number, text, array, object };

// A value is good for as long as the call that it comes with.
struct value {
    kind what;
    uint64_t number = 0;            // of natural; of boolean: 0 or 1
    std::string_view text{};        // of text; of array: its bytes
    size_t other = place::no_index; // of array: its first element that is not a byte
};

// An object or an array while it is read. Every function may throw scenario_error.
class container
{
  public:
    container() = default;
    container(const container &) = delete;
    container &operator=(const container &) = delete;
    virtual ~container() = default;

    // Whether an object knows the name. If so, the value that comes next is this member's.
    virtual bool select(std::string_view) { return true; }

    virtual void take(const value &v, const place &at) = 0;

    // The object or array at the place begins. The default takes neither.
    virtual std::unique_ptr<container> open(bool array, const place &at);

    virtual void close(const place &) {}
};

// More bytes than any value takes. Of an array of bytes no more are kept.
inline constexpr size_t too_many_bytes = 4097;

// Collects an array of bytes, and gives them to the owner as one value. The owner refuses a value
// that is no array of bytes or has too many.
std::unique_ptr<container> open_bytes(container &owner, const place &at);

// Reads an object. Accepts comments. Refuses what is not UTF-8, NUL bytes, names that are given
// twice or unknown, and containers within too many others. Throws scenario_error.
void read_document(std::string_view text, container &document);

} // namespace hostsim
