// Compares two captures: what came, what went and what changed.
#pragma once

#include "varnokctl/capture_file.h"
#include "varnokctl/capture_view.h"
#include "varnokctl/json.h"

#include <string>
#include <vector>

namespace ctl
{

enum class change { added, gone, changed };

// "gone"
const char *change_word(change kind);

struct difference {
    change kind;
    std::string what;  // "port", "target", "device", "path" to a device, or "LUN" without identity
    std::string name;  // safe to print
    std::string field; // that changed, by its name in a capture
    field_value before, after;
};

struct capture_comparison {
    std::vector<difference> differences;
    std::vector<unread_part> unread_before, unread_after; // not compared
};

struct comparison_style {
    bool numbers = false; // those that differ from start to start, too
    output_style output;
};

// Ports are the same by their MAC address, else by their adapter's serial number and their place on
// it. Targets are the same by their name, devices by what identifies them. A LUN without identity is
// the same by its number. What one side could not read is neither added nor gone.
capture_comparison compare_captures(const capture_json &before, const capture_json &after,
                                    const comparison_style &style);

} // namespace ctl
