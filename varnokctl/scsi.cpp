#include "varnokctl/scsi.h"

#include <algorithm>
#include <utility>

#include "varnokctl/library.h"
#include "varnokctl/sense.h"

namespace ctl
{
namespace
{

// Notes a call that failed.
class noter
{
  public:
    noter(const scsi_request &request, scsi_result &result) : request_(request), result_(result) {}

    void note(const char *call, uint32_t status)
    {
        result_.failures.push_back({call, status, request_.port, request_.target});
    }

    bool good(const char *call, uint32_t status)
    {
        if (status != VARNOK_STATUS_SUCCESS)
            note(call, status);
        return status == VARNOK_STATUS_SUCCESS;
    }

  private:
    const scsi_request &request_;
    scsi_result &result_;
};

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

void send_to(uint32_t handle, const scsi_request &request, scsi_result &result, noter &noter)
{
    VARNOK_SCSI_CMND command = command_of(request);
    std::vector<uint8_t> data = request.data;
    auto length = static_cast<uint32_t>(data.size());
    const uint32_t status = VARNOK_SendScsiCommand(handle, &command, &length, data.data());
    const auto sense = decode_sense(command.Sense);
    if (sense)
        result.sense.assign(sense->raw.begin(), sense->raw.end());
    if (!noter.good("VARNOK_SendScsiCommand", status))
        return;
    if (sense && !harmless(*sense))
        return noter.note("VARNOK_SendScsiCommand", status);
    result.carried_out = true;
    if (request.direction == VARNOK_SCSI_DATA_IN)
        result.data = std::move(data);
}

} // namespace

scsi_result send(const scsi_request &request)
{
    scsi_result result;
    noter noter(request, result);
    const library library;
    uint32_t handle = 0;
    if (!noter.good("VARNOK_LoadLibrary", library.status()) ||
        !noter.good("VARNOK_OpenAdapter", VARNOK_OpenAdapter(request.port, &handle)))
        return result;
    send_to(handle, request, result, noter);
    noter.good("VARNOK_CloseAdapter", VARNOK_CloseAdapter(handle));
    return result;
}

} // namespace ctl
