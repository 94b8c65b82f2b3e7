// varnok_log.h - one log line at one short statement:
//
//     LOG_ERROR("(", dec(handle), "): get port info failed. stat=", dec(stat), " errno=",
//     dec(errno));
//
// The statement costs one test of the mask when its bit is clear: nothing else is evaluated. Every
// text goes out as a piece of its own, with the number that follows it. errno survives.
#pragma once

#include "support/varnok_dbg.h"

#include <initializer_list>

namespace varnok
{

struct log_number {
    uint64_t value;
    uint8_t radix;
};

// A negative number is printed as the 64-bit number of the same bits, as the log has no sign.
template <class Integer>
constexpr log_number dec(Integer value)
{
    return {static_cast<uint64_t>(value), 10};
}

template <class Integer>
constexpr log_number hex(Integer value)
{
    return {static_cast<uint64_t>(value), 16};
}

struct log_part {
    constexpr log_part(const char *piece) : text(piece) {}
    constexpr log_part(log_number n) : number(n) {}

    const char *text = nullptr;
    log_number number = {0, 0};
};

// func may be null. The first part is a text.
void write_log_line(const char *func, std::initializer_list<log_part> parts);

// Traces a function's entry and every way out of it. A number stands in both lines.
class trace_scope
{
  public:
    explicit trace_scope(const char *func) : trace_scope(func, false, 0) {}
    trace_scope(const char *func, uint32_t number) : trace_scope(func, true, number) {}
    trace_scope(const trace_scope &) = delete;
    trace_scope &operator=(const trace_scope &) = delete;
    ~trace_scope();

  private:
    trace_scope(const char *func, bool numbered, uint32_t number);
    void trace(const char *plain, const char *after_number) const;

    const char *func_;
    bool numbered_;
    uint32_t number_;
};

} // namespace varnok

#define LOG_LINE(bit, func, ...)                                                                   \
    do {                                                                                           \
        if ((varnok_debug & (bit)) != 0) [[unlikely]] {                                            \
            using varnok::dec;                                                                     \
            using varnok::hex;                                                                     \
            varnok::write_log_line(func, {__VA_ARGS__});                                           \
        }                                                                                          \
    } while (0)

#define LOG_TRACE_AS(func, ...) LOG_LINE(VARNOK_DBG_TRACE, func, __VA_ARGS__)
#define LOG_ERROR_AS(func, ...) LOG_LINE(VARNOK_DBG_ERROR, func, __VA_ARGS__)
#define LOG_TRACE(...) LOG_TRACE_AS(__func__, __VA_ARGS__)
#define LOG_ERROR(...) LOG_ERROR_AS(__func__, __VA_ARGS__)
