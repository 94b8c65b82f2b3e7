#include "varnokctl/scsi.h"

#include "varnokctl/library.h"
#include "varnokctl/sense.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ctl
{
namespace
{

bool good(call_name call, uint32_t status, const scsi_request &request, scsi_result &result)
{
    return succeeded(result.failures, call, status, request.port, request.target);
}

VARNOK_SCSI_CMND command_of(const scsi_request &request)
{
    VARNOK_SCSI_CMND command{};
    command.Version = VARNOK_RECORD_VERSION_2;
    command.ScsiTgtNum = request.target;
    command.ScsiLunNum = request.lun.levels_1_and_2;
    command.ScsiLunNumExt = request.lun.levels_3_and_4;
    command.Direction = request.direction;
    command.CDBLength = static_cast<uint8_t>(request.cdb.size());
    std::ranges::copy(request.cdb, command.CDB);
    command.SenseLength = sizeof command.Sense;
    return command;
}

void send_to(uint32_t handle, const scsi_request &request, scsi_result &result)
{
    scsi_answer answer = carry_out(handle, request);
    const auto sense = decode_sense(answer.sense);
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
        result.data = std::move(answer.data);
}

} // namespace

scsi_answer carry_out(uint32_t handle, const scsi_request &request)
{
    VARNOK_SCSI_CMND command = command_of(request);
    std::vector<uint8_t> data = request.data;
    auto length = static_cast<uint32_t>(data.size());
    const uint32_t status = VARNOK_SendScsiCommand(handle, &command, &length, data.data());
    return {status, std::move(data), {std::begin(command.Sense), std::end(command.Sense)}};
}

scsi_result send(const scsi_request &request)
{
    scsi_result result;
    const loaded_library library;
    uint32_t handle = 0;
    if (!good(call_name::load_library, library.status(), request, result) ||
        !good(call_name::open_adapter, VARNOK_OpenAdapter(request.port, &handle), request, result))
        return result;
    send_to(handle, request, result);
    for (failed_call &failure : result.failures)
        failure.lun = request.lun;
    good(call_name::close_adapter, VARNOK_CloseAdapter(handle), request, result);
    return result;
}

} // namespace ctl
