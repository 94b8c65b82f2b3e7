// scsi_forms.h - a pass-through command in the two forms that drivers take: with the data's
// address, or with the data.
#pragma once

#include "heap_buffer.h"
#include "varnok_bytes.h"
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

#include <cerrno>
#include <cstring>

namespace varnok
{

inline void attach_data(varnok_drv_scsi_cmd_ioctl &record, const scsi_call &call)
{
    if (call.direction != VARNOK_SCSI_NO_DATA)
        record.data_addr = varnok_ptr_to_64bit(call.data);
}

inline void attach_data(varnok_drv_scsi_cmd_native &record, const scsi_call &call)
{
    if (call.direction == VARNOK_SCSI_DATA_OUT && call.data_len > 0)
        copy(record.data_buffer, call.data, call.data_len);
}

// The driver has put the data where it belongs.
inline void fetch_data(const varnok_drv_scsi_cmd_ioctl &, const scsi_call &) {}

inline void fetch_data(const varnok_drv_scsi_cmd_native &record, const scsi_call &call)
{
    const size_t size = smaller(record.data_len, call.data_len);
    if (call.direction == VARNOK_SCSI_DATA_IN && size > 0)
        copy(call.data, record.data_buffer, size);
}

template <class Record>
void fill_command(Record &record, const scsi_call &call)
{
    const VARNOK_SCSI_CMND &command = *call.command;
    record.lun_ext = command.ScsiLunNumExt;
    record.tgt = command.ScsiTgtNum;
    record.lun = command.ScsiLunNum;
    record.direction = call.direction;
    record.cdb_len = command.CDBLength;
    copy_field(record.cdb, command.CDB);
    record.sense_len = command.SenseLength;
    record.data_len = call.data_len;
    attach_data(record, call);
}

// The driver's record comes back with the data asked for and sense, whatever lengths the driver
// claims.
template <class Record, uint32_t (*Send)(varnok_priv_db *, Record *, uint32_t *)>
scsi_outcome send_in_form(const scsi_call &call)
{
    const heap_buffer<Record> record;
    if (!record) {
        LOG_ERROR_AS(call.func, "(", dec(call.handle), call.operations.scsi_alloc_failed);
        return {false, VARNOK_STATUS_NO_MEMORY};
    }
    fill_command(*record, call);
    uint32_t rval = VARNOK_STATUS_SUCCESS;
    uint32_t stat = 0;
    if (Send(call.pdb, record.get(), &stat) != 0 || stat != 0) {
        LOG_ERROR_AS(call.func, "(", dec(call.handle), call.operations.scsi_failed, dec(stat),
                     " errno=", dec(errno));
        rval = varnok_xlate_err(stat);
    } else {
        fetch_data(*record, call);
    }
    VARNOK_SCSI_CMND &command = *call.command;
    const size_t sense = smaller(record->sense_len, command.SenseLength);
    copy(command.Sense, record->sense, smaller(sense, sizeof command.Sense));
    return {true, rval};
}

} // namespace varnok
