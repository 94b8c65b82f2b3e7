// varnokctl - shows a host's iSCSI offload adapters.
#include "varnokctl/command_line.h"
#include "varnokctl/document.h"
#include "varnokctl/ending.h"
#include "varnokctl/health_against.h"
#include "varnokctl/render.h"
#include "varnokctl/scsi_output.h"
#include "varnokctl/scsi_target.h"
#include "varnokctl/terminal.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fmt/format.h>
#include <langinfo.h>
#include <malloc.h>
#include <string>
#include <string_view>
#include <vector>

namespace
{

void print(const std::string &text) { fmt::print("{}", text); }

void print_version(const ctl::tool_options &options)
{
    if (options.as_json)
        return print(ctl::version_document(VARNOKCTL_VERSION, options.ascii));
    fmt::print("varnokctl {}\n{} (0x{:08x})\n", VARNOKCTL_VERSION, varnok_version_description,
               VARNOK_GetVersion(nullptr, 0));
}

void complain(const std::vector<ctl::failed_call> &failures, bool quiet)
{
    std::fflush(stdout);
    for (const ctl::failed_call &failure : failures)
        fmt::print(stderr, "varnokctl: {}\n", ctl::failure_text(failure, !quiet));
}

void print_document(const ctl::tool_command &command, const ctl::inventory &host,
                    const ctl::tool_options &options)
{
    print(command.kind != nullptr
              ? ctl::listing_document(host, *command.kind, options.ascii, options.chosen)
              : command.document(host, options.ascii));
}

void print_text(const ctl::tool_command &command, const ctl::inventory &host,
                const ctl::tool_options &options)
{
    const bool answered = !host.ports.empty() || host.failures.empty();
    if (!command.has_text && answered)
        print_document(command, host, options);
    else if (options.as_dot && answered)
        print(ctl::dot_text(host, options.style));
    else if (host.ports.empty() && host.failures.empty())
        print("no adapters found\n");
    else if (command.kind != nullptr)
        print(ctl::listing_text(host, *command.kind, options.style, options.chosen));
    else if (answered)
        print(command.text(host, options.style));
    complain(host.failures, options.quiet);
}

ctl::ending show(const ctl::tool_command &command, const ctl::tool_options &options)
{
    ctl::inventory_request request = options.request;
    request.needs = command.needs;
    if (options.style.identity || ctl::wants_identity(options.chosen) ||
        (options.style.details && command.kind == &ctl::lun_kind))
        request.needs |= ctl::need_identities;
    const ctl::inventory host =
        ctl::read_host(request, options.quiet ? ctl::progress::none() : ctl::progress(stderr));
    if (options.as_json)
        print_document(command, host, options);
    else
        print_text(command, host, options);
    return ctl::ending_of(host);
}

ctl::ending show_scsi(ctl::scsi_options &scsi, const ctl::tool_options &options)
{
    ctl::scsi_result result;
    if (ctl::find_target(scsi, result.failures))
        result = ctl::run_scsi(scsi);
    if (options.as_json) {
        print(ctl::scsi_document(scsi.request, result, options.ascii));
    } else {
        print(ctl::scsi_text(scsi.request, result));
        complain(result.failures, options.quiet);
    }
    return ctl::ending_of({.ports = {}, .failures = result.failures});
}

int show_health(const ctl::health_request &health, const ctl::tool_options &options)
{
    ctl::inventory_request request = options.request;
    request.needs = ctl::need_portals | ctl::need_sessions |
                    (health.against.empty() ? ctl::need_identities : ctl::need_all_designators);
    ctl::inventory host =
        ctl::read_host(request, options.quiet ? ctl::progress::none() : ctl::progress(stderr));
    const ctl::output_style style =
        options.as_json ? ctl::output_style{.utf8 = true} : options.style;
    ctl::lost_parts lost;
    if (!health.against.empty())
        lost = ctl::lost_since(health.against, host, style);
    const ctl::health_report report = ctl::judge({host, style, lost}, health);
    print(options.as_json ? ctl::health_document(report, host.failures, options.ascii)
                          : ctl::health_text(report, style));
    return static_cast<int>(report.status);
}

ctl::ending show_diff(const ctl::diff_options &diff, const ctl::tool_options &options)
{
    const ctl::diff_output output = options.as_json ? ctl::run_diff_as_document(diff, options.ascii)
                                                    : ctl::run_diff(diff, options.style);
    print(output.text);
    std::fflush(stdout);
    fmt::print(stderr, "{}", output.notes);
    return output.status;
}

// Nothing is written unless there is a host to show.
ctl::ending write_report(ctl::report_options &report, const ctl::tool_options &options)
{
    report.quiet = options.quiet;
    ctl::report_run run = ctl::run_report(report);
    run.contents.version = VARNOKCTL_VERSION;
    if (!run.contents.hosts.empty())
        ctl::write_page(run.contents, print);
    std::fflush(stdout);
    for (const std::string &complaint : run.complaints)
        fmt::print(stderr, "varnokctl: {}\n", complaint);
    return run.status;
}

ctl::ending show_metrics(const ctl::metrics_request &metrics, const ctl::tool_options &options)
{
    const ctl::metrics_output output = ctl::run_metrics(metrics, options.quiet, VARNOKCTL_VERSION);
    print(output.text);
    complain(output.failures, options.quiet);
    return output.status;
}

// A command to a native driver takes two blocks of 256 KiB. By default the allocator gets them from
// the kernel and returns them each time, which makes four fifths of the command's own time.
void keep_memory()
{
    constexpr int most_kept = 8 << 20;
    mallopt(M_MMAP_THRESHOLD, most_kept);
    mallopt(M_TRIM_THRESHOLD, most_kept);
}

// The status is what a failure of the program itself ends with.
int run(int argc, char **argv, int &status_of_failure)
{
    std::setlocale(LC_CTYPE, "");
    keep_memory();
    ctl::parsed_line line = ctl::parse_command_line(argc, argv, VARNOKCTL_VERSION);
    if (line.ended)
        return *line.ended;
    if (line.options.verbose != 0)
        setenv("VARNOK_API_DEBUG", line.options.verbose == 1 ? "4" : "6", 1);
    if (line.is_health)
        status_of_failure = static_cast<int>(ctl::health_status::unknown);
    if (line.is_diff)
        status_of_failure = ctl::usage; // trouble, as diff(1) has it
    ctl::output_style &style = line.options.style;
    style.utf8 = !line.options.ascii && std::string_view(nl_langinfo(CODESET)) == "UTF-8";
    style.width = line.options.width.value_or(ctl::output_width());
    if (style.width == 0)
        style.width = ctl::unlimited_width;
    style.colours = line.options.colour == "always" ||
                    (line.options.colour == "auto" && ctl::output_has_colours());
    if (line.command != nullptr)
        return show(*line.command, line.options);
    if (line.is_health)
        return show_health(line.health, line.options);
    if (line.is_scsi)
        return show_scsi(line.scsi, line.options);
    if (line.is_diff)
        return show_diff(line.diff, line.options);
    if (line.is_report)
        return write_report(line.report, line.options);
    if (line.is_metrics)
        return show_metrics(line.metrics, line.options);
    print_version(line.options);
    return ctl::all_well;
}

} // namespace

int main(int argc, char **argv)
{
    int status_of_failure = ctl::refused;
    try {
        const int status = run(argc, argv, status_of_failure);
        if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
            return status;
        std::perror("varnokctl: output");
    } catch (const std::exception &error) {
        std::fprintf(stderr, "varnokctl: %s\n", ctl::safe_text(error.what()).c_str());
    }
    return status_of_failure;
}
