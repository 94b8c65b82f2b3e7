// What the page says of one host.
#pragma once

#include "varnokctl/capture_diff.h"
#include "varnokctl/health.h"

#include <optional>
#include <string>

namespace ctl
{

// The page's text is UTF-8.
constexpr output_style page_style = {.utf8 = true};

struct host_caption {
    std::string id, name;
    bool open = true;     // whether the devices are shown at once
    std::string before{}; // the name of the capture before; empty for none
    std::optional<capture_comparison> changes{};
};

// As the table of hosts shows them: "4 of 5", "13", "at least 4.4 TiB".
struct host_totals {
    std::string ports_online, targets, luns, devices, capacity;
};

host_totals totals_of(const examined_host &examined);

// In HTML.
std::string host_section(const examined_host &examined, const health_report &report,
                         const host_caption &caption);

} // namespace ctl
