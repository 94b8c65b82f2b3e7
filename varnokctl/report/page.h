// The whole page.
#pragma once

#include "varnokctl/health.h"
#include "varnokctl/report/host_section.h"

#include <functional>
#include <string>
#include <vector>

namespace ctl
{

struct reported_finding {
    const health_rule *rule;
    std::string what;
};

struct reported_host {
    std::string id, name;
    health_status status = health_status::unknown;
    size_t critical = 0, warnings = 0;
    std::vector<reported_finding> findings;
    std::vector<std::string> unjudged; // why it cannot be judged
    host_totals totals;
    std::string changes; // "3 since host-monday"; empty when nothing was compared
    std::string section; // in HTML
};

struct report_contents {
    std::string title, source, made, version;
    std::vector<reported_host> hosts;
    std::vector<failed_call> missing; // captures that could not be read
};

// Writes the page piece by piece.
void write_page(const report_contents &contents,
                const std::function<void(const std::string &)> &write);

} // namespace ctl
