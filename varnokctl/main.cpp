// varnokctl - shows a host's iSCSI offload adapters.
#include "varnokctl/command_line.h"
#include "varnokctl/document.h"
#include "varnokctl/ending.h"
#include "varnokctl/render.h"
#include "varnokctl/scsi_output.h"
#include "varnokctl/terminal.h"

#include <clocale>
#include <cstdio>
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

void complain(const std::vector<ctl::failed_call> &failures)
{
    std::fflush(stdout);
    for (const ctl::failed_call &failure : failures)
        fmt::print(stderr, "varnokctl: {}\n", ctl::failure_text(failure));
}

void print_document(const ctl::tool_command &command, const ctl::inventory &host, bool ascii)
{
    print(command.kind != nullptr ? ctl::listing_document(host, *command.kind, ascii)
                                  : command.document(host, ascii));
}

void print_text(const ctl::tool_command &command, const ctl::inventory &host,
                const ctl::tool_options &options)
{
    const bool answered = !host.ports.empty() || host.failures.empty();
    if (!command.has_text && answered)
        print_document(command, host, options.ascii);
    else if (options.as_dot && answered)
        print(ctl::dot_text(host, options.style));
    else if (host.ports.empty() && host.failures.empty())
        print("no adapters found\n");
    else if (command.kind != nullptr)
        print(ctl::listing_text(host, *command.kind, options.style));
    else if (answered)
        print(ctl::tree_text(host, options.style));
    complain(host.failures);
}

ctl::ending show(const ctl::tool_command &command, const ctl::tool_options &options)
{
    ctl::inventory_request request = options.request;
    request.needs = command.needs;
    if (options.style.identity || (options.style.details && command.kind == &ctl::lun_kind))
        request.needs |= ctl::need_identities;
    const ctl::inventory host = ctl::read_host(request);
    if (options.as_json)
        print_document(command, host, options.ascii);
    else
        print_text(command, host, options);
    return ctl::ending_of(host);
}

ctl::ending show_scsi(ctl::scsi_options &scsi, const ctl::tool_options &options)
{
    const ctl::scsi_result result = ctl::run_scsi(scsi);
    if (options.as_json) {
        print(ctl::scsi_document(scsi.request, result, options.ascii));
    } else {
        print(ctl::scsi_text(scsi.request, result));
        complain(result.failures);
    }
    return ctl::ending_of({.ports = {}, .failures = result.failures});
}

// A command to a native driver takes two blocks of 256 KiB. By default the allocator gets them from
// the kernel and returns them each time, which makes four fifths of the command's own time.
void keep_memory()
{
    constexpr int most_kept = 8 << 20;
    mallopt(M_MMAP_THRESHOLD, most_kept);
    mallopt(M_TRIM_THRESHOLD, most_kept);
}

ctl::ending run(int argc, char **argv)
{
    std::setlocale(LC_CTYPE, "");
    keep_memory();
    ctl::parsed_line line = ctl::parse_command_line(argc, argv, VARNOKCTL_VERSION);
    if (line.ended)
        return *line.ended;
    ctl::output_style &style = line.options.style;
    style.utf8 = !line.options.ascii && std::string_view(nl_langinfo(CODESET)) == "UTF-8";
    style.width = ctl::output_width();
    if (line.command != nullptr)
        return show(*line.command, line.options);
    if (line.is_scsi)
        return show_scsi(line.scsi, line.options);
    print_version(line.options);
    return ctl::all_well;
}

} // namespace

int main(int argc, char **argv)
try {
    const ctl::ending status = run(argc, argv);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::perror("varnokctl: output");
    return ctl::refused;
} catch (const std::exception &error) {
    std::fprintf(stderr, "varnokctl: %s\n", ctl::safe_text(error.what()).c_str());
    return ctl::refused;
}
