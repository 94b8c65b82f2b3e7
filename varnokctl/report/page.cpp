#include "varnokctl/report/page.h"

#include "varnokctl/report/finding_marks.h"
#include "varnokctl/report/templates.h"
#include "varnokctl/text.h"

#include <fmt/format.h>
#include <map>
#include <utility>

namespace ctl
{
namespace
{

struct placed_finding {
    const reported_host *host;
    const std::string *what;
};

page_list finding_list(std::span<const placed_finding> findings, const char *level, bool several)
{
    page_list list;
    for (const auto &[host, what] : findings) {
        page_data item;
        item["level"] = level;
        item["what"] = *what;
        item["id"] = host->id;
        item["host"] = several ? page_data(host->name) : page_data(false);
        list.push_back(std::move(item));
    }
    return list;
}

std::string rule_text(const health_rule &rule, std::span<const placed_finding> findings,
                      bool several)
{
    constexpr size_t most_at_once = 12;
    const char *const level = mark_of(rule.level);
    const size_t at_once = findings.size() > most_at_once + 3 ? most_at_once : findings.size();
    page_data data;
    data["level"] = level;
    data["rule"] = rule.name;
    data["severity"] = std::string(status_word(rule.level));
    data["looks_at"] = rule.looks_at;
    data["next"] = rule.next;
    data["first"] = finding_list(findings.first(at_once), level, several);
    data["has_rest"] = at_once != findings.size();
    data["rest_count"] = fmt::to_string(findings.size() - at_once);
    data["rest"] = finding_list(findings.subspan(at_once), level, several);
    return filled(report_template::finding_rule, data);
}

health_status status_of(const report_contents &contents)
{
    health_status status = contents.missing.empty() ? health_status::ok : health_status::unknown;
    for (const reported_host &host : contents.hosts)
        status = worse(status, host.status);
    return status;
}

// "2 critical, 1 warning, on 2 of 5 hosts"
std::string summary_of(const report_contents &contents)
{
    size_t critical = 0, warnings = 0, unwell = 0;
    for (const reported_host &host : contents.hosts) {
        critical += host.critical;
        warnings += host.warnings;
        unwell += host.status != health_status::ok ? 1 : 0;
    }
    std::string text = found_text(critical, warnings);
    if (text.empty())
        text = unwell == 0 ? "nothing found" : "not everything could be judged";
    if (contents.hosts.size() > 1)
        text += fmt::format(", on {} of {} hosts", unwell, contents.hosts.size());
    return text;
}

page_list missing_list(const report_contents &contents)
{
    page_list list;
    const auto add = [&](const std::string &what, const std::string &next) {
        page_data item;
        item["what"] = what;
        item["next"] = next.empty() ? page_data(false) : page_data(next);
        list.push_back(std::move(item));
    };
    for (const failed_call &failure : contents.missing)
        add(advice_on(failure).meaning, advice_on(failure).next);
    for (const reported_host &host : contents.hosts)
        for (const std::string &why : host.unjudged)
            add(fmt::format("{}: {}", host.name, why), "");
    return list;
}

page_list host_rows(const report_contents &contents)
{
    page_list rows;
    for (const reported_host &host : contents.hosts) {
        page_data row;
        row["level"] = host.status == health_status::ok ? "" : mark_of(host.status);
        row["status"] = std::string(status_word(host.status));
        row["id"] = host.id;
        row["name"] = host.name;
        row["found"] = found_text(host.critical, host.warnings);
        row["mark"] = mark_of(host.status);
        row["online"] = host.totals.ports_online;
        row["targets"] = host.totals.targets;
        row["luns"] = host.totals.luns;
        row["devices"] = host.totals.devices;
        row["capacity"] = host.totals.capacity;
        row["changes"] = host.changes;
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace

void write_page(const report_contents &contents,
                const std::function<void(const std::string &)> &write)
{
    const bool several = contents.hosts.size() > 1;
    const health_status status = status_of(contents);
    page_data data;
    data["title"] = contents.title;
    data["source"] = contents.source;
    data["made"] = contents.made;
    data["version"] = contents.version;
    data["level"] = mark_of(status);
    data["status"] = std::string(status_word(status));
    data["summary"] = summary_of(contents);
    data["several"] = several;
    const page_list missing = missing_list(contents);
    data["has_missing"] = !missing.empty();
    data["missing"] = missing;
    write(filled(report_template::page_begin, data));

    std::map<const health_rule *, std::vector<placed_finding>> by_rule; // in the rules' order
    for (const reported_host &host : contents.hosts)
        for (const reported_finding &found : host.findings)
            by_rule[found.rule].push_back({&host, &found.what});
    for (const auto &[rule, findings] : by_rule)
        write(rule_text(*rule, findings, several));

    data["hosts"] = host_rows(contents);
    write(filled(report_template::hosts_table, data));
    for (const reported_host &host : contents.hosts)
        write(host.section);
    write(filled(report_template::page_end, data));
}

} // namespace ctl
