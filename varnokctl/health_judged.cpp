#include "varnokctl/health_judged.h"

#include "varnokctl/inventory.h"

#include <algorithm>

namespace ctl
{
namespace
{

constexpr unsigned everything = ~0U;
constexpr unsigned of_luns = (need_luns | need_all_designators) & ~need_targets;
constexpr unsigned of_identities = need_all_designators & ~need_luns;

// What the failure keeps from being read, beside what it is about.
unsigned lost_by(const failed_call &failure)
{
    switch (failure.call) {
    case call_name::close_adapter:
        return 0;
    case call_name::get_iscsi_portal:
        return need_portals;
    case call_name::get_session_info:
        return need_sessions;
    case call_name::get_tgt_info:
        return failure.target ? of_luns : need_targets | of_luns;
    case call_name::get_lun_info:
        return of_luns;
    case call_name::send_scsi_command:
        return of_identities;
    case call_name::read_file:
        return compared_capture;
    default:
        return everything;
    }
}

} // namespace

bool is_wholly_judged(const health_rule &rule, const examined_host &examined, unsigned asked)
{
    const auto hides = [&](const failed_call &failure) {
        const unsigned lost = lost_by(failure);
        return rule_of(failure) != &rule && (lost == everything || (lost & rule.needs) != 0);
    };
    const bool is_comparison = (rule.needs & compared_capture) != 0;
    return !examined.host.ports.empty() && (rule.needs & ~asked) == 0 &&
           !(is_comparison && !examined.lost.unknown.empty()) &&
           std::ranges::none_of(examined.host.failures, hides);
}

} // namespace ctl
