// varnokctl - shows a host's iSCSI offload adapters.
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <langinfo.h>
#include <malloc.h>

#include "varnokctl/capture.h"
#include "varnokctl/document.h"
#include "varnokctl/ending.h"
#include "varnokctl/failure.h"
#include "varnokctl/inventory.h"
#include "varnokctl/render.h"
#include "varnokctl/scsi_command.h"
#include "varnokctl/scsi_output.h"
#include "varnokctl/terminal.h"

namespace
{

struct tool_options {
    ctl::inventory_request ask;
    ctl::output_style style;
    bool ascii = false;
    bool as_json = false;
    bool as_dot = false;
};

enum command_option : unsigned {
    takes_port = 1,
    takes_target = 2,
    takes_bytes = 4,
    takes_details = 8,
    takes_dot = 16,
};

struct tool_command {
    const char *name;
    const char *help;
    unsigned options;
    unsigned needs;
    const ctl::record_kind *kind; // null for the whole host
    ctl::json (*document)(const ctl::inventory &) = nullptr;
    bool has_text = true; // else the document is all that it shows
};

constexpr unsigned whole_host = ctl::need_portals | ctl::need_sessions | ctl::need_luns;

constexpr tool_command commands[] = {
    {"tree", "Show ports, targets and LUNs as a tree",
     takes_port | takes_target | takes_bytes | takes_dot, whole_host, nullptr, ctl::tree_document},
    {"ports", "List the adapter ports", takes_port | takes_details, ctl::need_ports,
     &ctl::port_kind},
    {"portals", "List the ports' iSCSI portals", takes_port, ctl::need_portals, &ctl::portal_kind},
    {"sessions", "List the iSCSI sessions", takes_port | takes_target | takes_details,
     ctl::need_sessions, &ctl::session_kind},
    {"targets", "List the iSCSI targets", takes_port | takes_target | takes_details,
     ctl::need_targets, &ctl::target_kind},
    {"luns", "List the LUNs behind the targets",
     takes_port | takes_target | takes_bytes | takes_details, ctl::need_luns, &ctl::lun_kind},
    {"capture", "Write the host as a scenario for varnok-host", takes_port, whole_host, nullptr,
     ctl::capture_document, false},
};

constexpr const char *description =
    "Shows a host's iSCSI offload adapters: ports, portals, sessions, targets and LUNs.";

constexpr const char *footer =
    "Every error line says what to do next; VARNOK_API_DEBUG=4 shows why the library refuses.";

void add_options(CLI::App &app, const tool_command &command, tool_options &options)
{
    if ((command.options & takes_port) != 0)
        app.add_option("-p,--port", options.ask.port, "Only the port with this number");
    if ((command.options & takes_target) != 0)
        app.add_option("-t,--target", options.ask.target, "Only targets with this number");
    if ((command.options & takes_bytes) != 0)
        app.add_flag("-b,--bytes", options.style.bytes, "Show sizes in bytes too");
    if ((command.options & takes_details) != 0)
        app.add_flag("-d,--details", options.style.details, "Show every field, a block a record");
    if ((command.options & takes_dot) != 0)
        app.add_flag("--dot", options.as_dot,
                     "Write a picture in Graphviz's language instead: | dot -Tsvg")
            ->excludes(app.get_option("--json"));
}

// Every command has these.
void add_output_options(CLI::App &app, tool_options &options)
{
    app.add_flag("--ascii", options.ascii, "Use ASCII characters only");
    app.add_flag("--json", options.as_json, "Show every field and failure as one JSON document");
}

void print(const ctl::json &document, const tool_options &options)
{
    fmt::print("{}", ctl::document_text(document, options.ascii));
}

void print_version(const tool_options &options)
{
    if (options.as_json)
        return print(ctl::version_document(VARNOKCTL_VERSION), options);
    const uint32_t number = VARNOK_GetVersion(nullptr, 0);
    fmt::print("varnokctl {}\n{} (0x{:08x})\n", VARNOKCTL_VERSION, varnok_version_description,
               number);
}

void complain(const std::vector<ctl::failed_call> &failures)
{
    std::fflush(stdout);
    for (const auto &failure : failures)
        fmt::print(stderr, "varnokctl: {}\n", ctl::failure_text(failure));
}

void print_document(const tool_command &command, const ctl::inventory &host,
                    const tool_options &options)
{
    print(command.kind != nullptr ? ctl::listing_document(host, *command.kind)
                                  : command.document(host),
          options);
}

void print_text(const tool_command &command, const ctl::inventory &host,
                const tool_options &options)
{
    const bool answered = !host.ports.empty() || host.failures.empty();
    if (!command.has_text && answered)
        print_document(command, host, options);
    else if (options.as_dot && answered)
        fmt::print("{}", ctl::dot_text(host, options.style));
    else if (host.ports.empty() && host.failures.empty())
        fmt::print("no adapters found\n");
    else if (command.kind != nullptr)
        fmt::print("{}", ctl::listing_text(host, *command.kind, options.style));
    else if (answered)
        fmt::print("{}", ctl::tree_text(host, options.style));
    complain(host.failures);
}

int show(const tool_command &command, const tool_options &options)
{
    ctl::inventory_request ask = options.ask;
    ask.needs = command.needs;
    const ctl::inventory host = ctl::read_host(ask);
    if (options.as_json)
        print_document(command, host, options);
    else
        print_text(command, host, options);
    return ctl::ending_of(host);
}

int show_scsi(const ctl::scsi_options &scsi, const tool_options &options)
{
    const ctl::scsi_result result = ctl::run_scsi(scsi);
    if (options.as_json) {
        print(ctl::scsi_document(scsi.request, result), options);
    } else {
        fmt::print("{}", ctl::scsi_text(result));
        complain(result.failures);
    }
    return ctl::ending_of({{}, result.failures});
}

// Help was asked for, or the command line is wrong.
int end_early(const CLI::App &app, const CLI::ParseError &error, std::span<char *> arguments)
{
    const auto is_json = [](const char *argument) {
        return std::string_view(argument) == "--json";
    };
    if (error.get_exit_code() == 0) {
        app.exit(error);
        return ctl::all_well;
    }
    const std::vector<std::string> left = app.remaining();
    const bool no_command = app.get_subcommands().empty() && !left.empty();
    const std::string what = no_command ? "no such command: " + left.front() : error.what();
    if (std::ranges::any_of(arguments, is_json))
        print(ctl::usage_document(what), {});
    else
        fmt::print(stderr,
                   "varnokctl: {}\nSee 'varnokctl --help' and 'varnokctl COMMAND --help'.\n",
                   ctl::safe_text(what));
    return ctl::usage;
}

// A command to a native driver takes two blocks of 256 KiB, which the allocator would fetch from
// the kernel and give back each time: four fifths of the command's own time.
void keep_memory()
{
    constexpr int most_kept = 8 << 20;
    mallopt(M_MMAP_THRESHOLD, most_kept);
    mallopt(M_TRIM_THRESHOLD, most_kept);
}

int run(int argc, char **argv)
{
    std::setlocale(LC_CTYPE, "");
    keep_memory();
    tool_options options;
    const tool_command *chosen = nullptr;

    CLI::App app(description, "varnokctl");
    app.footer(ctl::endings_text() + footer);
    app.require_subcommand(1);
    app.set_version_flag("--version", "varnokctl " VARNOKCTL_VERSION);
    add_output_options(
        *app.add_subcommand("version", "Show the versions of the tool and of the library"),
        options);
    for (const tool_command &command : commands) {
        CLI::App *sub = app.add_subcommand(command.name, command.help);
        add_output_options(*sub, options);
        add_options(*sub, command, options);
        sub->callback([&chosen, &command] { chosen = &command; });
    }
    ctl::scsi_options scsi;
    CLI::App *scsi_app = ctl::add_scsi(app, scsi);
    add_output_options(*scsi_app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return end_early(app, error, std::span(argv, static_cast<size_t>(argc)));
    }

    options.style.utf8 = !options.ascii && std::string(nl_langinfo(CODESET)) == "UTF-8";
    options.style.width = ctl::output_width();
    if (chosen != nullptr)
        return show(*chosen, options);
    if (scsi_app->parsed())
        return show_scsi(scsi, options);
    print_version(options);
    return ctl::all_well;
}

} // namespace

int main(int argc, char **argv)
try {
    const int status = run(argc, argv);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::perror("varnokctl: output");
    return ctl::refused;
} catch (const std::exception &error) {
    std::fprintf(stderr, "varnokctl: %s\n", error.what());
    return ctl::refused;
}
