// Where on a host its findings are.
#pragma once

#include "varnokctl/health.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ctl
{

// The page's classes for states: what they look like stands in its style.
constexpr const char *mark_ok = "o", *mark_unknown = "u", *mark_warning = "w", *mark_critical = "c";

const char *mark_of(health_status status);

// The worse of two. What is unknown is worse than a warning.
health_status worse(health_status one, health_status other);

struct finding_mark {
    health_status level = health_status::ok;
    std::vector<const char *> rules{};
    std::vector<std::string> texts{}; // of devices alone
};

class finding_marks
{
  public:
    finding_marks(const examined_host &examined, const health_report &report);

    const finding_mark &port(const port_entry &port) const;
    const finding_mark &target(const port_entry &port, const target_entry &target) const;
    finding_mark device(const device_entry &device) const;

  private:
    using target_place = std::pair<uint32_t, uint32_t>;

    void add(const health_rule &rule, const finding &found);

    std::map<uint32_t, finding_mark> ports_;
    std::map<target_place, finding_mark> targets_;
    std::map<std::pair<target_place, lun_levels>, finding_mark> luns_;
};

} // namespace ctl
