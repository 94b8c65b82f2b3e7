// scsi_forms.h - a pass-through command in the two forms that drivers take: with the data's
// address, or with the data.
#pragma once

#include "backend/backend.h"
#include "support/heap_buffer.h"
#include "support/varnok_bytes.h"

namespace varnok
{

inline void attach_data(varnok_drv_scsi_cmd_ioctl &record, const scsi_request &request)
{
    if (request.direction != VARNOK_SCSI_NO_DATA)
        record.data_addr = varnok_ptr_to_64bit(request.data);
}

inline void attach_data(varnok_drv_scsi_cmd_native &record, const scsi_request &request)
{
    if (request.direction == VARNOK_SCSI_DATA_OUT && request.data_len > 0)
        copy(record.data_buffer, request.data, request.data_len);
}

// The driver has put the data where it belongs.
inline void fetch_data(const varnok_drv_scsi_cmd_ioctl &, const scsi_request &) {}

inline void fetch_data(const varnok_drv_scsi_cmd_native &record, const scsi_request &request)
{
    const size_t size = smaller(record.data_len, request.data_len);
    if (request.direction == VARNOK_SCSI_DATA_IN && size > 0)
        copy(request.data, record.data_buffer, size);
}

template <class Record>
void fill_command(Record &record, const scsi_request &request)
{
    const VARNOK_SCSI_CMND &command = *request.command;
    record.lun_ext = command.ScsiLunNumExt;
    record.tgt = command.ScsiTgtNum;
    record.lun = command.ScsiLunNum;
    record.direction = request.direction;
    record.cdb_len = command.CDBLength;
    copy_field(record.cdb, command.CDB);
    record.sense_len = command.SenseLength;
    record.data_len = request.data_len;
    attach_data(record, request);
}

// The driver's record comes back with the data asked for and sense, whatever lengths the driver
// claims.
template <class Record, uint32_t (*Send)(varnok_priv_db *, Record *, uint32_t *)>
scsi_outcome send_in_form(varnok_priv_db *pdb, const scsi_request &request, uint32_t *stat)
{
    const heap_buffer<Record> record;
    if (!record)
        return scsi_outcome::no_memory;
    fill_command(*record, request);
    const bool done = Send(pdb, record.get(), stat) == 0 && *stat == 0;
    if (done)
        fetch_data(*record, request);
    VARNOK_SCSI_CMND &command = *request.command;
    const size_t sense = smaller(record->sense_len, command.SenseLength);
    copy(command.Sense, record->sense, smaller(sense, sizeof command.Sense));
    return done ? scsi_outcome::done : scsi_outcome::failed;
}

} // namespace varnok
