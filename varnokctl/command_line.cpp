#include "varnokctl/command_line.h"

#include "varnokctl/capture.h"
#include "varnokctl/document.h"
#include "varnokctl/paths.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <span>
#include <sstream>

namespace ctl
{
namespace
{

enum command_option : unsigned {
    takes_port = 1,
    takes_target = 2,
    takes_bytes = 4,
    takes_dot = 8,
    takes_identity = 16,
};

constexpr unsigned whole_host = need_portals | need_sessions | need_luns;

constexpr tool_command commands[] = {
    {"tree", "Show ports, targets and LUNs as a tree",
     takes_port | takes_target | takes_bytes | takes_identity | takes_dot, whole_host, nullptr,
     tree_document},
    {"ports", "List the adapter ports", takes_port, need_ports, &port_kind},
    {"portals", "List the ports' iSCSI portals", takes_port, need_portals, &portal_kind},
    {"sessions", "List the iSCSI sessions", takes_port | takes_target, need_sessions,
     &session_kind},
    {"targets", "List the iSCSI targets", takes_port | takes_target, need_targets, &target_kind},
    {"luns", "List the LUNs behind the targets",
     takes_port | takes_target | takes_bytes | takes_identity, need_luns, &lun_kind},
    {"paths", "Show each device with the paths to it", takes_port, whole_host | need_identities,
     nullptr, paths_document, true, paths_text},
    {"capture", "Write the host as a scenario for varnok-host", takes_port,
     whole_host | need_all_designators, nullptr, capture_document, false},
};

constexpr const char *description =
    "Shows a host's iSCSI offload adapters: ports, portals, sessions, targets and LUNs.";

constexpr const char *footer =
    "Every error line says what to do next; VARNOK_API_DEBUG=4 shows why the library refuses.";

// As an unset variable of a shell.
const CLI::Validator
    not_empty([](const std::string &value) { return value.empty() ? "empty" : ""; }, "");

constexpr const char *target_help = "The targets: a number, or a name where * stands for anything";

// Words on lines of their own, which are not too long.
std::string folded(const std::string &words)
{
    constexpr size_t width = 78;
    std::string text;
    size_t line = width;
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        const bool fits = line + 1 + word.size() <= width;
        text += (fits ? " " : "\n  ") + word;
        line = (fits ? line + 1 : 2) + word.size();
    }
    return text;
}

void add_list_options(CLI::App &app, const record_kind &kind, tool_options &options)
{
    CLI::Option *details =
        app.add_flag("-d,--details", options.style.details, "Show every field, a block a record");
    app.add_option("-o,--columns", options.columns, "Only these columns, with commas between them")
        ->excludes(app.get_option("--json"))
        ->excludes(details)
        ->check(not_empty);
    app.add_option("--sort", options.sort, "Sort by these columns; a minus before one: descending")
        ->check(not_empty);
    app.add_flag_callback(
        "--no-headings", [&options] { options.style.headings = false; },
        "Show no line of headings");
    app.footer("Columns:" + folded(column_names(kind)));
}

void take_columns(tool_options &options, const record_kind &kind)
{
    try {
        options.chosen = select(kind, options.columns, options.sort);
    } catch (const usage_error &error) {
        throw CLI::ValidationError("--columns and --sort", error.what());
    }
}

void add_options(CLI::App &app, const tool_command &command, tool_options &options)
{
    if ((command.options & takes_port) != 0)
        app.add_option("-p,--port", options.request.port.text, port_help)->check(not_empty);
    if ((command.options & takes_target) != 0)
        app.add_option("-t,--target", options.request.target.text, target_help)->check(not_empty);
    if ((command.options & takes_bytes) != 0)
        app.add_flag("-b,--bytes", options.style.bytes, "Show sizes in bytes too");
    if ((command.options & takes_identity) != 0)
        app.add_flag("-i,--identity", options.style.identity,
                     "Show what identifies each LUN: its WWID and more");
    if ((command.options & takes_dot) != 0)
        app.add_flag("--dot", options.as_dot,
                     "Write a picture in Graphviz's language instead: | dot -Tsvg")
            ->excludes(app.get_option("--json"));
    if (command.kind != nullptr)
        add_list_options(app, *command.kind, options);
}

// Every command has these.
CLI::App *with_messages(CLI::App *app, tool_options &options)
{
    app->add_flag("-q,--quiet", options.quiet, "No progress, and no advice with a failure");
    app->add_flag("-v,--verbose", options.verbose, "The library's errors too; twice: its calls");
    return app;
}

// Those whose output has several forms have these, too.
CLI::App *with_output_options(CLI::App *app, tool_options &options)
{
    app->add_flag("--ascii", options.ascii, "Use ASCII characters only");
    app->add_flag("--json", options.as_json, "Show every field and failure as one JSON document");
    app->add_option("--color", options.colour, "Colours for what is down or failed")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    app->add_option("--width", options.width, "Columns of the output; 0: no limit");
    return with_messages(app, options);
}

CLI::App *add_scsi(CLI::App &app, scsi_options &options)
{
    CLI::App *sub = app.add_subcommand("scsi", "Send a SCSI command to a LUN");
    sub->footer(scsi_help);
    sub->add_option("-p,--port", options.port.text, port_help)->required()->check(not_empty);
    sub->add_option("-t,--target", options.target.text, target_help)->required()->check(not_empty);
    sub->add_option("-l,--lun", options.lun, "The LUN, as any output shows it")->required();
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

// Moves the command's word to the front: options may come before it. What follows an option that
// takes a value is no command.
void put_command_first(const CLI::App &app, std::span<char *> arguments)
{
    for (size_t at = 0; at < arguments.size(); ++at) {
        const std::string word = arguments[at];
        if (word == "--")
            return;
        const auto subs = app.get_subcommands({});
        if (std::ranges::find(subs, word, &CLI::App::get_name) != subs.end()) {
            const auto place = arguments.begin() + static_cast<ptrdiff_t>(at);
            std::rotate(arguments.begin(), place, place + 1);
            return;
        }
        const auto takes_it = [&](const CLI::App *sub) {
            const CLI::Option *const option = sub->get_option_no_throw(word);
            return option != nullptr && option->get_expected_max() > 0;
        };
        if (word.starts_with('-') && std::ranges::any_of(subs, takes_it))
            ++at;
    }
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
int end_early(const CLI::App &app, const CLI::ParseError &error, bool is_health, bool as_json)
{
    constexpr size_t longest = 300, longest_with_rules = 600;
    if (error.get_exit_code() == 0) {
        app.exit(error);
        return all_well;
    }
    const std::vector<std::string> left = app.remaining();
    const bool no_command = app.get_subcommands().empty() && !left.empty();
    const std::string what =
        safe_text(no_command ? "no such command: " + left.front() : error.what(),
                  is_health ? longest_with_rules : longest);
    if (as_json)
        fmt::print("{}", usage_document(what, false));
    else
        fmt::print(stderr,
                   "varnokctl: {}\nSee 'varnokctl --help' and 'varnokctl COMMAND --help'.\n", what);
    return is_health ? static_cast<int>(health_status::unknown) : usage;
}

} // namespace

parsed_line parse_command_line(int argc, char **argv, const std::string &version)
{
    parsed_line line;
    CLI::App app(description, "varnokctl");
    app.footer(endings_text() + footer);
    app.require_subcommand(1);
    app.set_version_flag("-V,--version", "varnokctl " + version);
    with_output_options(
        app.add_subcommand("version", "Show the versions of the tool and of the library"),
        line.options);
    for (const tool_command &command : commands) {
        CLI::App *sub = app.add_subcommand(command.name, command.help);
        add_options(*with_output_options(sub, line.options), command, line.options);
        sub->callback([&line, &command] {
            line.command = &command;
            if (command.kind != nullptr)
                take_columns(line.options, *command.kind);
        });
    }
    const CLI::App *health =
        with_output_options(add_health(app, line.health, line.options.request), line.options);
    const CLI::App *metrics = with_messages(add_metrics(app, line.metrics), line.options);
    const CLI::App *diff = with_output_options(add_diff(app, line.diff), line.options);
    const CLI::App *report = with_messages(add_report(app, line.report), line.options);
    const CLI::App *scsi = with_output_options(add_scsi(app, line.scsi), line.options);
    put_command_first(app, std::span(argv, static_cast<size_t>(argc)).subspan(argc > 0 ? 1 : 0));
    try {
        app.parse(argc, argv);
        line.is_scsi = scsi->parsed();
        line.is_health = health->parsed();
        line.is_diff = diff->parsed();
        line.is_report = report->parsed();
        line.is_metrics = metrics->parsed();
    } catch (const CLI::ParseError &error) {
        // Parsing may have ended before it came to the option.
        const auto is_json = [](std::string_view argument) { return argument == "--json"; };
        const std::span arguments(argv, static_cast<size_t>(argc));
        line.ended =
            end_early(app, error, health->parsed(), std::ranges::any_of(arguments, is_json));
    }
    return line;
}

} // namespace ctl
