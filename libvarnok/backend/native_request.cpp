// One request to a native driver.
#include "backend/native_driver.h"
#include "support/heap_buffer.h"
#include "support/varnok_bytes.h"
#include "support/varnok_log.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace
{

using namespace varnok;

constexpr uint32_t status_no_memory = 10;

// Every envelope begins so; the driver record follows.
struct envelope_head {
    uint32_t host_no;
    uint32_t status;
};
static_assert(sizeof(envelope_head) == offsetof(varnok_drv_port_info_cb, port));
static_assert(sizeof(envelope_head) == offsetof(varnok_drv_sess_info_cb, sess));
static_assert(sizeof(envelope_head) == offsetof(varnok_drv_tgt_info_cb, tgt));
static_assert(sizeof(envelope_head) == offsetof(varnok_drv_scsi_cmd_cb, cmnd));

void copy_nothing(void *, const void *) {}

void copy_sess_num(void *to, const void *from)
{
    static_cast<varnok_drv_session_info *>(to)->sess_num =
        static_cast<const varnok_drv_session_info *>(from)->sess_num;
}

void copy_tgt_num(void *to, const void *from)
{
    static_cast<varnok_drv_tgt_info *>(to)->scsi_tgt_num =
        static_cast<const varnok_drv_tgt_info *>(from)->scsi_tgt_num;
}

using scsi_record = varnok_drv_scsi_cmd_native;

// Lengths travel as given; what is copied never passes the fields.
void copy_command(void *to_record, const void *from_record)
{
    auto &to = *static_cast<scsi_record *>(to_record);
    const auto &from = *static_cast<const scsi_record *>(from_record);
    to.lun_ext = from.lun_ext;
    to.tgt = from.tgt;
    to.lun = from.lun;
    to.direction = from.direction;
    if (from.direction == VARNOK_SCSI_DATA_IN || from.direction == VARNOK_SCSI_DATA_OUT)
        to.data_len = from.data_len;
    if (from.direction == VARNOK_SCSI_DATA_OUT)
        memcpy(to.data_buffer, from.data_buffer, smaller(from.data_len, sizeof to.data_buffer));
    to.cdb_len = from.cdb_len;
    memcpy(to.cdb, from.cdb, smaller(from.cdb_len, sizeof to.cdb));
    to.sense_len = from.sense_len;
}

// Most commands move a few bytes of the 256 KiB that the record has room for.
size_t size_with_data(const void *to_record, const void *from_record)
{
    const auto &to = *static_cast<const scsi_record *>(to_record);
    const auto &from = *static_cast<const scsi_record *>(from_record);
    const size_t asked = to.direction == VARNOK_SCSI_DATA_IN ? to.data_len : 0;
    const size_t data = smaller(smaller(asked, from.data_len), sizeof to.data_buffer);
    return offsetof(scsi_record, data_buffer) + data;
}

} // namespace

constexpr native_request varnok::callback_port_info = {
    VARNOK_DRV_CALLBACK_PORT_INFO,
    sizeof(varnok_drv_port_info),
    copy_nothing,
    "): port_info_cb alloc failed.",
    ": Get port info callback failed, status=",
    ": Get port info callback function failed, errno=",
};

constexpr native_request varnok::callback_sess_info = {
    VARNOK_DRV_CALLBACK_SESS_INFO,
    sizeof(varnok_drv_session_info),
    copy_sess_num,
    "): psess_cb alloc failed.",
    ": Get session info native failed, status=",
    ": Get session info native function failed, errno=",
    true,
};

constexpr native_request varnok::callback_tgt_info = {
    VARNOK_DRV_CALLBACK_TGT_INFO,
    sizeof(varnok_drv_tgt_info),
    copy_tgt_num,
    "): ptgt_cb alloc failed.",
    ": Get tgt info native failed, status=",
    ": Get tgt info native function failed, errno=",
};

constexpr native_request varnok::callback_scsi_cmd = {
    VARNOK_DRV_CALLBACK_SCSI_CMD,
    sizeof(scsi_record),
    copy_command,
    "): pcmd_cb alloc failed.",
    ": send scsi cmd native failed, status=",
    ": send scsi cmd native function failed, errno=",
};

constexpr native_request varnok::callback_scsi_answer = [] {
    native_request answer = callback_scsi_cmd;
    answer.comes_back = size_with_data;
    return answer;
}();

int varnok::native_invoke(const native_driver &driver, varnok_drv_callback id, void *envelope)
{
    constexpr vmk_uint64 no_instance = 0; // ports are told apart by the host number in the envelope
    return vmk_MgmtUserCallbackInvokeInt(*driver.handle, no_instance, id, 1, envelope);
}

uint32_t varnok::native_query(const native_driver &driver, const char *func,
                              const native_request &request, varnok_priv_db *pdb, void *record,
                              uint32_t *stat)
{
    LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): entered.");
    uint32_t result = 1;
    {
        const heap_buffer<uint8_t> envelope(sizeof(envelope_head) + request.record_size);
        if (!envelope) {
            LOG_ERROR_AS(func, "(", dec(handle_of(pdb)), request.no_memory);
            *stat = status_no_memory;
            return 1;
        }
        auto *const head = reinterpret_cast<envelope_head *>(envelope.get());
        void *const answer = envelope.get() + sizeof *head;
        head->host_no = pdb->host_no;
        request.copy_in(answer, record);
        const int call = native_invoke(driver, request.id, head);
        *stat = head->status;
        if (*stat != 0) {
            LOG_ERROR_AS(func, request.status_line, dec(*stat));
        } else if (call != 0) {
            LOG_ERROR_AS(func, request.call_line, dec(errno));
        } else {
            const bool whole = request.comes_back == nullptr;
            copy(record, answer, whole ? request.record_size : request.comes_back(record, answer));
            result = 0;
        }
    }
    if (request.traces_result)
        LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): exiting. ret=", dec(result));
    else
        LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): exiting.");
    return result;
}
