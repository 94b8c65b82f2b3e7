#include "varnokctl/lun_checks.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <span>
#include <string_view>
#include <utility>

namespace ctl
{
namespace
{

using bytes = std::span<const uint8_t>;

constexpr uint8_t disk = 0;

void note(device_answer &answer, std::string_view what, std::vector<failed_call> &failures)
{
    failed_call &failure = *answer.failure;
    failure.detail = fmt::format("{}: {}", what, advice_on(failure).meaning);
    failures.push_back(std::move(failure));
}

bool is_zero(bytes field)
{
    return std::ranges::all_of(field, [](uint8_t byte) { return byte == 0; });
}

// A device that has no name sends spaces.
bool has_names(const VARNOK_LUN_INFO &lun)
{
    return !is_zero(lun.VendorName) || !is_zero(lun.ProductName) || !is_zero(lun.ProductRevision);
}

bool may_have_a_capacity(const VARNOK_LUN_INFO &lun)
{
    constexpr std::array<uint8_t, 5> types = {disk, 0x05, 0x07, 0x0E, 0x14};
    return std::ranges::find(types, lun.DeviceType) != types.end(); // of a LUN that is there
}

// Returns whether the device answered in any way, as below.
bool read_names(const open_target &where, lun_entry &lun, std::vector<failed_call> &failures)
{
    constexpr uint8_t room = 0xFF;
    constexpr size_t vendor = 8, product = 16, revision = 32;
    device_answer answer = ask_device(where, levels_of(lun.info), {0x12, 0, 0, 0, room, 0}, room);
    if (answer.failure) {
        lun.is_known = false;
        note(answer, says_not_what_it_is, failures);
        return answer.refused != refusal::none;
    }
    const bytes data = answer.data;
    lun.info.DeviceType = data[0];
    std::ranges::copy(data.subspan(vendor, product - vendor), lun.info.VendorName);
    std::ranges::copy(data.subspan(product, revision - product), lun.info.ProductName);
    std::ranges::copy(data.subspan(revision, 4), lun.info.ProductRevision);
    return true;
}

bool read_capacity(const open_target &where, lun_entry &lun, std::vector<failed_call> &failures)
{
    constexpr uint8_t room = 32;
    const lun_levels levels = levels_of(lun.info);
    device_answer answer = ask_device(where, levels, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, room);
    size_t last_size = 4;
    if (!answer.failure && big_endian(bytes(answer.data).first(last_size)) == UINT32_MAX) {
        last_size = 8;
        answer = ask_device(where, levels,
                            {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, room, 0, 0}, room);
    }
    if (answer.failure) {
        const bool has_none =
            answer.refused == refusal::no_medium ||
            (answer.refused == refusal::unknown_command && lun.info.DeviceType != disk);
        if (!has_none)
            note(answer, "it does not tell its capacity", failures);
        return answer.refused != refusal::none;
    }
    const bytes data = answer.data;
    lun.info.Capacity =
        (big_endian(data.first(last_size)) + 1) * big_endian(data.subspan(last_size, 4));
    return true;
}

} // namespace

std::optional<uint32_t> count_luns(const open_target &where, call_name lists,
                                   std::vector<failed_call> &failures)
{
    constexpr size_t room = 16384, entry = 8; // as the library asks
    device_answer answer =
        ask_device(where, {}, {0xA0, 0, 0, 0, 0, 0, 0, 0, room >> 8, 0, 0, 0}, room);
    if (!answer.failure)
        return static_cast<uint32_t>(big_endian(bytes(answer.data).first(4)) / entry);
    answer.failure->lun.reset();
    if (answer.refused != refusal::none)
        answer.failure->call = lists;
    note(answer, "it does not list its LUNs", failures);
    return {};
}

bool complete_lun(const open_target &where, lun_entry &lun, std::vector<failed_call> &failures)
{
    return (has_names(lun.info) || read_names(where, lun, failures)) &&
           (lun.info.Capacity != 0 || !lun.is_known || !may_have_a_capacity(lun.info) ||
            read_capacity(where, lun, failures));
}

} // namespace ctl
