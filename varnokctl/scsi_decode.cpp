#include "varnokctl/scsi_decode.h"

#include "varnokctl/scsi_names.h"
#include "varnokctl/sense.h"
#include "varnokctl/text.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace ctl
{
namespace
{

using bytes = std::span<const uint8_t>;
using fields = std::vector<decoded_field>;

constexpr uint8_t request_sense = 0x03, inquiry = 0x12, read_capacity_10 = 0x25,
                  service_action_in = 0x9E, report_luns = 0xA0;
constexpr size_t page_header = 4;

field_value number(uint64_t value)
{
    return {fmt::to_string(value),
            value <= largest_exact_number ? json(value) : json(fmt::to_string(value))};
}

field_value flag(bool value) { return {value ? "yes" : "no", value}; }

field_value text(bytes field) { return same(field_text(field, {})); }

// 0 means that the device tells no limit.
field_value limit(bytes field)
{
    const uint64_t value = big_endian(field);
    return value == 0 ? field_value{} : number(value);
}

// The part of the data, as far as it came.
bytes part(bytes data, size_t at, size_t size)
{
    return data.size() < at ? bytes() : data.subspan(at, std::min(size, data.size() - at));
}

// Lines of text, and an array for a document.
void add_item(field_value &list, const std::string &item, json data)
{
    list.text += (list.text.empty() ? "" : "\n") + item;
    list.data.push_back(std::move(data));
}

fields decode_inquiry(bytes data)
{
    constexpr uint8_t removable = 0x80;
    if (data.size() < 36)
        return {};
    return {{"Type", "type", coded_value(data[0], device_type(data[0]))},
            {"Removable", "removable", flag((data[1] & removable) != 0)},
            {"Version", "version", number(data[2])},
            {"Vendor", "vendor", text(data.subspan(8, 8))},
            {"Product", "product", text(data.subspan(16, 16))},
            {"Revision", "revision", text(data.subspan(32, 4))}};
}

fields decode_pages(bytes body)
{
    field_value list = {"", json::array()};
    for (const uint8_t page : body)
        add_item(list, fmt::format("{:02x}h", page), fmt::format("{:02x}", page));
    return {{"Pages", "pages", std::move(list)}};
}

field_value designator_value(bytes designator, uint8_t code_set)
{
    constexpr uint8_t binary = 1;
    return code_set > binary ? text(designator) : same(hex_bytes(designator));
}

fields decode_designators(bytes body)
{
    constexpr size_t header = 4;
    field_value list = {"", json::array()};
    while (body.size() >= header && body.size() - header >= body[3]) {
        const uint8_t code_set = body[0] & 0x0F;
        const auto type = static_cast<uint8_t>(body[1] & 0x0F);
        const auto association = static_cast<uint8_t>(body[1] >> 4 & 3);
        const field_value value = designator_value(body.subspan(header, body[3]), code_set);
        add_item(list,
                 fmt::format("{}, {}: {}", association_name(association),
                             designator_type_name(type), value.text),
                 {{"association", coded_value(association, association_name(association)).data},
                  {"type", coded_value(type, designator_type_name(type)).data},
                  {"code_set", coded_value(code_set, code_set_name(code_set)).data},
                  {"value", value.data}});
        body = body.subspan(header + body[3]);
    }
    return {{"Designators", "designators", std::move(list)}};
}

fields decode_block_limits(bytes page)
{
    return {{"Optimal granularity", "optimal_granularity", limit(part(page, 6, 2))},
            {"Maximum transfer", "maximum_transfer", limit(part(page, 8, 4))},
            {"Optimal transfer", "optimal_transfer", limit(part(page, 12, 4))},
            {"Maximum unmap", "maximum_unmap", limit(part(page, 20, 4))},
            {"Unmap descriptors", "unmap_descriptors", limit(part(page, 24, 4))},
            {"Unmap granularity", "unmap_granularity", limit(part(page, 28, 4))},
            {"Maximum write same", "maximum_write_same", limit(part(page, 36, 8))}};
}

fields decode_provisioning(bytes page)
{
    constexpr unsigned unmap = 0x80, write_same_16 = 0x40, write_same_10 = 0x20, types = 7;
    if (page.size() < 7)
        return {};
    lun_identity identity;
    identity.provisioning = page[6] & types;
    return {{"Provisioning", "provisioning",
             coded_value(*identity.provisioning, provisioning_text(identity))},
            {"Unmap", "unmap", flag((page[5] & unmap) != 0)},
            {"Write same (16)", "write_same_16", flag((page[5] & write_same_16) != 0)},
            {"Write same (10)", "write_same_10", flag((page[5] & write_same_10) != 0)},
            {"Threshold exponent", "threshold_exponent", number(page[4])}};
}

fields decode_page(uint8_t number, bytes data)
{
    if (data.size() < page_header || data[1] != number)
        return {};
    const bytes page =
        data.first(std::min<size_t>(data.size(), page_header + big_endian(data.subspan(2, 2))));
    const bytes body = page.subspan(page_header);
    switch (number) {
    case 0x00:
        return decode_pages(body);
    case 0x80:
        return {{"Serial number", "serial", text(body)}};
    case 0x83:
        return decode_designators(body);
    case 0xB0:
        return decode_block_limits(page);
    case 0xB2:
        return decode_provisioning(page);
    default:
        return {};
    }
}

fields decode_luns(bytes data)
{
    constexpr size_t header = 8, entry = 8;
    if (data.size() < header)
        return {};
    const uint64_t length = big_endian(data.first(4));
    bytes entries = data.subspan(header);
    entries = entries.first(std::min<size_t>(entries.size(), length));
    field_value list = {"", json::array()};
    for (; entries.size() >= entry; entries = entries.subspan(entry)) {
        const auto levels = [&](size_t at) {
            return static_cast<uint32_t>(big_endian(entries.subspan(at, 2)) |
                                         big_endian(entries.subspan(at + 2, 2)) << 16);
        };
        const field_value lun = lun_value({levels(0), levels(4)});
        add_item(list, lun.text, lun.data);
    }
    return {{"Count", "count", number(length / entry)}, {"LUNs", "luns", std::move(list)}};
}

void add_capacity(fields &list, uint64_t last, uint64_t block)
{
    list.push_back({"Last block", "last_block", number(last)});
    list.push_back({"Block size", "block_size", number(block)});
    const uint64_t bytes_in_all = (last + 1) * block;
    const bool overflows = block != 0 && bytes_in_all / block != last + 1;
    list.push_back(
        {"Bytes", "bytes",
         overflows || last == UINT64_MAX ? field_value{} : same(fmt::to_string(bytes_in_all))});
}

fields decode_capacity_10(bytes data)
{
    fields list;
    if (data.size() >= 8)
        add_capacity(list, big_endian(data.first(4)), big_endian(data.subspan(4, 4)));
    if (!list.empty() && big_endian(data.first(4)) == UINT32_MAX)
        list.back().value = {}; // only READ CAPACITY(16) tells
    return list;
}

fields decode_capacity_16(bytes data)
{
    constexpr unsigned managed = 0x80, reads_zeros = 0x40;
    fields list;
    if (data.size() < 16)
        return list;
    add_capacity(list, big_endian(data.first(8)), big_endian(data.subspan(8, 4)));
    list.push_back({"Physical block size", "physical_block_size",
                    number(big_endian(data.subspan(8, 4)) << (data[13] & 0x0FU))});
    list.push_back({"Provisioning managed", "managed", flag((data[14] & managed) != 0)});
    list.push_back({"Unmapped reads zeros", "reads_zeros", flag((data[14] & reads_zeros) != 0)});
    return list;
}

fields decode_sense_data(bytes data)
{
    const auto sense = decode_sense(data);
    if (!sense)
        return {};
    return {{"Sense", "cause", same(cause_text(*sense))}};
}

bool is_page(bytes cdb) { return cdb.size() > 2 && (cdb[1] & 1U) != 0; }
bool is_capacity_16(bytes cdb) { return cdb.size() > 1 && (cdb[1] & 0x1FU) == 0x10; }

} // namespace

fields decode_data(bytes cdb, bytes data)
{
    switch (cdb.front()) {
    case request_sense:
        return decode_sense_data(data);
    case inquiry:
        return is_page(cdb) ? decode_page(cdb[2], data) : decode_inquiry(data);
    case read_capacity_10:
        return decode_capacity_10(data);
    case service_action_in:
        return is_capacity_16(cdb) ? decode_capacity_16(data) : fields();
    case report_luns:
        return decode_luns(data);
    default:
        return {};
    }
}

size_t told_length(bytes cdb, bytes data)
{
    size_t length = data.size();
    if (cdb.front() == inquiry && is_page(cdb) && data.size() >= page_header)
        length = page_header + big_endian(data.subspan(2, 2));
    else if (cdb.front() == inquiry && !is_page(cdb) && data.size() > 4)
        length = 5U + data[4];
    else if (cdb.front() == report_luns && data.size() >= 4)
        length = 8 + big_endian(data.first(4));
    return length;
}

} // namespace ctl
