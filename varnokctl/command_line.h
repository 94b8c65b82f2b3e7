// What the command line asks for.
#pragma once

#include "varnokctl/diff.h"
#include "varnokctl/ending.h"
#include "varnokctl/fields.h"
#include "varnokctl/health_command.h"
#include "varnokctl/inventory.h"
#include "varnokctl/metrics_command.h"
#include "varnokctl/render.h"
#include "varnokctl/report/report.h"
#include "varnokctl/scsi_command.h"
#include "varnokctl/selection.h"
#include "varnokctl/text.h"

#include <optional>
#include <string>

namespace ctl
{

struct tool_options {
    inventory_request request;
    output_style style;
    std::string columns, sort; // as they were given
    selection chosen;          // what they mean
    std::string colour = "auto";
    std::optional<size_t> width;
    size_t verbose = 0; // how often it was asked for
    bool quiet = false;
    bool ascii = false;
    bool as_json = false;
    bool as_dot = false;
};

// A command that reads the host.
struct tool_command {
    const char *name;
    const char *help;
    unsigned options;
    unsigned needs;
    const record_kind *kind; // null for the whole host
    std::string (*document)(const inventory &, bool ascii) = nullptr;
    bool has_text = true; // else its document is all that it shows
    std::string (*text)(const inventory &, const output_style &) = tree_text;
};

struct parsed_line {
    std::optional<int> ended;              // the help was shown, or the usage is wrong
    const tool_command *command = nullptr; // null for the others
    bool is_health = false;
    bool is_scsi = false;
    bool is_diff = false;
    bool is_report = false;
    bool is_metrics = false;
    tool_options options;
    health_request health;
    scsi_options scsi;
    diff_options diff;
    report_options report;
    metrics_request metrics;
};

parsed_line parse_command_line(int argc, char **argv, const std::string &version);

} // namespace ctl
