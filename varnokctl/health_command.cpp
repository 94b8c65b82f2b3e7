#include "varnokctl/health_command.h"

#include "varnokctl/words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>

namespace ctl
{
namespace
{

constexpr code_word health_endings[] = {
    {static_cast<uint32_t>(health_status::ok), "all is well"},
    {static_cast<uint32_t>(health_status::warning), "there are warnings"},
    {static_cast<uint32_t>(health_status::critical), "something is critical"},
    {static_cast<uint32_t>(health_status::unknown),
     "the host cannot be judged, or the usage is wrong"},
};

std::string help_text()
{
    std::string text = "Rules:\n";
    for (const health_rule &rule : health_rules())
        text += fmt::format("  {} ({}):\n    {}\n    next: {}\n", rule.name,
                            status_word(rule.level), rule.looks_at, rule.next);
    text += "\nExit status:\n";
    for (const auto &[code, meaning] : health_endings)
        text += fmt::format("  {}  {}\n", code, meaning);
    return text;
}

std::string no_such_rule(const std::string &name)
{
    return find_rule(name) != nullptr
               ? ""
               : fmt::format("there is no rule '{}'; the rules are {}", name, rule_names());
}

} // namespace

CLI::App *add_health(CLI::App &app, health_request &health, inventory_request &request)
{
    const CLI::Validator is_rule(no_such_rule, "");
    CLI::App *sub = app.add_subcommand("health", "Look for what is wrong, for a monitoring system");
    sub->footer(help_text());
    CLI::Option *port = sub->add_option("-p,--port", request.port.text, port_help);
    sub->add_option("--ignore", health.ignored, "A rule that is not to be checked; may be repeated")
        ->check(is_rule)
        ->allow_extra_args(false);
    sub->add_option("--only", health.only, "Check only this rule; may be repeated")
        ->check(is_rule)
        ->allow_extra_args(false);
    sub->add_option("--against", health.against,
                    "Look for what is gone since this capture, too; - for standard input")
        ->excludes(port);
    sub->final_callback([&health] {
        const bool wants_gone = std::ranges::find(health.only, gone_rule) != health.only.end();
        if (wants_gone && health.against.empty())
            throw CLI::ValidationError("--only", fmt::format("{} requires --against", gone_rule));
        const auto is_checked = [&health](const health_rule &rule) {
            const auto names = [&rule](const std::vector<std::string> &list) {
                return std::ranges::find(list, rule.name) != list.end();
            };
            return (health.only.empty() || names(health.only)) && !names(health.ignored);
        };
        if (std::ranges::none_of(health_rules(), is_checked))
            throw CLI::ValidationError("--ignore", "no rule is left to be checked");
    });
    return sub;
}

} // namespace ctl
