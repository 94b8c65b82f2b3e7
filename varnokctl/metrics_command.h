// "metrics" on the command line.
#pragma once

#include "varnokctl/ending.h"

#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace ctl
{

struct metrics_request {
    bool no_luns = false;
    std::string against;  // a capture; empty for none
    std::string textfile; // empty for standard output
};

struct metrics_output {
    std::string text; // for standard output
    std::vector<failed_call> failures;
    ending status;
};

CLI::App *add_metrics(CLI::App &app, metrics_request &request);

// Without a line of progress if it is to be quiet.
metrics_output run_metrics(const metrics_request &request, bool quiet, const std::string &version);

} // namespace ctl
