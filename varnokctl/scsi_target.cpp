#include "varnokctl/scsi_target.h"

#include "varnokctl/inventory.h"

#include <utility>

namespace ctl
{

bool find_target(scsi_options &options, std::vector<failed_call> &failures)
{
    scsi_request &request = options.request;
    const auto port = options.port.number(), target = options.target.number();
    if (port && target) {
        request.port = *port;
        request.target = *target;
        return true;
    }
    inventory host = read_host(
        {.needs = need_sessions, .port = options.port, .target = options.target}, progress::none());
    size_t found = 0;
    for (const port_entry &entry : host.ports)
        for (const session_entry &session : entry.sessions) {
            request.port = entry.instance;
            request.target = session.target;
            ++found;
        }
    if (found == 1)
        return true;
    failures = std::move(host.failures);
    if (found > 1)
        failures.push_back({call_name::get_session_info, failure_cause::several_targets});
    return false;
}

} // namespace ctl
