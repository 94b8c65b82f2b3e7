// A host as metrics, for Prometheus and its like.
#pragma once

#include "varnokctl/health.h"

#include <chrono>
#include <string>

namespace ctl
{

// How the host was read.
struct host_reading {
    unsigned asked;                     // of enum need, and compared_capture
    std::chrono::duration<double> took; // in seconds
    std::chrono::duration<double> end;  // since 1970
    std::string version;                // of the tool
};

std::string metrics_text(const examined_host &examined, const host_reading &reading);

} // namespace ctl
