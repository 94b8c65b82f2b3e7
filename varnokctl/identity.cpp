#include "varnokctl/identity.h"

#include <algorithm>
#include <fmt/format.h>
#include <initializer_list>
#include <span>
#include <utility>

namespace ctl
{
namespace
{

using bytes = std::span<const uint8_t>;

constexpr size_t page_header = 4;

// A command that failed: its failure is noted already.
struct failed_command {
};

class lun_reader
{
  public:
    lun_reader(const open_target &where, const VARNOK_LUN_INFO &lun,
               std::vector<failed_call> &failures)
        : where_(where), lun_(levels_of(lun)), failures_(failures)
    {
    }

    // What follows the page's header. Empty when the device has no such page.
    std::vector<uint8_t> page(uint8_t number) const
    {
        constexpr size_t usual_room = 252, most_room = UINT16_MAX;
        std::vector<uint8_t> data = page_with_header(number, usual_room);
        const size_t length = page_length(data, number);
        if (length > data.size())
            data = page_with_header(number, std::min(length, most_room));
        const bytes page = bytes(data).first(std::min(page_length(data, number), data.size()));
        const bytes body = page.subspan(std::min(page_header, page.size()));
        return {body.begin(), body.end()};
    }

    std::vector<uint8_t> data(std::initializer_list<uint8_t> cdb, size_t room) const
    {
        device_answer answer = ask_device(where_, lun_, cdb, room);
        if (!answer.failure || answer.refused == refusal::illegal_request ||
            answer.refused == refusal::unknown_command)
            return std::move(answer.data);
        failed_call &failure = *answer.failure;
        failure.detail =
            fmt::format("it does not tell its identity: {}", advice_on(failure).meaning);
        failures_.push_back(std::move(failure));
        throw failed_command();
    }

  private:
    std::vector<uint8_t> page_with_header(uint8_t number, size_t room) const
    {
        return data(
            {0x12, 1, number, static_cast<uint8_t>(room >> 8), static_cast<uint8_t>(room), 0},
            room);
    }

    // With its header. 0 when the data are not this page.
    static size_t page_length(bytes data, uint8_t number)
    {
        if (data.size() < page_header || data[1] != number)
            return 0;
        return page_header + big_endian(data.subspan(2, 2));
    }

    const open_target &where_;
    lun_levels lun_;
    std::vector<failed_call> &failures_;
};

// ---- The pages --------------------------------------------------------------------------------

// The bytes as they are to be kept; empty when they are against the rules of their type.
bytes kept(designator_type type, bytes designator)
{
    constexpr size_t vendor_name = 8, longest_name = 251;
    const auto has_size = [&](std::initializer_list<size_t> sizes) {
        return std::ranges::find(sizes, designator.size()) != sizes.end();
    };
    switch (type) {
    case designator_type::t10:
        return designator.size() < vendor_name ? bytes() : designator;
    case designator_type::eui64:
        return has_size({8, 12, 16}) ? designator : bytes();
    case designator_type::naa:
        return has_size({8, 16}) ? designator : bytes();
    case designator_type::scsi_name:
        while (!designator.empty() && designator.back() == 0)
            designator = designator.first(designator.size() - 1);
        return designator.size() > longest_name || std::ranges::count(designator, 0) != 0
                   ? bytes()
                   : designator;
    }
    return {};
}

// How long it is where a name ends with a NUL byte and fills words of four bytes.
size_t written_size(const lun_designator &designator)
{
    constexpr size_t header = 4, word = 4;
    const size_t size = designator.bytes.size();
    return header +
           (designator.type == designator_type::scsi_name ? size / word * word + word : size);
}

std::vector<lun_designator> designators_of(bytes page)
{
    constexpr size_t header = 4;
    std::vector<lun_designator> list;
    size_t written = 0;
    while (page.size() >= header && page.size() - header >= page[3]) {
        const bool of_the_unit = (page[1] >> 4 & 3) == 0;
        const auto type = static_cast<designator_type>(page[1] & 0x0F);
        const bytes value = kept(type, page.subspan(header, page[3]));
        page = page.subspan(header + page[3]);
        if (!of_the_unit || value.empty())
            continue;
        list.push_back({type, {value.begin(), value.end()}});
        written += written_size(list.back());
        if (written > UINT16_MAX) {
            list.pop_back(); // a page has no room for it
            break;
        }
    }
    return list;
}

std::optional<uint8_t> provisioning_of(bytes page)
{
    constexpr uint8_t type_bits = 7;
    return page.size() < 3 ? std::nullopt : std::optional<uint8_t>(page[2] & type_bits);
}

std::optional<block_sizes> block_sizes_of(bytes capacity)
{
    constexpr size_t shortest = 14;
    if (capacity.size() < shortest)
        return {};
    const auto logical = static_cast<uint32_t>(big_endian(capacity.subspan(8, 4)));
    return logical == 0 ? std::nullopt : std::optional(block_sizes{logical, capacity[13] & 0x0FU});
}

} // namespace

std::optional<lun_identity> read_identity(const open_target &where, const VARNOK_LUN_INFO &lun,
                                          std::vector<failed_call> &failures)
try {
    constexpr size_t capacity_size = 32;
    const lun_reader device(where, lun, failures);
    const std::vector<uint8_t> pages = device.page(0x00);
    const auto page = [&](uint8_t number) {
        const bool there = std::ranges::find(pages, number) != pages.end();
        return there ? device.page(number) : std::vector<uint8_t>();
    };
    lun_identity identity;
    identity.serial = page(0x80);
    identity.designators = designators_of(page(0x83));
    identity.provisioning = provisioning_of(page(0xB2));
    if (lun.Capacity != 0)
        identity.blocks = block_sizes_of(device.data(
            {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, capacity_size, 0, 0}, capacity_size));
    return identity;
} catch (const failed_command &) {
    return {};
}

} // namespace ctl
