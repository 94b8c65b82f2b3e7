// The LUNs of a target, discovered with standard SCSI commands.
#include "api/caller_array.h"
#include "api/exported_call.h"
#include "api/scsi_commands.h"
#include "support/heap_buffer.h"
#include "support/varnok_bytes.h"

namespace
{

using namespace varnok;

// Standard INQUIRY data as far as it is read.
struct varnok_scsi_inq_data {
    uint8_t peripheral_device_type; // qualifier and type
    uint8_t rmb;
    uint8_t version;
    uint8_t resp_data_format;
    uint8_t add_len;
    uint8_t SCCS_reserved;
    uint8_t flags1;
    uint8_t flags2;
    uint8_t vendor_id[8];
    uint8_t product_id[16];
    uint8_t product_rev[4];
};
static_assert(sizeof(varnok_scsi_inq_data) == 36);
static_assert(offsetof(varnok_scsi_inq_data, vendor_id) == 8);
static_assert(offsetof(varnok_scsi_inq_data, product_id) == 16);
static_assert(offsetof(varnok_scsi_inq_data, product_rev) == 32);

struct inquiry_answer {
    uint8_t bytes[256];
};

struct capacity_answer {
    uint8_t bytes[32];
};

// The target that a call asks.
struct target {
    const exported_call &call;
    uint32_t handle;
    uint32_t number;

    // The answer is read into a buffer that holds zeros.
    uint32_t ask(VARNOK_SCSI_CMND &&command, uint8_t *answer, uint32_t size) const
    {
        return VARNOK_SendScsiCommand(handle, &command, &size, answer);
    }
};

uint32_t ask_inquiry(const target &t, lun_number lun, inquiry_answer &answer)
{
    answer = {};
    const uint32_t rval = t.ask(read_command(t.number, lun, {0x12, 0, 0, 0, 0xFF, 0}), answer.bytes,
                                sizeof answer.bytes);
    if (rval != 0)
        t.call.error("): send scsi inquiry cmd failed for lun=", hex(lun.levels_1_2),
                     ", rval=", hex(rval));
    return rval;
}

uint32_t ask_read_capacity(const target &t, lun_number lun, std::initializer_list<uint8_t> cdb,
                           capacity_answer &answer)
{
    answer = {};
    const uint32_t rval =
        t.ask(read_command(t.number, lun, cdb), answer.bytes, sizeof answer.bytes);
    if (rval != 0)
        t.call.error("): scsi read capacity cmd failed for lun=", hex(lun.levels_1_2),
                     ", rval=", hex(rval));
    return rval;
}

uint32_t ask_capacity(const target &t, lun_number lun, uint64_t &capacity)
{
    capacity_answer answer;
    uint32_t rval = ask_read_capacity(t, lun, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, answer);
    if (rval != 0)
        return rval;
    uint64_t last_block = big_endian_32(answer.bytes);
    uint64_t block_length = big_endian_32(answer.bytes + 4);
    if (last_block == UINT32_MAX) {
        t.call.error("): trying read capacity(16) cmd for lun=", hex(lun.levels_1_2));
        rval = ask_read_capacity(
            t, lun, {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, sizeof answer.bytes, 0, 0},
            answer);
        if (rval != 0)
            return rval;
        last_block = big_endian_64(answer.bytes);
        block_length = big_endian_32(answer.bytes + 8);
    }
    capacity = (last_block + 1) * block_length;
    return 0;
}

void fill_lun(VARNOK_LUN_INFO &record, lun_number lun, const inquiry_answer &answer,
              uint64_t capacity)
{
    varnok_scsi_inq_data inquiry;
    memcpy(&inquiry, answer.bytes, sizeof inquiry);
    record.ScsiLunNum = lun.levels_1_2;
    record.DeviceType = inquiry.peripheral_device_type;
    record.Capacity = capacity;
    memcpy(record.VendorName, inquiry.vendor_id, sizeof inquiry.vendor_id);
    memcpy(record.ProductName, inquiry.product_id, sizeof inquiry.product_id);
    memcpy(record.ProductRevision, inquiry.product_rev, sizeof inquiry.product_rev);
    record.ScsiLunNumExt = lun.levels_3_4; // beyond the end of the older form
}

using lun_array = caller_array<VARNOK_LUN_INFO>;

uint32_t list_lun(const target &t, lun_number lun, const lun_array &luns, uint32_t index)
{
    inquiry_answer inquiry;
    uint32_t rval = ask_inquiry(t, lun, inquiry);
    if (rval != 0)
        return rval;
    uint64_t capacity = 0;
    rval = ask_capacity(t, lun, capacity);
    if (rval != 0)
        return rval;
    luns.write(index, [&](VARNOK_LUN_INFO &record) { fill_lun(record, lun, inquiry, capacity); });
    return 0;
}

uint32_t list_luns(const target &t, uint32_t *count, VARNOK_LUN_INFO *array)
{
    const heap_buffer<uint8_t> list(lun_list_size);
    if (!list)
        return t.call.fails(VARNOK_STATUS_NO_MEMORY, "): pdata alloc failed.");
    uint32_t rval = t.ask(report_luns_command(t.number), list.get(), lun_list_size);
    if (rval != 0)
        return t.call.fails(rval, "): send scsi report luns cmd failed, rval=", hex(rval));
    const uint32_t reported = lun_list_count(list.get());
    if (*count < reported) {
        *count = reported;
        return t.call.fails(VARNOK_STATUS_INSUFFICIENT_BUFFER, "): invalid Lun Count value.");
    }
    const lun_array luns(array, *count);
    for (uint32_t k = 0; k < reported && k < lun_list_entries && rval == 0; ++k)
        rval = list_lun(t, lun_list_entry(list.get(), k), luns, k);
    return rval;
}

} // namespace

uint32_t VARNOK_GetLunInfo(uint32_t Handle, uint32_t ScsiTgtNum, uint32_t *pLunCount,
                           VARNOK_LUN_INFO **pLunInfo)
{
    const exported_call call(__func__, Handle, "): entered for Tgt=", dec(ScsiTgtNum),
                             " and LunCount=", dec(*pLunCount));
    if (*pLunCount == 0 || *pLunInfo == nullptr)
        return call.fails(VARNOK_STATUS_INVALID_PARAMETER, "): invalid parameter.");
    return call.ends(list_luns({call, Handle, ScsiTgtNum}, pLunCount, *pLunInfo));
}
