// The fields of each kind of record, for tables and for JSON documents.
#pragma once

#include "varnokctl/model.h"
#include "varnokctl/text.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ctl
{

struct field_value;

// One record and those that it belongs to. Pointers that do not apply are null.
struct listed_record {
    uint32_t port;
    const char *failed = nullptr; // why there is no more than the number; null when there is
    const VARNOK_PHY_PORT_INFO *info = nullptr;
    const VARNOK_ISCSI_PORTAL *portal = nullptr;
    const session_entry *session = nullptr;
    const VARNOK_TGT_INFO *target = nullptr;
    const VARNOK_LUN_INFO *lun = nullptr;
    const lun_identity *identity = nullptr;
    bool is_counted = true, is_known = true; // the target's LUNs, and the LUN
};

enum class look { text, long_text, number };         // a narrow table cuts long texts first
enum class view { table, details, bytes, identity }; // always, or with the option of this name

struct record_field {
    const char *title;
    const char *key; // in a document, and for --columns and --sort
    look shape;
    view where;
    field_value (*value)(const listed_record &, const output_style &);
    bool in_document = true;  // else another field has the same data
    bool of_identity = false; // is read from the LUN itself, and in a document's "identity"
};

struct record_kind {
    const char *plural; // for the eye
    const char *key;    // in a document
    std::span<const record_field> fields;
    void (*add_records)(const port_entry &, std::vector<listed_record> &);
    bool (*is_bad)(const listed_record &) = nullptr; // down or failed; null: never
};

extern const record_kind port_kind, portal_kind, session_kind, target_kind, lun_kind;

listed_record record_of(const lun_entry &lun, const target_entry &target, uint32_t port);

// The host's records, without those of ports that could not be read.
std::vector<listed_record> records_of(const inventory &host, const record_kind &kind);

// What the field shows of the record.
std::string text_of(const record_field &field, const listed_record &record,
                    const output_style &style);

// The session that leads to a port's target; null when it was not read.
const session_entry *session_of(const port_entry &port, uint32_t target);

// False for a session that never logged in: the protocol has no bursts of length 0 and no limit of 0
// requests. Then its other values are not known either.
bool is_negotiated(const VARNOK_SESS_INFO &session);

// Where a target is reached: by what its session says, and by what the target itself says.
ip_endpoint target_endpoint(const VARNOK_SESS_INFO &session);
ip_endpoint target_endpoint(const VARNOK_TGT_INFO &target);

} // namespace ctl
