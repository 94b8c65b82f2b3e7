// Judges a host by a table of rules.
#pragma once

#include "varnokctl/devices.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/model.h"
#include "varnokctl/networks.h"
#include "varnokctl/text.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ctl
{

// They are the exit statuses, as monitoring has them.
enum class health_status { ok = 0, warning = 1, critical = 2, unknown = 3 };

std::string_view status_word(health_status status); // "critical"

struct finding {
    std::vector<uint32_t> ports{};
    std::optional<uint32_t> target{};
    std::optional<lun_levels> lun{};
    std::string device{};
    std::string what; // it names them, too
};

// Since a capture.
struct lost_parts {
    std::vector<std::string> gone;    // in words
    std::vector<std::string> unknown; // the capture does not have it
};

// What the rules look at.
struct examined_host {
    examined_host(const inventory &read, const output_style &shown, lost_parts missing)
        : host(read), style(shown), places(read, shown), devices(devices_of(read, places, shown)),
          lost(std::move(missing))
    {
    }

    const inventory &host;
    output_style style;
    port_places places;
    std::vector<device_entry> devices;
    lost_parts lost;
};

struct health_rule {
    const char *name;
    health_status level;  // of a finding: warning or critical
    const char *looks_at; // when there is a finding
    const char *next;     // what to do about it
    void (*check)(const examined_host &, std::vector<finding> &);
    unsigned needs; // what it looks at: of enum need, and compared_capture
};

constexpr unsigned compared_capture = 1U << 16;

// Critical ones first.
std::span<const health_rule> health_rules();

constexpr const char *gone_rule = "gone";

// Null when there is none.
const health_rule *find_rule(std::string_view name);

// "port-unreadable, port-offline, ..."
std::string rule_names();

// Of which rule a failed call is a finding. Null when it says that the host itself was not read.
const health_rule *rule_of(const failed_call &failure);

struct health_request {
    std::vector<std::string> ignored, only; // names of rules
    std::string against;                    // a capture; empty for none
};

struct rule_findings {
    const health_rule *rule;
    std::vector<finding> findings; // none when all is well
};

struct health_report {
    health_status status;
    std::vector<rule_findings> judged;     // the rules that were asked for
    std::vector<failed_call> unjudged;     // nothing that was asked for covers these
    std::vector<std::string> not_compared; // with the capture
    size_t ports, targets, luns;
};

size_t count_of(const health_report &report, health_status level);

// "2 critical, 1 warning"; empty for none.
std::string found_text(size_t critical, size_t warnings);

health_report judge(const examined_host &examined, const health_request &request);

// The summary is the first line.
std::string health_text(const health_report &report, const output_style &style);

std::string health_document(const health_report &report, const std::vector<failed_call> &failures,
                            bool ascii);

} // namespace ctl
