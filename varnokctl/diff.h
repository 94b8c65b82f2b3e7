// The command "diff": compares two captures, or a capture and this host.
#pragma once

#include "varnokctl/ending.h"
#include "varnokctl/text.h"

#include <string>

namespace ctl
{

extern const char *const diff_help;

struct diff_options {
    std::string before; // a file; "-" is standard input
    std::string after;  // empty for this host
    bool numbers = false;
};

struct diff_output {
    std::string text;  // for standard output
    std::string notes; // for standard error
    ending status;
};

diff_output run_diff(const diff_options &options, const output_style &style);

// All of it in one document.
diff_output run_diff_as_document(const diff_options &options, bool ascii);

} // namespace ctl
