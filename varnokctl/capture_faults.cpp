#include "varnokctl/capture_faults.h"

#include "varnokctl/capture_luns.h"

#include <algorithm>

namespace ctl
{
namespace
{

// Which requests fail: members of a fault. Null when a scenario cannot make the call fail.
json failing_port(const port_entry &port, call_name call)
{
    constexpr uint32_t asked_after_loading = 2;
    if (!port.info)
        return {{"request", "port_info"}, {"nth", asked_after_loading}};
    switch (call) {
    case call_name::get_session_info: // the list ends where it failed
        return {{"request", "sess_info"}, {"target", port.sessions.size()}};
    case call_name::get_tgt_info:
        return {{"request", "tgt_info"}, {"target", port.targets.size()}};
    default:
        return {};
    }
}

json failing_target(const port_entry &port, const failed_call &failure)
{
    json members = {{"request", "scsi_cmd"}, {"target", *failure.target}};
    if (failure.lun) {
        members["lun"] = lun_number_of(*failure.lun);
        members["cdb"] = failure.cdb;
        return members;
    }
    const auto number = [](const target_entry &target) { return target.info.ScsiTgtNum; };
    const auto target = std::ranges::find(port.targets, *failure.target, number);
    const bool has_luns =
        target != port.targets.end() && (target->info.LunCount != 0 || !target->luns.empty());
    // A target that counts its LUNs, but does not list them, fails when it is asked what the
    // first unlisted one is.
    if (!has_luns)
        return members;
    members["cdb"] = failure.cdb.empty() ? "0x12" : failure.cdb;
    if (const auto next = first_unlisted(*target); next && failure.cdb.empty())
        members["lun"] = *next;
    return members;
}

// A driver's status is the library's, counted from the first one.
void put_reason(json &fault, const failed_call &failure)
{
    if (!failure.sense.empty())
        fault["sense"] = failure.sense;
    if (failure.status >= VARNOK_STATUS_FAILED && failure.status <= VARNOK_STATUS_DRIVER_13 &&
        failure.status != VARNOK_STATUS_DRIVER_FAILED)
        fault["status"] = failure.status - VARNOK_STATUS_FAILED + 1;
    else if (failure.sense.empty())
        fault["errno"] = "EIO";
}

} // namespace

void add_faults(json &faults, const port_entry &port, const std::vector<failed_call> &failures,
                std::string_view driver, uint32_t instance)
{
    constexpr uint32_t for_ever = 0;
    for (const failed_call &failure : failures) {
        // What is counted but not listed is among the LUNs.
        if (failure.port != port.instance || failure.cause == failure_cause::list_incomplete)
            continue;
        json fault = port.info && failure.target ? failing_target(port, failure)
                                                 : failing_port(port, failure.call);
        if (fault.is_null())
            continue;
        fault["driver"] = driver;
        fault["instance"] = instance;
        fault["times"] = for_ever;
        put_reason(fault, failure);
        faults.push_back(fault);
        if (!port.info)
            return;
    }
}

} // namespace ctl
