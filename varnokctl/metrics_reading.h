// What metrics tell of the reading itself and of the health of what was read.
#pragma once

#include "varnokctl/lun_address.h"
#include "varnokctl/metric_text.h"
#include "varnokctl/metrics.h"

#include <cstdint>
#include <set>
#include <tuple>

namespace ctl
{

// Whether and how the host was read.
void add_reading(metric_text &text, const examined_host &examined, const host_reading &reading,
                 const health_report &report);

// The findings. A rule that found nothing, but may have missed something, has no number.
void add_health(metric_text &text, const examined_host &examined, const host_reading &reading,
                const health_report &report);

// The LUNs of which the health check says so.
class unreadable_luns
{
  public:
    explicit unreadable_luns(const health_report &report);

    bool contains(const port_entry &port, const target_entry &target, const lun_entry &lun) const;

  private:
    std::set<std::tuple<uint32_t, uint32_t, lun_levels>> places_;
};

} // namespace ctl
