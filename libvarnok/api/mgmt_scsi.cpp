// The SCSI pass-through.
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

static uint8_t data_direction(const VARNOK_SCSI_CMND &command)
{
    const bool moves_data =
        command.Direction == VARNOK_SCSI_DATA_IN || command.Direction == VARNOK_SCSI_DATA_OUT;
    return moves_data ? command.Direction : VARNOK_SCSI_NO_DATA;
}

uint32_t VARNOK_SendScsiCommand(uint32_t Handle, VARNOK_SCSI_CMND *pScsiCmnd, uint32_t *pDataLen,
                                uint8_t *pData)
{
    LOG_TRACE("(", dec(Handle), "): entered.");
    varnok_priv_db *const pdb = varnok::port_of(__func__, Handle);
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    if (pScsiCmnd == nullptr) {
        LOG_ERROR("(", dec(Handle), "): invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    const varnok::backend_operations &operations = varnok::operations_of(pdb);
    const uint8_t direction = data_direction(*pScsiCmnd);
    // Without data the two pointers may be anything.
    const uint32_t data_len = direction == VARNOK_SCSI_NO_DATA ? 0 : *pDataLen;
    if (data_len > operations.scsi_data_max) {
        LOG_ERROR("(", dec(Handle), "): invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    const varnok::scsi_outcome outcome = operations.send_scsi_cmd(
        {__func__, Handle, pdb, operations, pScsiCmnd, direction, data_len, pData});
    if (outcome.sent)
        LOG_TRACE("(", dec(Handle), "): exiting, rval=", hex(outcome.rval));
    return outcome.rval;
}
