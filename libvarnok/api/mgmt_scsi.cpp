// The SCSI pass-through.
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

#include <cerrno>

uint32_t VARNOK_SendScsiCommand(uint32_t Handle, VARNOK_SCSI_CMND *pScsiCmnd, uint32_t *pDataLen,
                                uint8_t *pData)
{
    LOG_TRACE("(", dec(Handle), "): entered.");
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_handle(Handle);
    if (pdb == nullptr) {
        LOG_ERROR("(", dec(Handle), "): get pdb failed.");
        return VARNOK_STATUS_FAILED;
    }
    if (pScsiCmnd == nullptr) {
        LOG_ERROR("(", dec(Handle), "): invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    const varnok::backend_operations &operations = varnok::operations_of(pdb);
    const bool moves_data =
        pScsiCmnd->Direction == VARNOK_SCSI_DATA_IN || pScsiCmnd->Direction == VARNOK_SCSI_DATA_OUT;
    // Without data the two pointers may be anything.
    const uint32_t data_len = moves_data ? *pDataLen : 0;
    if (data_len > operations.scsi_data_max) {
        LOG_ERROR("(", dec(Handle), "): invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    const varnok::scsi_outcome outcome =
        operations.send_scsi_cmd({pdb, pScsiCmnd, data_len, pData});
    if (!outcome.allocated) {
        LOG_ERROR("(", dec(Handle), operations.scsi_alloc_failed);
        return VARNOK_STATUS_NO_MEMORY;
    }
    uint32_t rval = VARNOK_STATUS_SUCCESS;
    if (outcome.result != 0 || outcome.stat != 0) {
        LOG_ERROR("(", dec(Handle), operations.scsi_failed, dec(outcome.stat),
                  " errno=", dec(errno));
        rval = varnok_xlate_err(outcome.stat);
    }
    LOG_TRACE("(", dec(Handle), "): exiting, rval=", hex(rval));
    return rval;
}
