#include "varnokctl/health.h"

#include "varnokctl/json.h"
#include "varnokctl/wrapping.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <utility>

namespace ctl
{
namespace
{

constexpr std::string_view status_words[] = {"ok", "warning", "critical", "unknown"};

bool is_among(const std::vector<std::string> &names, const health_rule &rule)
{
    return std::ranges::find(names, rule.name) != names.end();
}

bool is_wanted(const health_request &request, const health_rule &rule)
{
    return !is_among(request.ignored, rule) &&
           (request.only.empty() || is_among(request.only, rule));
}

health_status status_of(const health_report &report)
{
    if (count_of(report, health_status::critical) != 0)
        return health_status::critical;
    if (!report.unjudged.empty() || report.ports == 0)
        return health_status::unknown;
    return count_of(report, health_status::warning) != 0 ? health_status::warning
                                                         : health_status::ok;
}

// "2 critical, 1 warning; 5 ports, 13 LUNs"
std::string summary_of(const health_report &report)
{
    std::vector<std::string> found;
    if (std::string text = found_text(count_of(report, health_status::critical),
                                      count_of(report, health_status::warning));
        !text.empty())
        found.push_back(std::move(text));
    if (report.unjudged.size() == 1)
        found.push_back(advice_on(report.unjudged.front()).meaning);
    else if (!report.unjudged.empty())
        found.push_back(counted(report.unjudged.size(), "failure"));
    else if (report.ports == 0)
        found.emplace_back("no adapters found");
    return fmt::format("{}{}{}, {}", fmt::join(found, ", "), found.empty() ? "" : "; ",
                       counted(report.ports, "port"), counted(report.luns, "LUN"));
}

std::string upper_case(std::string_view word)
{
    std::string text(word);
    for (char &c : text)
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return text;
}

json finding_object(const health_rule &rule, const finding &found)
{
    return {{"rule", rule.name},
            {"severity", status_word(rule.level)},
            {"ports", found.ports},
            {"target", found.target ? json(*found.target) : json()},
            {"lun", found.lun ? lun_value(*found.lun).data : json()},
            {"device", or_null(found.device)},
            {"what", found.what},
            {"next", rule.next}};
}

} // namespace

std::string_view status_word(health_status status)
{
    return status_words[static_cast<size_t>(status)];
}

size_t count_of(const health_report &report, health_status level)
{
    size_t count = 0;
    for (const auto &[rule, findings] : report.judged)
        count += rule->level == level ? findings.size() : 0;
    return count;
}

std::string found_text(size_t critical, size_t warnings)
{
    std::string text = critical == 0 ? "" : fmt::format("{} critical", critical);
    if (warnings != 0)
        text += (text.empty() ? "" : ", ") + counted(warnings, "warning");
    return text;
}

health_report judge(const examined_host &examined, const health_request &request)
{
    health_report report{};
    for (const health_rule &rule : health_rules())
        if (is_wanted(request, rule)) {
            report.judged.push_back({&rule, {}});
            rule.check(examined, report.judged.back().findings);
        }
    for (const failed_call &failure : examined.host.failures) {
        const health_rule *rule = rule_of(failure);
        if (rule == nullptr || (!is_wanted(request, *rule) && !is_among(request.ignored, *rule)))
            report.unjudged.push_back(failure);
    }
    report.not_compared = examined.lost.unknown;
    report.ports = examined.host.ports.size();
    for (const port_entry &port : examined.host.ports) {
        report.targets += port.targets.size();
        for (const target_entry &target : port.targets)
            report.luns += target.luns.size();
    }
    report.status = status_of(report);
    return report;
}

std::string health_text(const health_report &report, const output_style &style)
{
    const auto lines = [&](const std::string &text, const char *rest, bool bad) {
        std::string block = wrapped(text, "", rest, style);
        block.pop_back();
        return coloured(block, bad, style) + '\n';
    };
    std::string text =
        lines(fmt::format("{}: {}", upper_case(status_word(report.status)), summary_of(report)),
              "  ", report.status != health_status::ok);
    for (const failed_call &failure : report.unjudged)
        text += lines(fmt::format("unknown: {}", failure_text(failure)), "  ", true);
    for (const auto &[rule, findings] : report.judged) {
        if (findings.empty())
            continue;
        text +=
            lines(fmt::format("{}: {}; next: {}", status_word(rule->level), rule->name, rule->next),
                  "  ", true);
        for (const finding &found : findings)
            text += wrapped(found.what, "  ", "    ", style);
    }
    for (const std::string &what : report.not_compared)
        text += wrapped("not compared with the capture: " + what, "", "  ", style);
    return text;
}

std::string health_document(const health_report &report, const std::vector<failed_call> &failures,
                            bool ascii)
{
    json document = new_document("health");
    document["status"] = status_word(report.status);
    document["summary"] = summary_of(report);
    document["read"] = {
        {"ports", report.ports}, {"targets", report.targets}, {"luns", report.luns}};
    document["rules"] = json::array();
    document["findings"] = json::array();
    for (const auto &[rule, findings] : report.judged) {
        document["rules"].push_back(rule->name);
        for (const finding &found : findings)
            document["findings"].push_back(finding_object(*rule, found));
    }
    document["not_compared"] = report.not_compared;
    return finished_text(document, failures, ascii);
}

} // namespace ctl
