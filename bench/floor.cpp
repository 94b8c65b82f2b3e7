// The floors of the calls on a loaded host.
#include "floor.h"

#include "floor_parts.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using namespace bench::floor;

constexpr uint32_t list_size = 16384;

struct port_request {
    using envelope = varnok_drv_port_info_cb;
    static constexpr uint32_t id = VARNOK_DRV_CALLBACK_PORT_INFO;
    static constexpr uint32_t number = VARNOK_DRV_REQUEST_PORT_INFO;
    static auto &record(envelope &e) { return e.port; }
    static void select(varnok_drv_port_info &, const varnok_drv_port_info &) {}
};

struct session_request {
    using envelope = varnok_drv_sess_info_cb;
    static constexpr uint32_t id = VARNOK_DRV_CALLBACK_SESS_INFO;
    static constexpr uint32_t number = VARNOK_DRV_REQUEST_SESS_INFO;
    static auto &record(envelope &e) { return e.sess; }
    static void select(varnok_drv_session_info &to, const varnok_drv_session_info &from)
    {
        to.sess_num = from.sess_num;
    }
};

struct target_request {
    using envelope = varnok_drv_tgt_info_cb;
    static constexpr uint32_t id = VARNOK_DRV_CALLBACK_TGT_INFO;
    static constexpr uint32_t number = VARNOK_DRV_REQUEST_TGT_INFO;
    static auto &record(envelope &e) { return e.tgt; }
    static void select(varnok_drv_tgt_info &to, const varnok_drv_tgt_info &from)
    {
        to.scsi_tgt_num = from.scsi_tgt_num;
    }
};

template <class Request, class Record>
void query(const host &h, const port &p, Record &record)
{
    if (!h.native)
        return call_legacy(static_cast<int>(p.function->oshandle), Request::number,
                           p.record->drvr_inst, &record);
    auto *const envelope = zeros<typename Request::envelope>();
    envelope->host_no = p.record->host_no;
    Request::select(Request::record(*envelope), record);
    call_native(Request::id, envelope);
    copy(&record, &Request::record(*envelope), sizeof record);
    free(envelope);
}

template <class Record>
void fill_command(Record &record, const VARNOK_SCSI_CMND &command, uint32_t size)
{
    record.lun_ext = command.ScsiLunNumExt;
    record.tgt = command.ScsiTgtNum;
    record.lun = command.ScsiLunNum;
    record.direction = command.Direction;
    record.cdb_len = command.CDBLength;
    memcpy(record.cdb, command.CDB, sizeof record.cdb);
    record.sense_len = command.SenseLength;
    record.data_len = size;
}

void scsi_legacy(const port &p, VARNOK_SCSI_CMND *command, uint32_t size, uint8_t *data)
{
    auto *const record = zeros<varnok_drv_scsi_cmd_ioctl>();
    fill_command(*record, *command, size);
    record->data_addr = reinterpret_cast<uintptr_t>(data);
    call_legacy(static_cast<int>(p.function->oshandle), VARNOK_DRV_REQUEST_SCSI_CMD,
                p.record->drvr_inst, record);
    memcpy(command->Sense, record->sense, record->sense_len);
    free(record);
}

// What a caller can see of the answer is copied twice: out of the envelope, and to the caller.
void scsi_native(const port &p, VARNOK_SCSI_CMND *command, uint32_t size, uint8_t *data)
{
    constexpr size_t head = offsetof(varnok_drv_scsi_cmd_native, data_buffer);
    auto *const record = zeros<varnok_drv_scsi_cmd_native>();
    fill_command(*record, *command, size);
    if (command->Direction == VARNOK_SCSI_DATA_OUT)
        memcpy(record->data_buffer, data, size);
    auto *const envelope = zeros<varnok_drv_scsi_cmd_cb>();
    envelope->host_no = p.record->host_no;
    fill_command(envelope->cmnd, *command, size);
    if (command->Direction == VARNOK_SCSI_DATA_OUT)
        memcpy(envelope->cmnd.data_buffer, record->data_buffer, size);
    call_native(VARNOK_DRV_CALLBACK_SCSI_CMD, envelope);
    copy(record, &envelope->cmnd, head + envelope->cmnd.data_len);
    free(envelope);
    if (command->Direction == VARNOK_SCSI_DATA_IN)
        memcpy(data, record->data_buffer, record->data_len);
    memcpy(command->Sense, record->sense, record->sense_len);
    free(record);
}

// The two names, the numbers before them and what follows, in four pieces.
void fill_session(VARNOK_SESS_INFO &to, const varnok_drv_session_info &from)
{
    constexpr size_t name = sizeof to.TargetName;
    to.SessionNum = from.sess_num;
    to.SessionUnique = from.sess_unique;
    memcpy(to.InitiatorName, from.init_iqn, name);
    memcpy(&to.InitIsIPv4, &from.init_ipv4_port,
           offsetof(VARNOK_SESS_INFO, TargetName) - offsetof(VARNOK_SESS_INFO, InitIsIPv4));
    memcpy(to.TargetName, from.tgt_iqn, name);
    memcpy(&to.TgtIsIPv4, &from.tgt_ipv4_port, sizeof to - offsetof(VARNOK_SESS_INFO, TgtIsIPv4));
}

