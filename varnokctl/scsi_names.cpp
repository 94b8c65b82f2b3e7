#include "varnokctl/scsi_names.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <array>
#include <scsi/sg_lib.h>
#include <string_view>

namespace ctl
{
namespace
{

using name_buffer = std::array<char, 256>;

bool is_upper(char c) { return c >= 'A' && c <= 'Z'; }
char lower(char c) { return is_upper(c) ? static_cast<char>(c + ('a' - 'A')) : c; }

// As within a sentence. An abbreviation at its start stays as it is.
std::string begun_small(std::string_view name)
{
    std::string text = safe_text(name);
    const bool is_word = text.size() > 1 && text[1] >= 'a' && text[1] <= 'z';
    if (is_word)
        text[0] = lower(text[0]);
    return text;
}

std::string text_or_nothing(const char *name) { return name == nullptr ? "" : begun_small(name); }

} // namespace

std::string sense_key_name(uint8_t key)
{
    name_buffer name{};
    std::string text = safe_text(sg_get_sense_key_str(key, name.size(), name.data()));
    std::ranges::transform(text, text.begin(), lower);
    return text;
}

std::string sense_code_name(uint8_t code, uint8_t qualifier)
{
    constexpr std::string_view known = "Additional sense: ";
    name_buffer name{};
    const std::string_view text = sg_get_asc_ascq_str(code, qualifier, name.size(), name.data());
    return text.starts_with(known) ? begun_small(text.substr(known.size())) : "";
}

std::string operation_name(std::span<const uint8_t> cdb)
{
    constexpr int any_type = 0;
    std::array<uint8_t, 16> whole{};
    std::ranges::copy(cdb.first(std::min(cdb.size(), whole.size())), whole.begin());
    name_buffer name{};
    sg_get_command_name(whole.data(), any_type, name.size(), name.data());
    return safe_text(name.data());
}

std::string association_name(uint8_t association)
{
    return text_or_nothing(sg_get_desig_assoc_str(association));
}

std::string designator_type_name(uint8_t type)
{
    return text_or_nothing(sg_get_desig_type_str(type));
}

std::string code_set_name(uint8_t code_set)
{
    return text_or_nothing(sg_get_desig_code_set_str(code_set));
}

} // namespace ctl
