// The SCSI pass-through.
#include "api/exported_call.h"

using namespace varnok;

static uint8_t data_direction(const VARNOK_SCSI_CMND &command)
{
    const bool moves_data =
        command.Direction == VARNOK_SCSI_DATA_IN || command.Direction == VARNOK_SCSI_DATA_OUT;
    return moves_data ? command.Direction : VARNOK_SCSI_NO_DATA;
}

static uint32_t send(const exported_call &call, varnok_priv_db *pdb, const scsi_request &request)
{
    const backend &backend = backend_of(pdb);
    if (request.data_len > backend.scsi_data_max)
        return call.fails(VARNOK_STATUS_INVALID_PARAMETER, "): invalid parameter.");
    uint32_t stat = 0;
    switch (backend.send_scsi_cmd(pdb, request, &stat)) {
    case scsi_outcome::no_memory:
        return call.fails(VARNOK_STATUS_NO_MEMORY, backend.scsi_alloc_failed);
    case scsi_outcome::failed:
        return call.returns(call.request_fails(backend.scsi_failed, stat));
    case scsi_outcome::done:
        break;
    }
    return call.returns(VARNOK_STATUS_SUCCESS);
}

uint32_t VARNOK_SendScsiCommand(uint32_t Handle, VARNOK_SCSI_CMND *pScsiCmnd, uint32_t *pDataLen,
                                uint8_t *pData)
{
    const exported_call call(__func__, Handle, "): entered.");
    varnok_priv_db *const pdb = call.port();
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    if (pScsiCmnd == nullptr)
        return call.fails(VARNOK_STATUS_INVALID_PARAMETER, "): invalid parameter.");
    const uint8_t direction = data_direction(*pScsiCmnd);
    // Without data the two pointers may be anything.
    const uint32_t data_len = direction == VARNOK_SCSI_NO_DATA ? 0 : *pDataLen;
    return send(call, pdb, {pScsiCmnd, direction, data_len, pData});
}
