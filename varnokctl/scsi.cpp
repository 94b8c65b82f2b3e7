#include "varnokctl/scsi.h"

#include "varnokctl/sense.h"

#include <utility>

namespace ctl
{
namespace
{

bool good(call_name call, const varnok::status &status, const scsi_request &request,
          scsi_result &result)
{
    return succeeded(result.failures, call, status.code(), request.port, request.target);
}

void send_to(const varnok::port &on, const scsi_request &request, scsi_result &result)
{
    auto answer = carry_out(on, request);
    const auto sense = decode_sense(answer.value.sense);
    if (sense)
        result.sense.assign(sense->raw.begin(), sense->raw.end());
    if (!good(call_name::send_scsi_command, answer.status, request, result))
        return;
    if (sense && !harmless(*sense)) {
        result.failures.push_back({call_name::send_scsi_command, failure_cause::refused_by_device,
                                   request.port, request.target});
        return;
    }
    result.carried_out = true;
    if (request.direction == VARNOK_SCSI_DATA_IN)
        result.data = std::move(answer.value.data);
}

} // namespace

varnok::result<varnok::scsi_reply> carry_out(const varnok::port &on, const scsi_request &request)
{
    const varnok::scsi_lun lun = {request.lun.levels_1_and_2, request.lun.levels_3_and_4};
    switch (request.direction) {
    case VARNOK_SCSI_DATA_IN:
        return on.read(request.target, lun, request.cdb, request.data.size());
    case VARNOK_SCSI_DATA_OUT:
        return on.write(request.target, lun, request.cdb, request.data);
    default:
        return on.send(request.target, lun, request.cdb);
    }
}

scsi_result send(const scsi_request &request)
{
    scsi_result result;
    const varnok::library library;
    if (!good(call_name::load_library, library.status(), request, result))
        return result;
    varnok::port opened(library, request.port);
    if (!good(call_name::open_adapter, opened.status(), request, result))
        return result;
    send_to(opened, request, result);
    for (failed_call &failure : result.failures)
        failure.lun = request.lun;
    good(call_name::close_adapter, opened.close(), request, result);
    return result;
}

} // namespace ctl
