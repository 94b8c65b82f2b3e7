#include "varnokctl/ending.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

namespace ctl
{
namespace
{

struct ending_word {
    ending code;
    const char *meaning;
};

constexpr ending_word endings[] = {
    {all_well, "all well"},
    {refused, "the library or a device refused, or there is no such port or target"},
    {usage, "wrong usage"},
    {partial, "partial: something failed, but some ports or targets answered"},
    {no_host, "no supported host, or not root: nothing was loaded"},
};

bool not_loaded(const failure &failure)
{
    return failure.call == std::string_view("VARNOK_LoadLibrary") &&
           failure.status == VARNOK_STATUS_FAILED;
}

// The library itself succeeded, but there is no such target, or the device refused a command.
bool call_succeeded(const failure &failure)
{
    return failure.status == VARNOK_STATUS_SUCCESS &&
           failure.call != std::string_view("VARNOK_GetLunInfo");
}

bool names_port(const failure &failure, const port &port) { return failure.port == port.instance; }

bool names_target(const failure &failure, const port &port, const target &target)
{
    return names_port(failure, port) && failure.target == target.info.ScsiTgtNum;
}

// Whether a port gave some of what was asked of it, or has nothing to give.
bool answered(const port &port, const host &host)
{
    const auto failed = [&](const failure &f) { return names_port(f, port); };
    const auto target_answered = [&](const target &target) {
        return !target.luns.empty() || std::ranges::none_of(host.failures, [&](const failure &f) {
            return names_target(f, port, target);
        });
    };
    return port.portal || !port.sessions.empty() || std::ranges::none_of(host.failures, failed) ||
           std::ranges::any_of(port.targets, target_answered);
}

} // namespace

ending ending_of(const host &host)
{
    if (host.failures.empty())
        return all_well;
    if (std::ranges::any_of(host.failures, not_loaded))
        return no_host;
    if (std::ranges::any_of(host.failures, call_succeeded))
        return refused;
    const auto any = [&](const port &port) { return answered(port, host); };
    return std::ranges::any_of(host.ports, any) ? partial : refused;
}

std::string endings_text()
{
    std::string text = "Exit status:\n";
    for (const ending_word &word : endings)
        text += fmt::format("  {}  {}\n", static_cast<int>(word.code), word.meaning);
    return text;
}

} // namespace ctl
