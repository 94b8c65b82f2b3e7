#include "varnokctl/metrics_command.h"

#include "varnokctl/health_against.h"
#include "varnokctl/inventory.h"
#include "varnokctl/metrics.h"
#include "varnokctl/text.h"
#include "varnokctl/text_file.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <fmt/format.h>
#include <string_view>
#include <system_error>
#include <utility>

namespace ctl
{
namespace
{

constexpr std::string_view collected = ".prom";

const CLI::Validator is_collected(
    [](const std::string &path) {
        return path.ends_with(collected) ? ""
                                         : "the node exporter reads only files that end with .prom";
    },
    "");

unsigned asked_for(const metrics_request &request)
{
    const unsigned always = need_portals | need_sessions | need_targets;
    if (request.no_luns)
        return always;
    return always |
           (request.against.empty() ? need_identities : need_all_designators | compared_capture);
}

} // namespace

CLI::App *add_metrics(CLI::App &app, metrics_request &request)
{
    CLI::App *sub = app.add_subcommand("metrics", "Print the host as metrics for Prometheus");
    sub->add_option("--textfile", request.textfile,
                    "Write to this file instead, for the node exporter; its name ends with .prom")
        ->check(is_collected);
    CLI::Option *no_luns = sub->add_flag("--no-luns", request.no_luns,
                                         "Read no LUNs: fewer metrics, and no rules about LUNs");
    sub->add_option("--against", request.against,
                    "Look for what is gone since this capture, too; - for standard input")
        ->excludes(no_luns);
    sub->add_flag_callback(
           "--json",
           [] {
               throw CLI::ValidationError(
                   "--json", "metrics have one form; 'varnokctl tree --json' and 'varnokctl health "
                             "--json' tell the same");
           })
        ->group(""); // not in the help
    return sub;
}

metrics_output run_metrics(const metrics_request &request, bool quiet, const std::string &version)
{
    const unsigned asked = asked_for(request);
    const auto start = std::chrono::steady_clock::now();
    inventory_request wanted;
    wanted.needs = asked;
    inventory host = read_host(wanted, quiet ? progress::none() : progress(stderr));
    const host_reading reading = {asked, std::chrono::steady_clock::now() - start,
                                  std::chrono::system_clock::now().time_since_epoch(), version};
    const output_style style = {.utf8 = true};
    lost_parts lost;
    if (!request.against.empty())
        lost = lost_since(request.against, host, style);
    std::string text = metrics_text({host, style, lost}, reading);
    if (request.textfile.empty())
        return {std::move(text), host.failures, ending_of(host)};
    const int error = replace_file(request.textfile, text);
    if (error == 0)
        return {"", host.failures, ending_of(host)};
    host.failures.push_back({.call = call_name::write_file,
                             .cause = failure_cause::file_not_written,
                             .status = static_cast<uint32_t>(error),
                             .detail = fmt::format("{}: {}", safe_text(request.textfile),
                                                   std::generic_category().message(error))});
    return {"", host.failures, refused};
}

} // namespace ctl
