#include "varnokctl/capture_luns.h"

#include "varnokctl/lun_address.h"
#include "varnokctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>
#include <vector>

namespace ctl
{
namespace
{

constexpr uint32_t lun_numbers = 0x4000; // that a scenario counts

// As text_or_bytes, but it keeps the spaces at the end.
json whole_text_or_bytes(std::span<const uint8_t> bytes)
{
    std::string shown = field_text(bytes, {.utf8 = true});
    shown.resize(std::max(shown.size(), bytes.size()), ' ');
    if (std::ranges::equal(shown, bytes,
                           [](char c, uint8_t byte) { return static_cast<uint8_t>(c) == byte; }))
        return shown;
    return json(std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

json designator_object(const lun_designator &designator)
{
    switch (designator.type) {
    case designator_type::t10:
        return {{"t10", whole_text_or_bytes(designator.bytes)}};
    case designator_type::eui64:
        return {{"eui64", "0x" + hex_bytes(designator.bytes)}};
    case designator_type::naa:
        return {{"naa", "0x" + hex_bytes(designator.bytes)}};
    default:
        return {{"scsi_name", whole_text_or_bytes(designator.bytes)}};
    }
}

// Block sizes that do not fit the capacity are not the LUN's.
void put_blocks(json &object, const VARNOK_LUN_INFO &lun, const std::optional<block_sizes> &blocks)
{
    constexpr uint32_t usual = 512;
    const bool known = blocks && lun.Capacity % blocks->logical == 0;
    const uint32_t logical = known ? blocks->logical : lun.Capacity % usual == 0 ? usual : 1;
    if (logical != usual)
        object["block_size"] = logical;
    if (known && blocks->physical_exponent != 0 && lun.DeviceType == 0)
        object["physical_block_size"] = uint64_t{logical} << blocks->physical_exponent;
}

void put_identity(json &object, const lun_identity &identity)
{
    const bool fits = identity.serial.size() <= longest_serial;
    object["serial"] = fits ? whole_text_or_bytes(identity.serial) : json("");
    object["designators"] = json::array();
    for (const lun_designator &designator : identity.designators)
        object["designators"].push_back(designator_object(designator));
}

// What the LUN is, wherever it is.
json unit_object(const lun_entry &lun)
{
    const VARNOK_LUN_INFO &info = lun.info;
    const lun_identity identity = lun.identity.value_or(lun_identity());
    json object = {{"size", exact_number(info.Capacity, "{} B")}};
    put_blocks(object, info, identity.blocks);
    if (info.DeviceType != 0)
        object["device_type"] = info.DeviceType;
    object["vendor"] = text_or_bytes(std::span(info.VendorName).first(8));
    object["product"] = text_or_bytes(std::span(info.ProductName).first(16));
    object["revision"] = text_or_bytes(std::span(info.ProductRevision).first(4));
    put_identity(object, identity);
    const bool disk_with_medium = info.DeviceType == 0 && info.Capacity != 0;
    const std::string provisioning = provisioning_text(identity);
    if (disk_with_medium && !provisioning.empty())
        object["provisioning"] = provisioning;
    return object;
}

} // namespace

json text_or_bytes(std::span<const uint8_t> field)
{
    std::string shown = field_text(field, {.utf8 = true});
    if (shown.find('\\') == std::string::npos)
        return shown;
    return json(std::vector<uint8_t>(field.begin(), std::ranges::find(field, 0)));
}

json lun_number_of(const lun_levels &lun)
{
    const lun_form form = lun_form_of(lun);
    if (form.number && parse_lun(fmt::to_string(*form.number)) == lun)
        return *form.number;
    return "0x" + lun_bytes(lun);
}

std::optional<uint32_t> first_unlisted(const target_entry &target)
{
    uint32_t next = 0;
    for (const lun_entry &lun : target.luns) {
        const json number = lun_number_of(levels_of(lun.info));
        if (number.is_number())
            next = std::max(next, number.get<uint32_t>() + 1);
    }
    const bool more = target.info.LunCount > target.luns.size() && next < lun_numbers;
    return more ? std::optional(next) : std::nullopt;
}

json exact_number(uint64_t value, const char *large_format)
{
    return value <= largest_exact_number ? json(value)
                                         : json(fmt::format(fmt::runtime(large_format), value));
}

captured_luns::captured_luns(const inventory &host)
{
    std::map<std::string, const target_entry *> first_targets;
    std::vector<std::pair<std::string, json>> units; // that have designators, in their order
    std::set<std::string> shared;
    for (const port_entry &port : host.ports)
        for (const target_entry &target : port.targets)
            for (const lun_entry &lun : target.luns) {
                if (!lun.identity || lun.identity->designators.empty())
                    continue;
                json unit = unit_object(lun);
                const std::string what = unit.dump();
                const auto [known, is_new] = first_targets.emplace(what, &target);
                if (is_new)
                    units.emplace_back(what, std::move(unit));
                else if (known->second != &target)
                    shared.insert(what);
            }
    for (const auto &[what, unit] : units) {
        if (!shared.contains(what))
            continue;
        const std::string name = fmt::format("device-{}", names_.size() + 1);
        names_[what] = name;
        devices_[name] = unit;
    }
}

json captured_luns::array_of(const target_entry &target) const
{
    json array = json::array();
    std::set<lun_levels> seen;
    for (const lun_entry &lun : target.luns) {
        if (!seen.insert(levels_of(lun.info)).second)
            continue;
        json object = {{"lun", lun_number_of(levels_of(lun.info))}};
        const json unit = unit_object(lun);
        const auto device = names_.find(unit.dump());
        if (device != names_.end())
            object["device"] = device->second;
        else
            object.update(unit);
        array.push_back(object);
    }
    if (const auto next = first_unlisted(target)) {
        const auto listed = static_cast<uint32_t>(target.luns.size());
        array.push_back({{"lun", *next},
                         {"repeat", std::min(target.info.LunCount - listed, lun_numbers - *next)},
                         {"serial", ""},
                         {"designators", json::array()}});
    }
    return array;
}

} // namespace ctl
