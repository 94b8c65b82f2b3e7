// The command "report": a page of this host, or of captures.
#pragma once

#include "varnokctl/ending.h"
#include "varnokctl/report/page.h"

#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace ctl
{

struct report_options {
    std::vector<std::string> captures; // files; "-" is standard input; none for this host
    bool quiet = false;                // no progress, and no advice with a failure
};

struct report_run {
    report_contents contents;            // no hosts when nothing could be read
    std::vector<std::string> complaints; // for standard error
    ending status = all_well;
};

CLI::App *add_report(CLI::App &app, report_options &options);

report_run run_report(const report_options &options);

// A host with all that the page says of it.
reported_host reported(const inventory &host, host_caption caption);

} // namespace ctl
