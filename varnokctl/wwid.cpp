// A LUN's identity as text.
#include "varnokctl/identity.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

namespace ctl
{
namespace
{

constexpr designator_type types[] = {designator_type::naa, designator_type::eui64,
                                     designator_type::scsi_name, designator_type::t10};

std::string_view characters(const lun_designator &designator)
{
    return {reinterpret_cast<const char *>(designator.bytes.data()), designator.bytes.size()};
}

// From the best one on. Others do not tell LUNs apart for certain.
enum rank { naa_6, naa_5, naa_2, eui64, scsi_name, t10, naa_3, none };

rank rank_of(const lun_designator &designator)
{
    constexpr std::string_view kinds[] = {"naa.", "eui.", "iqn."};
    const std::string_view name = characters(designator);
    switch (designator.type) {
    case designator_type::naa:
        switch (designator.bytes.front() >> 4) {
        case 6:
            return naa_6;
        case 5:
            return naa_5;
        case 2:
            return naa_2;
        case 3: // assigned locally
            return naa_3;
        default:
            return none;
        }
    case designator_type::eui64:
        return eui64;
    case designator_type::scsi_name:
        return std::ranges::any_of(kinds, [&](auto kind) { return name.starts_with(kind); })
                   ? scsi_name
                   : none;
    case designator_type::t10:
        return t10;
    }
    return none;
}

// The best designator of the type, the first of several; null when there is none.
const lun_designator *best_of(const lun_identity &identity, designator_type type)
{
    const lun_designator *best = nullptr;
    for (const lun_designator &designator : identity.designators)
        if (designator.type == type && (best == nullptr || rank_of(designator) < rank_of(*best)))
            best = &designator;
    return best;
}

// All of the text, in ASCII, with escapes for what is not printable.
std::string ascii_text(std::string_view whole)
{
    std::string text;
    while (!whole.empty()) {
        const std::string_view part = whole.substr(0, whole.find('\0'));
        const auto *bytes = reinterpret_cast<const uint8_t *>(part.data());
        text += field_text({bytes, part.size()}, {});
        whole.remove_prefix(part.size());
        if (!whole.empty()) {
            text += "\\x00";
            whole.remove_prefix(1);
        }
    }
    return text;
}

std::string t10_text(std::string_view name)
{
    std::string text;
    char before = 0;
    for (const char c : name.substr(0, name.find_last_not_of(std::string_view(" \0", 2)) + 1)) {
        if (c != ' ' || before != ' ')
            text += c == ' ' ? '_' : c;
        before = c;
    }
    return '1' + ascii_text(text);
}

std::string scsi_name_text(std::string_view name)
{
    const std::string_view kind = name.substr(0, std::string_view("naa.").size());
    if (kind != "naa." && kind != "eui.")
        return '8' + ascii_text(name);
    std::string digits;
    std::ranges::transform(name.substr(kind.size()), std::back_inserter(digits), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    });
    return (kind == "naa." ? '3' : '2') + ascii_text(digits);
}

} // namespace

std::string wwid(const lun_identity &identity)
{
    const auto best = std::ranges::min_element(identity.designators, {}, rank_of);
    if (best == identity.designators.end() || rank_of(*best) == none)
        return "";
    switch (best->type) {
    case designator_type::naa:
        return '3' + hex_bytes(best->bytes);
    case designator_type::eui64:
        return '2' + hex_bytes(best->bytes);
    case designator_type::scsi_name:
        return scsi_name_text(characters(*best));
    case designator_type::t10:
        return t10_text(characters(*best));
    }
    return "";
}

std::string designator_text(const lun_identity &identity, designator_type type,
                            const output_style &style)
{
    const lun_designator *best = best_of(identity, type);
    if (best == nullptr)
        return "";
    const bool is_text = type == designator_type::t10 || type == designator_type::scsi_name;
    return is_text ? field_text(best->bytes, style) : hex_bytes(best->bytes);
}

std::string provisioning_text(const lun_identity &identity)
{
    constexpr std::array<const char *, 3> words = {"full", "resource", "thin"};
    return identity.provisioning && *identity.provisioning < words.size()
               ? words[*identity.provisioning]
               : "";
}

void keep_the_best(lun_identity &identity)
{
    if (identity.serial.size() > longest_serial)
        identity.serial = {};
    identity.serial.shrink_to_fit();
    std::vector<lun_designator> kept;
    kept.reserve(std::min(identity.designators.size(), std::size(types)));
    for (const designator_type type : types)
        if (const lun_designator *best = best_of(identity, type); best != nullptr)
            kept.push_back({type, best->bytes});
    identity.designators = std::move(kept);
}

} // namespace ctl
