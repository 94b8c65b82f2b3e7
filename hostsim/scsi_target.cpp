#include "scsi_target.h"

#include "big_endian.h"
#include "product_data.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace hostsim
{
namespace
{

constexpr sense_code no_medium = {0x02, 0x3A, 0x00};
constexpr sense_code medium_read_error = {0x03, 0x11, 0x00};
constexpr sense_code medium_write_error = {0x03, 0x0C, 0x00};
constexpr sense_code unknown_opcode = {0x05, 0x20, 0x00};
constexpr sense_code lba_out_of_range = {0x05, 0x21, 0x00};
constexpr sense_code bad_field = {0x05, 0x24, 0x00};
constexpr sense_code no_such_lun = {0x05, 0x25, 0x00};

struct call {
    const lun_list &luns;
    const lun_description *lun; // null when the target does not have it
    uint64_t identity;          // of the disk, unique on the host
    const scsi_command &command;
    disk_contents &contents;
};

// A big-endian number in the CDB.
uint64_t cdb_field(const call &c, size_t at, size_t size)
{
    uint64_t value = 0;
    for (uint8_t byte : c.command.cdb.subspan(at, size))
        value = value << 8 | byte;
    return value;
}

// Sends data as far as the allocation length and the caller's buffer go.
scsi_result give(const call &c, std::span<const uint8_t> data, uint64_t allocation)
{
    size_t n = std::min({data.size(), c.command.in.size(), static_cast<size_t>(allocation)});
    if (n != 0)
        std::memcpy(c.command.in.data(), data.data(), n);
    return {{}, n};
}

scsi_result check(const sense_code &sense) { return {sense, 0}; }

scsi_result test_unit_ready(const call &c)
{
    return is_disk(*c.lun) && c.lun->size == 0 ? check(no_medium) : scsi_result{};
}

scsi_result request_sense(const call &c)
{
    constexpr uint8_t descriptor_format = 1;
    if ((c.command.cdb[1] & descriptor_format) != 0)
        return check(bad_field);
    return give(c, fixed_sense(c.lun != nullptr ? sense_code{} : no_such_lun), c.command.cdb[4]);
}

void put_text(uint8_t *to, std::string_view text, size_t size)
{
    std::memset(to, ' ', size);
    std::memcpy(to, text.data(), text.size());
}

scsi_result inquiry(const call &c)
{
    constexpr uint8_t evpd = 1, no_device = 0x7F;
    const uint8_t page = c.command.cdb[2];
    const uint64_t allocation = cdb_field(c, 3, 2);

    if ((c.command.cdb[1] & evpd) != 0) {
        std::vector<uint8_t> data =
            c.lun != nullptr ? product_data(*c.lun, c.identity, page) : std::vector<uint8_t>();
        return data.empty() ? check(bad_field) : give(c, data, allocation);
    }
    if (page != 0)
        return check(bad_field);

    // SPC-4, hierarchical LUNs, 31 more bytes, command queuing.
    std::array<uint8_t, 36> data = {0, 0, 0x06, 0x12, 31, 0, 0, 0x02};
    data[0] = c.lun != nullptr ? c.lun->device_type : no_device;
    put_text(&data[8], c.lun != nullptr ? c.lun->vendor : "", 8);
    put_text(&data[16], c.lun != nullptr ? c.lun->product : "", 16);
    put_text(&data[32], c.lun != nullptr ? c.lun->revision : "", 4);
    return give(c, data, allocation);
}

scsi_result report_luns(const call &c)
{
    constexpr uint8_t well_known_only = 1, all = 2;
    const uint8_t select = c.command.cdb[2];
    if (select > all)
        return check(bad_field);

    size_t count = select == well_known_only ? 0 : c.luns.entries.size();
    std::vector<uint8_t> data(8 + 8 * count);
    put_number(&data[0], static_cast<uint32_t>(8 * count));
    for (size_t i = 0; i < count; ++i)
        put_number(&data[8 + 8 * i], c.luns.entries[i].wire);
    return give(c, data, cdb_field(c, 6, 4));
}

uint64_t last_block(const call &c) { return c.lun->size / c.lun->block_size - 1; }

scsi_result read_capacity_10(const call &c)
{
    std::array<uint8_t, 8> data{};
    put_number(&data[0], static_cast<uint32_t>(std::min<uint64_t>(last_block(c), UINT32_MAX)));
    put_number(&data[4], c.lun->block_size);
    return give(c, data, data.size());
}

scsi_result read_capacity_16(const call &c)
{
    constexpr uint8_t service_action = 0x10, managed = 0x80, reads_zeros = 0x40;
    if ((c.command.cdb[1] & 0x1F) != service_action)
        return check(bad_field);
    std::array<uint8_t, 32> data{};
    put_number(&data[0], last_block(c));
    put_number(&data[8], c.lun->block_size);
    data[13] = static_cast<uint8_t>(physical_block_exponent(*c.lun));
    if (c.lun->provisioning.value_or(provisioning_type::full) != provisioning_type::full)
        data[14] = c.lun->provisioning == provisioning_type::thin ? managed | reads_zeros : managed;
    return give(c, data, cdb_field(c, 10, 4));
}

// READ and WRITE move bytes as far as the caller's buffer goes.
scsi_result move_blocks(const call &c, uint64_t lba, uint64_t blocks, bool write)
{
    const uint64_t last = last_block(c);
    if (lba > last || blocks > last - lba + 1)
        return check(lba_out_of_range);

    const uint64_t offset = lba * c.lun->block_size;
    const uint64_t room = write ? c.command.out.size() : c.command.in.size();
    const auto n = static_cast<size_t>(std::min(blocks * c.lun->block_size, room));
    const std::optional<std::string> &file = c.lun->file;
    bool done = true;
    if (write && !file)
        c.contents[c.identity].write(offset, c.command.out.first(n));
    else if (write)
        done = write_file(*file, offset, c.command.out.first(n));
    else if (!file)
        c.contents[c.identity].read(offset, c.command.in.first(n));
    else
        done = read_file(*file, offset, c.command.in.first(n));

    if (!done)
        return check(write ? medium_write_error : medium_read_error);
    return {{}, n};
}

scsi_result move_10(const call &c)
{
    constexpr uint8_t write = 0x2A;
    return move_blocks(c, cdb_field(c, 2, 4), cdb_field(c, 7, 2), c.command.cdb[0] == write);
}

scsi_result move_16(const call &c)
{
    constexpr uint8_t write = 0x8A;
    return move_blocks(c, cdb_field(c, 2, 8), cdb_field(c, 10, 4), c.command.cdb[0] == write);
}

enum class needs { nothing, unit, medium };

struct operation {
    uint8_t opcode;
    uint8_t cdb_size;
    needs what;
    scsi_result (*run)(const call &);
};

constexpr operation operations[] = {
    {0x00, 6, needs::unit, test_unit_ready},     {0x03, 6, needs::nothing, request_sense},
    {0x12, 6, needs::nothing, inquiry},          {0x25, 10, needs::medium, read_capacity_10},
    {0x28, 10, needs::medium, move_10},          {0x2A, 10, needs::medium, move_10},
    {0x88, 16, needs::medium, move_16},          {0x8A, 16, needs::medium, move_16},
    {0x9E, 16, needs::medium, read_capacity_16}, {0xA0, 12, needs::nothing, report_luns},
};

} // namespace

std::array<uint8_t, sense_size> fixed_sense(const sense_code &sense)
{
    std::array<uint8_t, sense_size> bytes{};
    bytes[0] = 0x70;
    bytes[2] = sense.key;
    bytes[7] = sense_size - 8;
    bytes[12] = sense.asc;
    bytes[13] = sense.ascq;
    return bytes;
}

scsi_result run_scsi(const lun_list &luns, uint64_t target_number, uint64_t lun,
                     const scsi_command &command, disk_contents &contents)
{
    const auto wire = [&](uint32_t k) { return luns.entries[k].wire; };
    const auto at = std::ranges::lower_bound(luns.by_wire, lun, {}, wire);
    const bool there = at != luns.by_wire.end() && wire(*at) == lun;
    const uint32_t position = there ? *at : 0;
    const lun_description *const unit = there ? luns.entries[position].what : nullptr;
    uint64_t identity = target_number << 16 | position;
    if (unit != nullptr && unit->identity != 0)
        identity = unit->identity; // several LUNs are this device
    const call c = {luns, unit, identity, command, contents};

    if (command.cdb.empty())
        return check(bad_field);
    const auto *op = std::find_if(std::begin(operations), std::end(operations),
                                  [&](const operation &o) { return o.opcode == command.cdb[0]; });
    const bool known = op != std::end(operations);
    if (unit == nullptr && (!known || op->what != needs::nothing))
        return check(no_such_lun);
    if (!known)
        return check(unknown_opcode);
    if (unit != nullptr && op->what == needs::medium && unit->size == 0)
        return check(is_disk(*unit) ? no_medium : unknown_opcode);
    if (command.cdb.size() < op->cdb_size)
        return check(bad_field);
    return op->run(c);
}

} // namespace hostsim
