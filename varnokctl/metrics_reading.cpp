#include "varnokctl/metrics_reading.h"

#include "varnokctl/health_judged.h"

#include <algorithm>
#include <string_view>

namespace ctl
{
namespace
{

constexpr metric_family up = {"varnok_up", "",
                              "Whether the library was loaded and knows the ports."};
constexpr metric_family complete = {"varnok_read_complete", "",
                                    "Whether all that was asked for could be read."};
constexpr metric_family duration = {"varnok_read_duration_seconds", "seconds",
                                    "Time that the reading took."};
constexpr metric_family timestamp = {"varnok_read_timestamp_seconds", "seconds",
                                     "End of the reading, in seconds since 1970."};
constexpr metric_family failures = {"varnok_read_failures", "", "Calls that failed, by the call."};
constexpr metric_family unread = {"varnok_unread_info", "",
                                  "Why the host as a whole could not be read, and what to do."};
constexpr metric_family build = {"varnok_build_info", "",
                                 "Versions of the tool and of the library."};
constexpr metric_family port_count = {"varnok_ports", "",
                                      "Ports of the host, with unreadable ones."};

constexpr metric_family findings_metric = {
    "varnok_health_findings", "", "Findings of a rule. Left out if it may have missed some."};
constexpr metric_family judged_metric = {
    "varnok_health_rule_judged", "", "Whether a rule could look at all that it has to look at."};
constexpr metric_family finding_info = {"varnok_health_finding_info", "",
                                        "What a rule found, and what to do about it."};

bool is_up(const inventory &host)
{
    return std::ranges::none_of(host.failures, [](const failed_call &failure) {
        return failure.call == call_name::load_library || failure.call == call_name::get_port_count;
    });
}

// Calls that did not fail have a 0: so a first failure shows as a change.
void add_failures(metric_text &text, const inventory &host)
{
    constexpr auto last = static_cast<size_t>(call_name::read_file);
    text.begin(failures);
    for (size_t at = 0; at <= last; ++at) {
        const auto call = static_cast<call_name>(at);
        const auto count = std::ranges::count(host.failures, call, &failed_call::call);
        text.add(label_set().add("call", call_text(call)), static_cast<uint64_t>(count));
    }
}

label_set rule_labels(const health_rule &rule)
{
    return label_set().add("rule", rule.name).add("severity", status_word(rule.level));
}

} // namespace

void add_reading(metric_text &text, const examined_host &examined, const host_reading &reading,
                 const health_report &report)
{
    const inventory &host = examined.host;
    text.begin(build);
    text.add(label_set().add("version", reading.version).add("library", varnok_version_description),
             1);
    text.begin(up);
    text.add({}, is_up(host) ? 1 : 0);
    text.begin(complete);
    text.add({}, host.failures.empty() ? 1 : 0);
    text.begin(duration);
    text.add_seconds(reading.took.count());
    text.begin(timestamp);
    text.add_seconds(reading.end.count());
    add_failures(text, host);
    text.begin(unread);
    distinct_labels whys("duplicate");
    for (const failed_call &failure : report.unjudged)
        text.add(whys.of(label_set()
                             .add("what", failure_text(failure, false))
                             .add("next", advice_on(failure).next)),
                 1);
    text.begin(port_count);
    if (is_up(host))
        text.add({}, host.ports.size());
}

void add_health(metric_text &text, const examined_host &examined, const host_reading &reading,
                const health_report &report)
{
    const auto is_judged = [&](const health_rule &rule) {
        return is_wholly_judged(rule, examined, reading.asked);
    };
    text.begin(judged_metric);
    for (const rule_findings &one : report.judged)
        text.add(rule_labels(*one.rule), is_judged(*one.rule) ? 1 : 0);
    text.begin(findings_metric);
    for (const auto &[rule, findings] : report.judged)
        if (!findings.empty() || is_judged(*rule))
            text.add(rule_labels(*rule), findings.size());
    text.begin(finding_info);
    distinct_labels whats("duplicate");
    for (const auto &[rule, findings] : report.judged)
        for (const finding &found : findings)
            text.add(whats.of(rule_labels(*rule).add("what", found.what).add("next", rule->next)),
                     1);
}

unreadable_luns::unreadable_luns(const health_report &report)
{
    const health_rule *rule = find_rule("lun-unreadable");
    for (const auto &[judged, findings] : report.judged)
        if (judged == rule)
            for (const finding &found : findings)
                if (found.target && found.lun)
                    places_.emplace(found.ports.front(), *found.target, *found.lun);
}

bool unreadable_luns::contains(const port_entry &port, const target_entry &target,
                               const lun_entry &lun) const
{
    return places_.contains({port.instance, target.info.ScsiTgtNum, levels_of(lun.info)});
}

} // namespace ctl
