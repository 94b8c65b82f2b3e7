#include "api/scsi_commands.h"

#include "support/varnok_bytes.h"

VARNOK_SCSI_CMND varnok::read_command(uint32_t target, lun_number lun,
                                      std::initializer_list<uint8_t> cdb)
{
    VARNOK_SCSI_CMND command = {};
    command.ScsiLunNumExt = lun.levels_3_4;
    command.ScsiTgtNum = target;
    command.ScsiLunNum = lun.levels_1_2;
    command.Direction = VARNOK_SCSI_DATA_IN;
    command.CDBLength = static_cast<uint8_t>(cdb.size());
    command.SenseLength = sizeof command.Sense;
    size_t i = 0;
    for (const uint8_t byte : cdb)
        command.CDB[i++] = byte;
    return command;
}

VARNOK_SCSI_CMND varnok::report_luns_command(uint32_t target)
{
    return read_command(target, {0, 0},
                        {0xA0, 0, 0, 0, 0, 0, lun_list_size >> 24 & 0xFF,
                         lun_list_size >> 16 & 0xFF, lun_list_size >> 8 & 0xFF,
                         lun_list_size & 0xFF, 0, 0});
}

uint32_t varnok::lun_list_count(const uint8_t *list) { return big_endian_32(list) / 8; }

static uint32_t two_levels(const uint8_t *bytes)
{
    return (static_cast<uint32_t>(bytes[0]) << 8 | bytes[1]) |
           (static_cast<uint32_t>(bytes[2]) << 8 | bytes[3]) << 16;
}

varnok::lun_number varnok::lun_list_entry(const uint8_t *list, uint32_t k)
{
    const uint8_t *const entry = list + 8 + 8 * static_cast<size_t>(k);
    return {two_levels(entry), two_levels(entry + 4)};
}
