// The fields of a capture that are compared, and how their values are shown.
#pragma once

#include "varnokctl/capture_file.h"
#include "varnokctl/json.h"
#include "varnokctl/text.h"

#include <span>

namespace ctl
{

enum captured_trait : unsigned {
    moves = 1,         // a number that differs from start to start
    negotiated = 2,    // known only while the session is logged in
    identifies = 4,    // read by commands of its own
    may_be_absent = 8, // the absence is a value, too
};

struct captured_field {
    const char *key; // of a scenario
    unsigned traits = 0;
    field_value (*shown)(const capture_json &, const output_style &) = nullptr; // null: as it is
};

extern const std::span<const captured_field> captured_port_fields;
extern const std::span<const captured_field> captured_session_fields;
extern const std::span<const captured_field> captured_target_fields; // of its own record
extern const std::span<const captured_field> captured_unit_fields;   // of what a LUN is

// What stands there, or what its absence means; null when it means nothing.
const capture_json &captured_value(const capture_json &record, const captured_field &field);

// "none" and null for an empty value.
field_value shown_value(const captured_field &field, const capture_json &value,
                        const output_style &style);

} // namespace ctl