void read_command(VARNOK_SCSI_CMND &command, uint32_t target, uint32_t lun, const uint8_t *cdb,
                  uint8_t length)
{
    command = {};
    command.ScsiTgtNum = target;
    command.ScsiLunNum = lun;
    command.Direction = VARNOK_SCSI_DATA_IN;
    command.CDBLength = length;
    memcpy(command.CDB, cdb, length);
    command.SenseLength = sizeof command.Sense;
}

void report_luns(const host &h, port &p, uint32_t target, uint8_t *list)
{
    constexpr uint8_t cdb[12] = {0xA0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0};
    VARNOK_SCSI_CMND command;
    read_command(command, target, 0, cdb, sizeof cdb);
    scsi(h, p, &command, list_size, list);
}

uint32_t lun_count(const uint8_t *list)
{
    return (static_cast<uint32_t>(list[2]) << 8 | list[3]) / 8;
}

} // namespace

namespace bench::floor
{

uint32_t version(uint8_t *text)
{
    memcpy(text, VARNOK_API_VERSION_TEXT, 13);
    return VARNOK_API_VERSION_NUMBER;
}

uint32_t port_count(const host &h, uint32_t *count)
{
    *count = static_cast<uint32_t>(h.ports.size());
    return 0;
}

void open_port(const host &h, port &p, uint32_t instance, uint32_t *handle)
{
    if (getenv("VARNOK_API_DEBUG") != nullptr)
        abort();
    if (!h.native)
        p.function->oshandle =
            static_cast<uint32_t>(::open(reinterpret_cast<char *>(p.function->phys_path), O_RDWR));
    p.function->open_cnt = 1;
    *handle = p.function->apihandle = instance + 1;
}

void close_port(const host &h, port &p)
{
    if (!h.native)
        ::close(static_cast<int>(p.function->oshandle));
    p.function->open_cnt = 0;
    p.function->apihandle = 0;
}

void phy_port(const host &h, port &p, VARNOK_PHY_PORT_INFO *info)
{
    varnok_drv_port_info record = {};
    query<port_request>(h, p, record);
    memcpy(&p.record->ipv4_port, &record.ipv4_port, portal_size / 2);
    p.record->session_cnt = record.session_cnt;
    copy(info->ModelName, p.function->model_name, sizeof *info - sizeof info->Version);
    info->SessCount = record.session_cnt;
}

void portal(const port &p, VARNOK_ISCSI_PORTAL *info)
{
    memcpy(&info->IsIPv4, &p.record->ipv4_port, sizeof *info - sizeof info->Version);
}

void sessions(const host &h, port &p, VARNOK_SESS_INFO *list)
{
    auto *const record = zeros<varnok_drv_session_info>();
    for (uint32_t i = 0; i < p.record->session_cnt; ++i) {
        clear(record, sizeof *record);
        record->sess_num = i;
        query<session_request>(h, p, *record);
        fill_session(list[i], *record);
    }
    free(record);
}

void targets(const host &h, port &p, VARNOK_TGT_INFO *list)
{
    auto *const lun_list = zeros<uint8_t>(list_size);
    auto *const record = zeros<varnok_drv_tgt_info>();
    for (uint32_t i = 0; i < p.record->session_cnt; ++i) {
        clear(record, sizeof *record);
        record->scsi_tgt_num = i;
        query<target_request>(h, p, *record);
        clear(lun_list, list_size);
        report_luns(h, p, i, lun_list);
        copy(list[i].TargetName, record->iqn, sizeof *list - offsetof(VARNOK_TGT_INFO, TargetName));
        list[i].LunCount = lun_count(lun_list);
    }
    free(lun_list);
    free(record);
}

void scsi(const host &h, port &p, VARNOK_SCSI_CMND *command, uint32_t size, uint8_t *data)
{
    h.native ? scsi_native(p, command, size, data) : scsi_legacy(p, command, size, data);
}

void luns(const host &h, port &p, uint32_t target, VARNOK_LUN_INFO *list)
{
    constexpr uint8_t ask_inquiry[6] = {0x12, 0, 0, 0, 0xFF, 0};
    constexpr uint8_t ask_capacity[10] = {0x25};
    auto *const lun_list = zeros<uint8_t>(list_size);
    report_luns(h, p, target, lun_list);
    const uint32_t count = lun_count(lun_list);
    for (uint32_t i = 0; i < count; ++i) {
        VARNOK_SCSI_CMND command;
        uint8_t inquiry[256] = {};
        read_command(command, target, i, ask_inquiry, sizeof ask_inquiry);
        scsi(h, p, &command, sizeof inquiry, inquiry);
        uint8_t capacity[32] = {};
        read_command(command, target, i, ask_capacity, sizeof ask_capacity);
        scsi(h, p, &command, sizeof capacity, capacity);
        list[i].ScsiLunNum = lun_list[8 + 8 * i + 1];
        memcpy(&list[i].Capacity, capacity, sizeof list[i].Capacity);
        memcpy(list[i].VendorName, inquiry + 8, 8);
        memcpy(list[i].ProductName, inquiry + 16, 16);
        memcpy(list[i].ProductRevision, inquiry + 32, 4);
    }
    free(lun_list);
}

} // namespace bench::floor
