#include "support/varnok_log.h"

namespace varnok
{

void write_log_line(const char *func, std::initializer_list<log_part> parts)
{
    for (const log_part *part = parts.begin(); part != parts.end();) {
        const char *const text = part->text;
        log_number number = {0, 0};
        if (++part != parts.end() && part->text == nullptr)
            number = part++->number;
        varnok_dbg_print(func, text, number.value, number.radix, part == parts.end() ? 1 : 0);
        func = nullptr;
    }
}

trace_scope::trace_scope(const char *func, bool numbered, uint32_t number)
    : func_(func), numbered_(numbered), number_(number)
{
    trace(": entered.", "): entered.");
}

trace_scope::~trace_scope() { trace(": exiting.", "): exiting."); }

void trace_scope::trace(const char *plain, const char *after_number) const
{
    if (numbered_)
        LOG_TRACE_AS(func_, "(", dec(number_), after_number);
    else
        LOG_TRACE_AS(func_, plain);
}

} // namespace varnok
