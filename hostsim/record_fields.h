// record_fields.h - tables of the fields of the driver records, and values given for fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace hostsim
{

enum class field_kind : uint8_t { number, text, mac, ipv4, ipv6 };

struct field {
    std::string_view name;
    field_kind kind;
    uint16_t offset;
    uint16_t size;
};

extern const std::span<const field> pci_fields;
extern const std::span<const field> port_fields;
extern const std::span<const field> session_fields;
extern const std::span<const field> target_fields;

const field *find_field(std::span<const field> fields, std::string_view name); // null: none

// A field's value, as bytes of the record. A text may be shorter than its field.
struct setting {
    const field *where;
    std::string bytes;
};
using settings = std::vector<setting>;

bool is_given(const settings &given, size_t offset);
void apply_settings(const settings &given, void *record);

} // namespace hostsim
