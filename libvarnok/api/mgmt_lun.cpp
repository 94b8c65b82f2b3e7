// The LUNs of a target, discovered with standard SCSI commands.
#include "heap_buffer.h"
#include "scsi_commands.h"
#include "varnok_bytes.h"
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

namespace
{

using namespace varnok;

constexpr const char *func = "VARNOK_GetLunInfo";

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

struct target {
    uint32_t handle;
    uint32_t number;
};

// Sends a command; the answer is read into a buffer that holds zeros.
uint32_t ask(const target &t, VARNOK_SCSI_CMND &&command, uint8_t *answer, uint32_t size)
{
    return VARNOK_SendScsiCommand(t.handle, &command, &size, answer);
}

uint32_t ask_inquiry(const target &t, lun_number lun, inquiry_answer &answer)
{
    answer = {};
    const uint32_t rval = ask(t, read_command(t.number, lun, {0x12, 0, 0, 0, 0xFF, 0}),
                              answer.bytes, sizeof answer.bytes);
    if (rval != 0)
        LOG_ERROR_AS(func, "(", dec(t.handle),
                     "): send scsi inquiry cmd failed for lun=", hex(lun.levels_1_2),
                     ", rval=", hex(rval));
    return rval;
}

uint32_t ask_read_capacity(const target &t, lun_number lun, std::initializer_list<uint8_t> cdb,
                           capacity_answer &answer)
{
    answer = {};
    const uint32_t rval =
        ask(t, read_command(t.number, lun, cdb), answer.bytes, sizeof answer.bytes);
    if (rval != 0)
        LOG_ERROR_AS(func, "(", dec(t.handle),
                     "): scsi read capacity cmd failed for lun=", hex(lun.levels_1_2),
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
        LOG_ERROR_AS(func, "(", dec(t.handle),
                     "): trying read capacity(16) cmd for lun=", hex(lun.levels_1_2));
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

// size is the length of the caller's entry, which may lack the last field: only that much of a
// record is read and written.
void fill_lun(uint8_t *entry, size_t size, lun_number lun, const inquiry_answer &answer,
              uint64_t capacity)
{
    varnok_scsi_inq_data inquiry;
    memcpy(&inquiry, answer.bytes, sizeof inquiry);
    VARNOK_LUN_INFO record;
    memcpy(&record, entry, size);
    record.ScsiLunNum = lun.levels_1_2;
    record.DeviceType = inquiry.peripheral_device_type;
    record.Capacity = capacity;
    memcpy(record.VendorName, inquiry.vendor_id, sizeof inquiry.vendor_id);
    memcpy(record.ProductName, inquiry.product_id, sizeof inquiry.product_id);
    memcpy(record.ProductRevision, inquiry.product_rev, sizeof inquiry.product_rev);
    record.ScsiLunNumExt = lun.levels_3_4;
    memcpy(entry, &record, size);
}

uint32_t list_lun(const target &t, lun_number lun, uint8_t *entry, size_t size)
{
    inquiry_answer inquiry;
    uint32_t rval = ask_inquiry(t, lun, inquiry);
    if (rval != 0)
        return rval;
    uint64_t capacity = 0;
    rval = ask_capacity(t, lun, capacity);
    if (rval != 0)
        return rval;
    fill_lun(entry, size, lun, inquiry, capacity);
    return 0;
}

} // namespace

uint32_t VARNOK_GetLunInfo(uint32_t Handle, uint32_t ScsiTgtNum, uint32_t *pLunCount,
                           VARNOK_LUN_INFO **pLunInfo)
{
    LOG_TRACE("(", dec(Handle), "): entered for Tgt=", dec(ScsiTgtNum),
              " and LunCount=", dec(*pLunCount));
    if (*pLunCount == 0 || *pLunInfo == nullptr) {
        LOG_ERROR("(", dec(Handle), "): invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    heap_buffer<uint8_t> list(lun_list_size);
    if (!list) {
        LOG_ERROR("(", dec(Handle), "): pdata alloc failed.");
        return VARNOK_STATUS_NO_MEMORY;
    }
    const target t = {Handle, ScsiTgtNum};
    const uint32_t rval = ask(t, report_luns_command(ScsiTgtNum), list.get(), lun_list_size);
    if (rval != 0) {
        LOG_ERROR("(", dec(Handle), "): send scsi report luns cmd failed, rval=", hex(rval));
        return rval;
    }
    const uint32_t reported = lun_list_count(list.get());
    if (*pLunCount < reported) {
        LOG_ERROR("(", dec(Handle), "): invalid Lun Count value.");
        *pLunCount = reported;
        return VARNOK_STATUS_INSUFFICIENT_BUFFER;
    }
    // A caller of the first version has shorter entries: they are found by address, not by index.
    uint8_t *const entries = reinterpret_cast<uint8_t *>(*pLunInfo);
    uint32_t version = 0;
    memcpy(&version, entries, sizeof version);
    const size_t size =
        version == VARNOK_RECORD_VERSION_2 ? sizeof(VARNOK_LUN_INFO) : VARNOK_LUN_INFO_SIZE_1;
    for (uint32_t k = 0; k < reported && k < lun_list_entries; ++k) {
        const uint32_t status =
            list_lun(t, lun_list_entry(list.get(), k), entries + k * size, size);
        if (status != 0)
            return status;
    }
    list.release();
    LOG_TRACE("(", dec(Handle), "): exiting, rval=", hex(0));
    return VARNOK_STATUS_SUCCESS;
}
