// What a call returned, and values that come with it. A part of varnok.hpp.
#ifndef VARNOK_STATUS_HPP
#define VARNOK_STATUS_HPP

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#ifdef __cpp_exceptions
#include <stdexcept>
#endif

#include <varnok_mgmt.h>

namespace varnok
{

namespace detail
{

struct status_words {
    std::uint32_t code;
    const char *name;
    const char *meaning;
};

inline constexpr status_words all_statuses[] = {
    {VARNOK_STATUS_SUCCESS, "VARNOK_STATUS_SUCCESS", "success"},
    {VARNOK_STATUS_FAILED, "VARNOK_STATUS_FAILED", "port not open, or driver status 1"},
    {VARNOK_STATUS_DRIVER_2, "VARNOK_STATUS_DRIVER_2", "driver status 2"},
    {VARNOK_STATUS_DRIVER_3, "VARNOK_STATUS_DRIVER_3", "driver status 3"},
    {VARNOK_STATUS_INVALID_PARAMETER, "VARNOK_STATUS_INVALID_PARAMETER",
     "an argument is missing or invalid, or driver status 4"},
    {VARNOK_STATUS_DRIVER_5, "VARNOK_STATUS_DRIVER_5", "driver status 5"},
    {VARNOK_STATUS_DRIVER_6, "VARNOK_STATUS_DRIVER_6", "driver status 6"},
    {VARNOK_STATUS_NOT_FOUND, "VARNOK_STATUS_NOT_FOUND",
     "the driver knows no such port, session, target or LUN (driver status 7)"},
    {VARNOK_STATUS_DRIVER_8, "VARNOK_STATUS_DRIVER_8", "driver status 8"},
    {VARNOK_STATUS_INSUFFICIENT_BUFFER, "VARNOK_STATUS_INSUFFICIENT_BUFFER",
     "there are more entries than asked for, or driver status 9"},
    {VARNOK_STATUS_NO_MEMORY, "VARNOK_STATUS_NO_MEMORY", "out of memory, or driver status 10"},
    {VARNOK_STATUS_DRIVER_FAILED, "VARNOK_STATUS_DRIVER_FAILED",
     "the driver failed the request without a usable status"},
    {VARNOK_STATUS_DRIVER_12, "VARNOK_STATUS_DRIVER_12", "driver status 12"},
    {VARNOK_STATUS_DRIVER_13, "VARNOK_STATUS_DRIVER_13", "driver status 13"},
};

} // namespace detail

// What a call returned.
class status
{
  public:
    constexpr status() = default;
    // The call's name must live for ever.
    constexpr status(std::uint32_t code, const char *call) : code_(code), call_(call) {}

    constexpr std::uint32_t code() const { return code_; }
    constexpr const char *call() const { return call_; } // "VARNOK_GetTgtInfo"
    constexpr bool ok() const { return code_ == VARNOK_STATUS_SUCCESS; }

    // Whether the code is an error number of the system: a port's device cannot be opened or closed.
    constexpr bool is_system_error() const { return !ok() && code_ < VARNOK_STATUS_FAILED; }

    // "VARNOK_STATUS_DRIVER_6"
    const char *name() const { return is_system_error() ? "system error" : words().name; }

    // "driver status 6". Of an error number it is the system's text.
    const char *meaning() const
    {
        return is_system_error() ? std::strerror(static_cast<int>(code_)) : words().meaning;
    }

    // "VARNOK_GetTgtInfo: VARNOK_STATUS_DRIVER_6: driver status 6"
    std::string text() const { return std::string(call_) + ": " + name() + ": " + meaning(); }

  private:
    const detail::status_words &words() const
    {
        static constexpr detail::status_words unknown = {0, "unknown status",
                                                         "no status that the library documents"};
        const auto *const found =
            std::find_if(std::begin(detail::all_statuses), std::end(detail::all_statuses),
                         [this](const detail::status_words &w) { return w.code == code_; });
        return found == std::end(detail::all_statuses) ? unknown : *found;
    }

    std::uint32_t code_ = VARNOK_STATUS_SUCCESS;
    const char *call_ = "";
};

// A value, and whether it is whole.
template <class T>
struct result {
    varnok::status status;
    T value{};

    constexpr bool ok() const { return status.ok(); }
};

#ifdef __cpp_exceptions

class error : public std::runtime_error
{
  public:
    explicit error(const varnok::status &s) : std::runtime_error(s.text()), status_(s) {}
    const varnok::status &status() const { return status_; }

  private:
    varnok::status status_;
};

inline void check(const status &s)
{
    if (!s.ok())
        throw error(s);
}

template <class T>
T check(result<T> r)
{
    check(r.status);
    return std::move(r.value);
}

#endif

} // namespace varnok

#endif
