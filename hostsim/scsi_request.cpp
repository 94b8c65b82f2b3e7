#include "scsi_request.h"

#include "caller_memory.h"
#include "drivers.h"
#include "initiator.h"
#include "packed_fields.h"
#include "records/varnok_driver_records.h"
#include "requests.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace hostsim
{
namespace
{

enum direction : uint8_t { no_data, from_device, to_device };

// Both forms of the record begin with the same fields. Only the data follows: the native form has
// the bytes, the ioctl form their address.
using command_head = varnok_drv_scsi_cmd_ioctl;
constexpr size_t head_size = offsetof(command_head, data_addr);

// The record has two levels in a number, the first of them in the low half.
uint64_t wire_lun(const command_head &h)
{
    const auto levels = [](uint32_t pair) {
        return static_cast<uint64_t>(pair << 16 | pair >> 16);
    };
    return levels(h.lun) << 32 | levels(h.lun_ext);
}

// The native form has room for a limited length.
std::span<std::byte> data_of(const exchange &e, const command_head &h)
{
    if (is_native(e.driver))
        return e.record.subspan(head_size, std::min(h.data_len, VARNOK_DRV_SCSI_DATA_MAX));
    return {reinterpret_cast<std::byte *>(static_cast<uintptr_t>(h.data_addr)), h.data_len};
}

scsi_command command_of(const exchange &e, const command_head &h)
{
    scsi_command command;
    command.cdb = std::span<const uint8_t>(h.cdb).first(std::min<size_t>(h.cdb_len, sizeof h.cdb));
    if (h.direction == from_device)
        command.in = data_of(e, h);
    else if (h.direction == to_device)
        command.out = data_of(e, h);
    return command;
}

void store_moved(const exchange &e, size_t bytes)
{
    set_field(e.record, static_cast<uint32_t>(bytes), offsetof(command_head, data_len));
}

void store_sense_bytes(const exchange &e, std::span<const uint8_t> bytes)
{
    command_head h;
    std::memcpy(&h, e.record.data(), head_size);
    h.sense_len =
        static_cast<uint16_t>(std::min<size_t>({bytes.size(), h.sense_len, sizeof h.sense}));
    if (h.sense_len != 0)
        std::memcpy(h.sense, bytes.data(), h.sense_len);
    std::memcpy(e.record.data(), &h, head_size);
}

uint32_t answer_of_real_target(exchange &e, const scsi_reply &reply,
                               uint32_t check_condition_status)
{
    e.transport_errno = reply.error;
    if (reply.error != 0)
        return 0;
    store_moved(e, reply.result.moved);
    store_sense_bytes(e, reply.result.sense);
    if (reply.result.sense.empty())
        return 0;
    // A caller without room for sense data has only the status to go by.
    constexpr size_t shortest_sense = 3;
    const bool is_seen =
        get_field<uint16_t>(e.record, offsetof(command_head, sense_len)) >= shortest_sense;
    return is_seen || check_condition_status != 0 ? check_condition_status : status_failed;
}

} // namespace

void store_sense(const exchange &e, const sense_code &sense)
{
    const auto bytes = fixed_sense(sense);
    store_sense_bytes(e, std::span<const uint8_t>(bytes).first(is_good(sense) ? 0 : bytes.size()));
}

fault_subject subject_of_scsi(const exchange &e)
{
    const std::span<const std::byte> cdb =
        e.record.subspan(offsetof(command_head, cdb), sizeof command_head::cdb);
    command_head h;
    std::memcpy(&h, e.record.data(), head_size);
    const auto *bytes = reinterpret_cast<const uint8_t *>(cdb.data());
    return {.target = uint32_t{h.tgt},
            .lun = wire_lun(h),
            .cdb = {bytes, std::min<size_t>(h.cdb_len, cdb.size())}};
}

uint32_t answer_scsi(exchange &e, const port &p, disk_contents &disks,
                     uint32_t check_condition_status)
{
    command_head h;
    std::memcpy(&h, e.record.data(), sizeof h);
    const session_description *target = p.described->find_session(h.tgt);
    if (target == nullptr)
        return status_not_found;

    const scsi_command command = command_of(e, h);
    if (!is_native(e.driver) && (!is_writable(command.in) || !is_readable(command.out))) {
        e.transport_errno = EFAULT;
        return 0;
    }
    if (target->real != nullptr)
        return answer_of_real_target(e, target->real->run(wire_lun(h), command),
                                     check_condition_status);
    const scsi_result result =
        run_scsi(*target->luns, p.first_target + h.tgt + 1, wire_lun(h), command, disks);
    store_moved(e, result.moved);
    store_sense(e, result.sense);
    return is_good(result.sense) ? 0 : check_condition_status;
}

} // namespace hostsim
