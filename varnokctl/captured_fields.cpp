#include "varnokctl/captured_fields.h"

#include "varnokctl/capture_view.h"
#include "varnokctl/driver_codes.h"
#include "varnokctl/words.h"

#include <charconv>
#include <fmt/format.h>
#include <string_view>

namespace ctl
{
namespace
{

constexpr uint64_t no_number = UINT64_MAX; // fits no field

uint64_t number_in(const capture_json &value)
{
    return value.is_number_unsigned() ? value.get<uint64_t>() : no_number;
}

field_value plain(const capture_json &value, const output_style &style)
{
    const std::string text = shown_text(value, style);
    return {text, number_in(value) <= largest_exact_number ? json(number_in(value)) : json(text)};
}

// The word, where there is one for the value; the value itself is the data.
field_value in_words(const std::string &word, const capture_json &value, const output_style &style)
{
    field_value shown = plain(value, style);
    if (!word.empty())
        shown.text = word;
    return shown;
}

field_value state_of_port(const capture_json &value, const output_style &style)
{
    const uint32_t code = reported_code(port_state_codes, number_in(value));
    return in_words(code == 0 ? "" : port_state(code), value, style);
}

field_value speed_of_port(const capture_json &value, const output_style &style)
{
    return in_words(port_speed(reported_code(port_speed_codes, number_in(value))), value, style);
}

field_value speed_of_pcie(const capture_json &value, const output_style &style)
{
    return in_words(pcie_link(reported_code(pcie_speed_codes, number_in(value)), 0), value, style);
}

field_value width_of_pcie(const capture_json &value, const output_style &style)
{
    return in_words(pcie_link(0, reported_code(pcie_width_codes, number_in(value))), value, style);
}

field_value state_of_session(const capture_json &value, const output_style &style)
{
    const uint64_t number = number_in(value);
    const bool fits = number <= UINT8_MAX;
    return in_words(fits ? session_state(static_cast<uint32_t>(number)) : "", value, style);
}

field_value type_of_device(const capture_json &value, const output_style &style)
{
    const uint64_t number = number_in(value);
    const bool fits = number <= UINT8_MAX;
    return in_words(fits ? device_type(static_cast<uint8_t>(number)) : "", value, style);
}

field_value yes_or_no(const capture_json &value, const output_style &style)
{
    const uint64_t number = number_in(value);
    return in_words(number == 0 ? "no" : number == 1 ? "yes" : "", value, style);
}

field_value version(const capture_json &value, const output_style &style)
{
    const uint64_t number = number_in(value);
    if (number > UINT32_MAX)
        return plain(value, style);
    return in_words(fmt::format("{}.{}.{}.{}", number >> 24, number >> 16 & 0xFFU,
                                number >> 8 & 0xFFU, number & 0xFFU),
                    value, style);
}

// Zeros stand for no address.
field_value address(const capture_json &value, const output_style &style)
{
    const bool none = value == "0.0.0.0" || value == "::";
    return none ? field_value{} : plain(value, style);
}

// A large size is a text: "18446744073709551104 B".
field_value size(const capture_json &value, const output_style &style)
{
    constexpr std::string_view unit = " B";
    uint64_t bytes = number_in(value);
    if (value.is_string()) {
        const auto &text = value.get_ref<const std::string &>();
        const char *const end = text.data() + text.size();
        const auto [behind, error] = std::from_chars(text.data(), end, bytes);
        if (error != std::errc() || std::string_view(behind, end) != unit)
            return plain(value, style);
    } else if (!value.is_number_unsigned()) {
        return plain(value, style);
    }
    const std::string number = fmt::to_string(bytes);
    return {bytes < 1024 ? number + " B" : fmt::format("{} ({} B)", size_text(bytes), number),
            number};
}

field_value designators(const capture_json &list, const output_style &style)
{
    std::string text;
    for (const capture_json &designator : list)
        for (const auto &[kind, value] : designator.items())
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", shown_text(kind, style),
                                shown_text(value, style));
    return same(text);
}

constexpr captured_field port_fields[] = {
    {"driver"},
    {"hba_name"},
    {"model_name"},
    {"model_desc"},
    {"serial_num"},
    {"driver_name"},
    {"driver_version"},
    {"driver_date"},
    {"fw_version"},
    {"mfw_version", may_be_absent, version},
    {"mac"},
    {"mtu"},
    {"port_state", 0, state_of_port},
    {"port_speed", 0, speed_of_port},
    {"ipv4addr", 0, address},
    {"ipv6addr", 0, address},
    {"ipv4_port", moves},
    {"ipv6_port", moves},
    {"session_cnt", moves},
    {"vendor_id"},
    {"device_id"},
    {"subvendor_id"},
    {"subsystem_id"},
    {"domain_num"},
    {"bus_num"},
    {"device_num"},
    {"function_num"},
    {"revision"},
    {"port_num"},
    {"pcie_speed", 0, speed_of_pcie},
    {"pcie_width", 0, width_of_pcie},
    {"chip_rev_id"},
};

constexpr captured_field session_fields[] = {
    {"state", 0, state_of_session},
    {"init_iqn"},
    {"init_ipv4addr", negotiated, address},
    {"init_ipv6addr", negotiated, address},
    {"tgt_iqn"},
    {"tgt_ipv4addr", negotiated, address},
    {"tgt_ipv6addr", negotiated, address},
    {"initial_r2t", negotiated, yes_or_no},
    {"imm_data", negotiated, yes_or_no},
    {"dataseq_inorder", negotiated, yes_or_no},
    {"pdu_inorder", negotiated, yes_or_no},
    {"max_r2t", negotiated},
    {"first_burst_len", negotiated},
    {"erl", negotiated},
    {"sess_num", moves},
    {"sess_unique", moves},
    {"init_ipv4_port", moves},
    {"init_ipv6_port", moves},
    {"tgt_ipv4_port", moves},
    {"tgt_ipv6_port", moves},
    {"cid", moves},
};

constexpr captured_field target_fields[] = {
    {"mac"},
    {"ipv4addr", negotiated, address},
    {"ipv6addr", negotiated, address},
    {"isid", moves},
    {"ipv4_port", moves},
    {"ipv6_port", moves},
};

constexpr captured_field unit_fields[] = {
    {"size", 0, size},
    {"block_size", identifies},
    {"physical_block_size", identifies},
    {"device_type", 0, type_of_device},
    {"vendor"},
    {"product"},
    {"revision"},
    {"serial", identifies},
    {"designators", identifies, designators},
    {"provisioning", identifies | may_be_absent},
};

} // namespace

const std::span<const captured_field> captured_port_fields = port_fields;
const std::span<const captured_field> captured_session_fields = session_fields;
const std::span<const captured_field> captured_target_fields = target_fields;
const std::span<const captured_field> captured_unit_fields = unit_fields;

const capture_json &captured_value(const capture_json &record, const captured_field &field)
{
    static const capture_json usual_block = 512;
    static const capture_json disk = 0;
    const capture_json &value = member_or_null(record, field.key);
    const std::string_view key = field.key;
    if (!value.is_null())
        return value;
    if (key == "block_size")
        return usual_block;
    if (key == "device_type")
        return disk;
    if (key == "physical_block_size") // as large as the logical one
        return captured_value(record, {"block_size"});
    return value;
}

field_value shown_value(const captured_field &field, const capture_json &value,
                        const output_style &style)
{
    field_value shown;
    if (!value.is_null())
        shown = field.shown != nullptr ? field.shown(value, style) : plain(value, style);
    if (shown.text.empty())
        shown = {"none", json()};
    return shown;
}

} // namespace ctl
