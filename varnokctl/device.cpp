#include "varnokctl/device.h"

#include "varnokctl/sense.h"
#include "varnokctl/text.h"

#include <fmt/format.h>
#include <span>
#include <utility>

namespace ctl
{
namespace
{

constexpr uint8_t not_ready = 2, illegal_request = 5, unit_attention = 6;

bool is_about_something_else(const sense_data &sense)
{
    return sense.deferred || sense.key == unit_attention;
}

refusal refusal_of(const sense_data &sense)
{
    constexpr uint8_t no_medium = 0x3A, unknown_command = 0x20;
    if (sense.key == not_ready && sense.asc == no_medium)
        return refusal::no_medium;
    if (sense.key != illegal_request)
        return refusal::other;
    return sense.asc == unknown_command ? refusal::unknown_command : refusal::illegal_request;
}

device_answer answer_of(varnok::result<varnok::scsi_reply> &&answer,
                        const std::optional<sense_data> &sense, const open_target &where,
                        const scsi_request &request)
{
    constexpr size_t telling = 3; // bytes of a CDB, up to an INQUIRY's page
    device_answer result;
    std::vector<failed_call> failures;
    if (sense && !harmless(*sense)) {
        result.refused = refusal_of(*sense);
        failures.push_back({call_name::send_scsi_command, failure_cause::not_told, where.port,
                            where.target, answer.status.code(), cause_text(*sense)});
    } else if (succeeded(failures, call_name::send_scsi_command, answer.status.code(), where.port,
                         where.target)) {
        result.data = std::move(answer.value.data);
        return result;
    }
    result.failure = std::move(failures.front());
    result.failure->lun = request.lun;
    result.failure->cdb = "0x" + hex_bytes(std::span(request.cdb).first(telling));
    if (sense && !harmless(*sense) && !sense->deferred)
        result.failure->sense =
            fmt::format("{:02x}/{:02x}/{:02x}", sense->key, sense->asc, sense->ascq);
    return result;
}

} // namespace

device_answer ask_device(const open_target &where, const lun_levels &lun,
                         std::initializer_list<uint8_t> cdb, size_t room)
{
    constexpr int attempts = 5;
    const scsi_request request = {.port = where.port,
                                  .target = where.target,
                                  .lun = lun,
                                  .cdb = cdb,
                                  .direction = VARNOK_SCSI_DATA_IN,
                                  .data = std::vector<uint8_t>(room)};
    for (int left = attempts;; --left) {
        auto answer = carry_out(where.on, request);
        const auto sense = decode_sense(answer.value.sense);
        if (left == 1 || !sense || !is_about_something_else(*sense))
            return answer_of(std::move(answer), sense, where, request);
    }
}

} // namespace ctl
