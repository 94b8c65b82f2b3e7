// The fields of each kind of record: what the tables and the JSON documents show, in one place.
#pragma once

#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "varnokctl/model.h"
#include "varnokctl/text.h"

namespace ctl
{

using json = nlohmann::ordered_json;

// One record with those that it belongs to; those that do not apply are null.
struct listed_record {
    uint32_t port;
    const VARNOK_PHY_PORT_INFO *info = nullptr;
    const VARNOK_ISCSI_PORTAL *portal = nullptr;
    const ctl::session_entry *session = nullptr;
    const VARNOK_TGT_INFO *target = nullptr;
    const VARNOK_LUN_INFO *lun = nullptr;
};

enum class look { text, long_text, number }; // long texts give way first in a narrow table
enum class view { table, details, bytes };   // always; with all fields; with sizes in bytes too

// A value for the eye and for a program.
struct field_value {
    std::string text;
    json value;
};

struct record_field {
    const char *title;
    const char *key; // in a document; null when another field says it
    look shape;
    view where;
    field_value (*value)(const listed_record &, const output_style &);
};

struct record_kind {
    const char *plural; // for the eye
    const char *key;
    std::span<const record_field> fields;
    std::vector<listed_record> (*items)(const inventory &);
};

extern const record_kind port_kind, portal_kind, session_kind, target_kind, lun_kind;

// The session that leads to a port's target; null when it was not read.
const session_entry *session_of(const port_entry &port, uint32_t target);

// Where a target is reached, by what its session or the target itself says.
field_value target_endpoint(const VARNOK_SESS_INFO &session);
field_value target_endpoint(const VARNOK_TGT_INFO &target);

// A LUN by its number, its addressing method and its bytes.
field_value lun_cell(uint32_t levels_1_and_2, uint32_t levels_3_and_4);

// A code with its word; a word may be missing.
field_value coded(uint64_t code, const std::string &word);

} // namespace ctl
