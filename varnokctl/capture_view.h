// The ports, targets and LUNs of a capture, with what identifies them and what could not be read.
#pragma once

#include "varnokctl/capture_file.h"
#include "varnokctl/identity.h"
#include "varnokctl/text.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ctl
{

struct captured_lun {
    const capture_json *unit;   // what the LUN is
    const capture_json *number; // its "lun"
    std::string identity;       // empty when nothing tells it from other LUNs
};

struct captured_target {
    const capture_json *session; // with its target and its LUNs
    size_t number;
    std::string name;
    std::vector<captured_lun> luns;
    bool luns_unread = false; // not all are there
    bool identities_unread = false;
};

struct captured_port {
    const capture_json *object;
    std::vector<captured_target> targets;
    bool unread = false;         // it has no more than a place among the ports
    bool targets_unread = false; // not all are there
    bool fields_unread = false;  // of its portal or its sessions
};

// Something that could not be read when the host was captured.
struct unread_part {
    std::string name; // "LUNs of target iqn.x (vmhba64)"
    std::string why;
};

struct captured_host {
    std::vector<captured_port> ports;
    bool ports_unread = false; // not all are there, or one is unread
    std::vector<unread_part> unread;
};

// The value's characters: a text, an array of its bytes, or a number. Empty for null.
std::string captured_text(const capture_json &value);

// The same, safe to print.
std::string shown_text(const capture_json &value, const output_style &style);

// A member of an object, or null.
const capture_json &member_or_null(const capture_json &object, const char *key);

// The number that each of the capture's ports had on its host.
std::vector<uint32_t> port_numbers(const capture_json &document);

// What a LUN or a device of a capture is identified by.
std::vector<lun_designator> captured_designators(const capture_json &unit);

// "vmhba64"
std::string port_name(const captured_port &port, const output_style &style);

// "iqn.x (vmhba64)"
std::string target_name(const captured_port &port, const captured_target &target,
                        const output_style &style);

// The document has the form of a capture, and must outlive what this returns.
captured_host view_of(const capture_json &document, const output_style &style);

} // namespace ctl
