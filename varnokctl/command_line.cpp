#include "varnokctl/command_line.h"

#include "varnokctl/capture.h"
#include "varnokctl/document.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <span>

namespace ctl
{
namespace
{

enum command_option : unsigned {
    takes_port = 1,
    takes_target = 2,
    takes_bytes = 4,
    takes_details = 8,
    takes_dot = 16,
};

constexpr unsigned whole_host = need_portals | need_sessions | need_luns;

constexpr tool_command commands[] = {
    {"tree", "Show ports, targets and LUNs as a tree",
     takes_port | takes_target | takes_bytes | takes_dot, whole_host, nullptr, tree_document},
    {"ports", "List the adapter ports", takes_port | takes_details, need_ports, &port_kind},
    {"portals", "List the ports' iSCSI portals", takes_port, need_portals, &portal_kind},
    {"sessions", "List the iSCSI sessions", takes_port | takes_target | takes_details,
     need_sessions, &session_kind},
    {"targets", "List the iSCSI targets", takes_port | takes_target | takes_details, need_targets,
     &target_kind},
    {"luns", "List the LUNs behind the targets",
     takes_port | takes_target | takes_bytes | takes_details, need_luns, &lun_kind},
    {"capture", "Write the host as a scenario for varnok-host", takes_port,
     whole_host | need_identities, nullptr, capture_document, false},
};

constexpr const char *description =
    "Shows a host's iSCSI offload adapters: ports, portals, sessions, targets and LUNs.";

constexpr const char *footer =
    "Every error line says what to do next; VARNOK_API_DEBUG=4 shows why the library refuses.";

void add_options(CLI::App &app, const tool_command &command, tool_options &options)
{
    if ((command.options & takes_port) != 0)
        app.add_option("-p,--port", options.request.port, "Only the port with this number");
    if ((command.options & takes_target) != 0)
        app.add_option("-t,--target", options.request.target, "Only targets with this number");
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
CLI::App *with_output_options(CLI::App *app, tool_options &options)
{
    app->add_flag("--ascii", options.ascii, "Use ASCII characters only");
    app->add_flag("--json", options.as_json, "Show every field and failure as one JSON document");
    return app;
}

CLI::App *add_scsi(CLI::App &app, scsi_options &options)
{
    CLI::App *sub = app.add_subcommand("scsi", "Send a SCSI command to a LUN");
    sub->footer(scsi_help);
    sub->add_option("-p,--port", options.request.port, "The port's number")->required();
    sub->add_option("-t,--target", options.request.target, "The target's number")->required();
    sub->add_option("-l,--lun", options.lun, "The LUN in decimal, or its eight bytes as 0x...")
        ->required();
    CLI::Option *in = sub->add_option("--in", options.data_in, "Bytes that come from the device");
    in->check(CLI::Range(1U, most_scsi_data));
    sub->add_option("--out", options.out_file, "A file whose bytes go to the device; needs --yes")
        ->check(CLI::ExistingFile)
        ->excludes(in);
    sub->add_option("--save", options.save_file, "A file for the bytes from the device");
    sub->add_flag("--yes", options.yes, "Confirm a command that writes data");
    sub->add_option("CDB", options.words, "The command's bytes, or a word")->required();
    sub->final_callback([&options] {
        try {
            complete(options);
        } catch (const usage_error &error) {
            throw CLI::ValidationError("scsi", error.what());
        }
    });
    return sub;
}

CLI::App *add_diff(CLI::App &app, diff_options &options)
{
    CLI::App *sub = app.add_subcommand("diff", "Compare two captures, or a capture and this host");
    sub->footer(diff_help);
    sub->add_flag("--numbers", options.numbers,
                  "Compare numbers that differ from start to start, too");
    sub->add_option("BEFORE", options.before,
                    "What 'varnokctl capture' printed; - for standard input")
        ->required();
    sub->add_option("AFTER", options.after, "The same of a later time; without it, this host");
    sub->final_callback([&options] {
        if (options.before == "-" && options.after == "-")
            throw CLI::ValidationError("diff", "only one of the captures can be standard input");
    });
    return sub;
}

// Help was asked for, or the command line is wrong.
ending end_early(const CLI::App &app, const CLI::ParseError &error, bool as_json)
{
    if (error.get_exit_code() == 0) {
        app.exit(error);
        return all_well;
    }
    const std::vector<std::string> left = app.remaining();
    const bool no_command = app.get_subcommands().empty() && !left.empty();
    const std::string what = no_command ? "no such command: " + left.front() : error.what();
    if (as_json)
        fmt::print("{}", usage_document(what, false));
    else
        fmt::print(stderr,
                   "varnokctl: {}\nSee 'varnokctl --help' and 'varnokctl COMMAND --help'.\n",
                   safe_text(what));
    return usage;
}

} // namespace

parsed_line parse_command_line(int argc, char **argv, const std::string &version)
{
    parsed_line line;
    CLI::App app(description, "varnokctl");
    app.footer(endings_text() + footer);
    app.require_subcommand(1);
    app.set_version_flag("--version", "varnokctl " + version);
    with_output_options(
        app.add_subcommand("version", "Show the versions of the tool and of the library"),
        line.options);
    for (const tool_command &command : commands) {
        CLI::App *sub = app.add_subcommand(command.name, command.help);
        add_options(*with_output_options(sub, line.options), command, line.options);
        sub->callback([&line, &command] { line.command = &command; });
    }
    const CLI::App *diff = with_output_options(add_diff(app, line.diff), line.options);
    const CLI::App *scsi = with_output_options(add_scsi(app, line.scsi), line.options);
    try {
        app.parse(argc, argv);
        line.is_scsi = scsi->parsed();
        line.is_diff = diff->parsed();
    } catch (const CLI::ParseError &error) {
        // Parsing may have ended before it came to the option.
        const auto is_json = [](std::string_view argument) { return argument == "--json"; };
        const std::span arguments(argv, static_cast<size_t>(argc));
        line.ended = end_early(app, error, std::ranges::any_of(arguments, is_json));
    }
    return line;
}

} // namespace ctl
