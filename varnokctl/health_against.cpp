#include "varnokctl/health_against.h"

#include "varnokctl/capture.h"
#include "varnokctl/capture_diff.h"

#include <fmt/format.h>

namespace ctl
{
namespace
{

lost_parts lost_between(const capture_json &before, const capture_json &after,
                        const output_style &style)
{
    lost_parts lost;
    const capture_comparison comparison =
        compare_captures(before, after, {.numbers = false, .output = style});
    for (const difference &entry : comparison.differences)
        if (entry.kind == change::gone)
            lost.gone.push_back(fmt::format("{} {}", entry.what, entry.name));
    for (const unread_part &part : comparison.unread_before)
        lost.unknown.push_back(fmt::format("{}: {}", part.name, part.why));
    return lost;
}

} // namespace

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
        return lost_between(before, parse_capture(capture_document(host, false)), style);
    } catch (const capture_error &error) {
        return fail(failure_cause::no_capture, error.what(), VARNOK_STATUS_SUCCESS);
    } catch (const std::system_error &error) {
        return fail(failure_cause::file_not_read, error.code().message(),
                    static_cast<uint32_t>(error.code().value()));
    }
}

} // namespace ctl
