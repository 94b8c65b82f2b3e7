#include "varnokctl/health_against.h"

#include "varnokctl/capture.h"

#include <fmt/format.h>

namespace ctl
{

lost_parts lost_in(const capture_comparison &comparison)
{
    lost_parts lost;
    for (const difference &entry : comparison.differences)
        if (entry.kind == change::gone)
            lost.gone.push_back(fmt::format("{} {}", entry.what, entry.name));
    for (const unread_part &part : comparison.unread_before)
        lost.unknown.push_back(fmt::format("{}: {}", part.name, part.why));
    return lost;
}

lost_parts lost_since(const std::string &capture, inventory &host, const output_style &style)
{
    const auto fail = [&](failure_cause cause, const std::string &why, uint32_t status) {
        host.failures.push_back(
            {.call = call_name::read_file,
             .cause = cause,
             .status = status,
             .detail = fmt::format("{}: {}", capture == "-" ? "standard input" : safe_text(capture),
                                   safe_text(why))});
        return lost_parts();
    };
    try {
        const capture_json before = parse_capture(capture_text(capture));
        if (host.ports.empty() && !host.failures.empty())
            return {};
        return lost_in(compare_captures(before, parse_capture(capture_document(host, false)),
                                        {.numbers = false, .output = style}));
    } catch (const capture_error &error) {
        return fail(failure_cause::no_capture, error.what(), VARNOK_STATUS_SUCCESS);
    } catch (const std::system_error &error) {
        return fail(failure_cause::file_not_read, error.code().message(),
                    static_cast<uint32_t>(error.code().value()));
    }
}

} // namespace ctl
