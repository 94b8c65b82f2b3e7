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

trace_scope::trace_scope(const char *func) : func_(func) { LOG_TRACE_AS(func_, ": entered."); }

trace_scope::~trace_scope() { LOG_TRACE_AS(func_, ": exiting."); }

} // namespace varnok
