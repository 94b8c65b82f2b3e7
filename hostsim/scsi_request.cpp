// scsi_request.cpp - a SCSI command in the driver's record, in both of its forms.
#include <algorithm>
#include <cstring>

#include "drivers.h"
#include "machine.h"
#include "varnok_driver_records.h"

namespace hostsim
{
namespace
{

enum direction : uint8_t { no_data, from_device, to_device };

// The fields that both forms begin with; the ioctl form has nothing after them but its address.
using command_head = varnok_drv_scsi_cmd_ioctl;
constexpr size_t head_size = offsetof(command_head, data_addr);

// Levels lie in pairs, the first of a pair in its low half.
uint64_t wire_lun(const command_head &h)
{
    const auto levels = [](uint32_t pair) {
        return static_cast<uint64_t>(pair << 16 | pair >> 16);
    };
    return levels(h.lun) << 32 | levels(h.lun_ext);
}

// The data of the command, no further than its buffer.
std::span<std::byte> data_of(const exchange &e, const command_head &h)
{
    if (is_native(e.driver))
        return e.record.subspan(head_size, std::min(h.data_len, VARNOK_DRV_SCSI_DATA_MAX));
    auto *data = reinterpret_cast<std::byte *>(static_cast<uintptr_t>(h.data_addr));
    return {data, data ? h.data_len : size_t{0}};
}

} // namespace

void machine::store_sense(const exchange &e, std::span<const uint8_t> bytes)
{
    command_head h;
    std::memcpy(&h, e.record.data(), head_size);
    h.sense_len =
        static_cast<uint16_t>(std::min<size_t>({bytes.size(), h.sense_len, sizeof h.sense}));
    if (h.sense_len != 0)
        std::memcpy(h.sense, bytes.data(), h.sense_len);
    std::memcpy(e.record.data(), &h, head_size);
}

void machine::store_sense(const exchange &e, const sense_code &sense)
{
    const auto bytes = fixed_sense(sense);
    store_sense(e, std::span<const uint8_t>(bytes).first(is_good(sense) ? 0 : bytes.size()));
}

uint32_t machine::answer_scsi(exchange &e, const port &p)
{
    command_head h;
    std::memcpy(&h, e.record.data(), sizeof h);
    const session_description *target = p.described->session(h.tgt);
    if (!target)
        return status_not_found;

    scsi_command command;
    command.cdb = std::span<const uint8_t>(h.cdb).first(std::min<size_t>(h.cdb_len, sizeof h.cdb));
    if (h.direction == from_device)
        command.in = data_of(e, h);
    else if (h.direction == to_device)
        command.out = data_of(e, h);
    if (target->live)
        return answer_live(e, *target->live, wire_lun(h), command);
    const scsi_result result =
        run_scsi(*target, p.first_target + h.tgt + 1, wire_lun(h), command, contents);

    poke(e.record, static_cast<uint32_t>(result.moved), offsetof(command_head, data_len));
    store_sense(e, result.sense);
    return is_good(result.sense) ? 0 : described.check_condition_status;
}

} // namespace hostsim
