#include "varnokctl/ending.h"

#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>

namespace ctl
{
namespace
{

constexpr code_word endings[] = {
    {all_well, "all well"},
    {refused, "the library or a device refused, or there is no such port or target"},
    {usage, "wrong usage"},
    {partial, "partial: something failed, but some ports or targets answered"},
    {no_host, "no supported host, or not root: nothing was loaded"},
};

bool names_port(const failed_call &failure, const port_entry &port)
{
    return failure.port == port.instance;
}

// Whether a port gave some of what was asked of it, or has nothing to give.
bool answered(const port_entry &port, const inventory &host)
{
    const auto failed = [&](const failed_call &failure) { return names_port(failure, port); };
    const auto target_answered = [&](const target_entry &target) {
        return !target.luns.empty() ||
               std::ranges::none_of(host.failures, [&](const failed_call &failure) {
                   // A target that was listed without its count did answer.
                   return names_port(failure, port) && failure.target == target.info.ScsiTgtNum &&
                          failure.call != call_name::get_tgt_info;
               });
    };
    return port.portal || !port.sessions.empty() || std::ranges::none_of(host.failures, failed) ||
           std::ranges::any_of(port.targets, target_answered);
}

} // namespace

ending ending_of(const inventory &host)
{
    const auto has = [&](failure_cause cause) {
        return std::ranges::find(host.failures, cause, &failed_call::cause) != host.failures.end();
    };
    if (host.failures.empty())
        return all_well;
    if (has(failure_cause::not_loaded))
        return no_host;
    if (has(failure_cause::no_such_target))
        return refused;
    const auto any = [&](const port_entry &port) { return answered(port, host); };
    return std::ranges::any_of(host.ports, any) ? partial : refused;
}

std::string endings_text()
{
    std::string text = "Exit status:\n";
    for (const auto &[code, meaning] : endings)
        text += fmt::format("  {}  {}\n", code, meaning);
    return text;
}

} // namespace ctl
