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

struct request_texts {
    const char *no_memory;
    const char *status_line;
    const char *call_line;
};

// What one kind of request needs beside the common steps: its envelope, the driver record in it,
// which fields of the caller's record travel to the driver, and what of it travels back.

struct whole_record {
    template <class Record>
    static void copy_out(Record &to, const Record &from)
    {
        copy(&to, &from, sizeof to);
    }
};

struct port_info_request : whole_record {
    using envelope = varnok_drv_port_info_cb;
    static constexpr varnok_drv_callback id = VARNOK_DRV_CALLBACK_PORT_INFO;
    static constexpr bool traces_result = false;
    static constexpr request_texts texts = {
        "): port_info_cb alloc failed.",
        ": Get port info callback failed, status=",
        ": Get port info callback function failed, errno=",
    };
    static auto &record(envelope &e) { return e.port; }
    static void copy_in(varnok_drv_port_info &, const varnok_drv_port_info &) {}
};

struct sess_info_request : whole_record {
    using envelope = varnok_drv_sess_info_cb;
    static constexpr varnok_drv_callback id = VARNOK_DRV_CALLBACK_SESS_INFO;
    static constexpr bool traces_result = true;
    static constexpr request_texts texts = {
        "): psess_cb alloc failed.",
        ": Get session info native failed, status=",
        ": Get session info native function failed, errno=",
    };
    static auto &record(envelope &e) { return e.sess; }
    static void copy_in(varnok_drv_session_info &to, const varnok_drv_session_info &from)
    {
        to.sess_num = from.sess_num;
    }
};

struct tgt_info_request : whole_record {
    using envelope = varnok_drv_tgt_info_cb;
    static constexpr varnok_drv_callback id = VARNOK_DRV_CALLBACK_TGT_INFO;
    static constexpr bool traces_result = false;
    static constexpr request_texts texts = {
        "): ptgt_cb alloc failed.",
        ": Get tgt info native failed, status=",
        ": Get tgt info native function failed, errno=",
    };
    static auto &record(envelope &e) { return e.tgt; }
    static void copy_in(varnok_drv_tgt_info &to, const varnok_drv_tgt_info &from)
    {
        to.scsi_tgt_num = from.scsi_tgt_num;
    }
};

struct scsi_cmd_request : whole_record {
    using envelope = varnok_drv_scsi_cmd_cb;
    static constexpr varnok_drv_callback id = VARNOK_DRV_CALLBACK_SCSI_CMD;
    static constexpr bool traces_result = false;
    static constexpr request_texts texts = {
        "): pcmd_cb alloc failed.",
        ": send scsi cmd native failed, status=",
        ": send scsi cmd native function failed, errno=",
    };
    static auto &record(envelope &e) { return e.cmnd; }

    // Lengths travel as given; what is copied never passes the fields.
    static void copy_in(varnok_drv_scsi_cmd_native &to, const varnok_drv_scsi_cmd_native &from)
    {
        to.lun_ext = from.lun_ext;
        to.tgt = from.tgt;
        to.lun = from.lun;
        to.direction = from.direction;
        if (from.direction == 1 || from.direction == 2)
            to.data_len = from.data_len;
        if (from.direction == 2)
            memcpy(to.data_buffer, from.data_buffer, smaller(from.data_len, sizeof to.data_buffer));
        to.cdb_len = from.cdb_len;
        memcpy(to.cdb, from.cdb, smaller(from.cdb_len, sizeof to.cdb));
        to.sense_len = from.sense_len;
    }
};

// Most commands move a few bytes of the 256 KiB that the record has room for: no more of the data
// comes back than was asked for.
struct scsi_answer_request : scsi_cmd_request {
    static void copy_out(varnok_drv_scsi_cmd_native &to, const varnok_drv_scsi_cmd_native &from)
    {
        const size_t asked = to.direction == 1 ? to.data_len : 0;
        const size_t data = smaller(smaller(asked, from.data_len), sizeof to.data_buffer);
        copy(&to, &from, offsetof(varnok_drv_scsi_cmd_native, data_buffer) + data);
    }
};

template <class Request, class Record>
uint32_t query(const native_driver &driver, const char *func, varnok_priv_db *pdb, Record *record,
               uint32_t *stat)
{
    LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): entered.");
    heap_buffer<typename Request::envelope> envelope;
    if (!envelope) {
        LOG_ERROR_AS(func, "(", dec(handle_of(pdb)), Request::texts.no_memory);
        *stat = status_no_memory;
        return 1;
    }
    envelope->host_no = pdb->host_no;
    Request::copy_in(Request::record(*envelope), *record);
    const int call = native_invoke(driver, Request::id, envelope.get());
    *stat = envelope->status;

    uint32_t result = 1;
    if (envelope->status != 0) {
        LOG_ERROR_AS(func, Request::texts.status_line, dec(envelope->status));
    } else if (call != 0) {
        LOG_ERROR_AS(func, Request::texts.call_line, dec(errno));
    } else {
        Request::copy_out(*record, Request::record(*envelope));
        result = 0;
    }
    envelope.release();
    if constexpr (Request::traces_result)
        LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): exiting. ret=", dec(result));
    else
        LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): exiting.");
    return result;
}

} // namespace

int varnok::native_invoke(const native_driver &driver, varnok_drv_callback id, void *envelope)
{
    constexpr vmk_uint64 no_instance = 0; // ports are told apart by the host number in the envelope
    return vmk_MgmtUserCallbackInvokeInt(*driver.handle, no_instance, id, 1, envelope);
}

uint32_t varnok::native_query(const native_driver &driver, const char *func, varnok_priv_db *pdb,
                              varnok_drv_port_info *record, uint32_t *stat)
{
    return query<port_info_request>(driver, func, pdb, record, stat);
}

uint32_t varnok::native_query(const native_driver &driver, const char *func, varnok_priv_db *pdb,
                              varnok_drv_session_info *record, uint32_t *stat)
{
    return query<sess_info_request>(driver, func, pdb, record, stat);
}

uint32_t varnok::native_query(const native_driver &driver, const char *func, varnok_priv_db *pdb,
                              varnok_drv_tgt_info *record, uint32_t *stat)
{
    return query<tgt_info_request>(driver, func, pdb, record, stat);
}

uint32_t varnok::native_query(const native_driver &driver, const char *func, varnok_priv_db *pdb,
                              varnok_drv_scsi_cmd_native *record, uint32_t *stat)
{
    return query<scsi_cmd_request>(driver, func, pdb, record, stat);
}

uint32_t varnok::native_scsi_answer(const native_driver &driver, const char *func,
                                    varnok_priv_db *pdb, varnok_drv_scsi_cmd_native *record,
                                    uint32_t *stat)
{
    return query<scsi_answer_request>(driver, func, pdb, record, stat);
}
