// varnok-host - runs a program on a simulated host.
#include "drivers.h"
#include "messages.h"
#include "run_program.h"
#include "scenario_source.h"
#include "values.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr int exit_not_written = 1;
constexpr int exit_usage = 2;

int refuse(int status, const std::string &why)
{
    hostsim::complain(why);
    return status;
}

// What "varnok-host example" prints. varnok-scenario(5) describes the rest.
constexpr const char *example = R"({
  // A host with an older-family adapter on its native driver and a newer one on its legacy driver. What is not said
  // has a default, a port can be as short as the last one.
  "ports": [
    {
      "driver": "rovani",
      "mac": "02:4d:48:10:00:01",
      "ipv4addr": "192.168.10.11",
      "sessions": [
        {
          "tgt_iqn": "iqn.2004-01.com.example:storage.a",
          "tgt_ipv4addr": "192.168.10.100",
          // LUNs hold what is written to them; "file": "disk.img" keeps it.
          "luns": [ { "size": "500 GiB", "repeat": 3 }, { "lun": 300, "size": "4 TiB", "product": "LARGE" } ]
        },
        { "tgt_ipv6addr": "fd00::100" }
      ]
    },
    { "driver": "dxo", "repeat": 2 }
  ],
  // The second port's data fails once, when it is asked for the third time.
  "faults": [ { "driver": "dxo", "request": "port_info", "instance": 1, "nth": 3, "status": 6 } ]
}
)";

// A host with one port, on a real portal.
hostsim::scenario_source scenario_of(const std::string &driver, const std::string &portal)
{
    const nlohmann::json only_port = {{"driver", driver}, {"portal", portal}};
    return hostsim::text_source("--portal", nlohmann::json{{"ports", {only_port}}}.dump());
}

int check(const hostsim::scenario_source &source)
{
    hostsim::load(source);
    return 0;
}

// "rovani, tepli, pelt or dxo".
std::string driver_list()
{
    std::string list;
    for (const std::string_view name : hostsim::driver_names) {
        if (!list.empty())
            list += name == hostsim::driver_names.back() ? " or " : ", ";
        list += name;
    }
    return list;
}

constexpr char missing_dashes[] =
    "run: the program comes after \"--\": varnok-host run SCENARIO -- PROGRAM";

struct command_line {
    std::string source, portal;
    std::string driver{hostsim::facts(hostsim::driver_id::pelt).name};
    hostsim::run_settings settings;
};

CLI::App *add_run(CLI::App &app, command_line &line)
{
    constexpr unsigned most_seconds = 3600;
    CLI::App *run = app.add_subcommand("run", "Run a program on the host of a scenario");
    run->footer("The program and its arguments come after \"--\".");
    CLI::Option *portal = run->add_option("--portal", line.portal,
                                          "host[:port] of a real iSCSI portal, instead of a "
                                          "scenario")
                              ->check(hostsim::portal_error);
    run->add_option("--driver", line.driver, "With --portal: " + driver_list())
        ->check(CLI::IsMember(
            std::vector<std::string>(hostsim::driver_names.begin(), hostsim::driver_names.end())))
        ->needs(portal);
    run->add_option("--timeout", line.settings.timeout,
                    "Seconds for a login or command to a real target")
        ->check(CLI::Range(1U, most_seconds))
        ->envname(hostsim::environment::timeout)
        ->capture_default_str();
    run->add_flag("--lsof", line.settings.own_lsof,
                  "Let the library count its users with the machine's own lsof");
    run->add_option("SCENARIO", line.source,
                    "The scenario, a JSON file; - is standard input; none with --portal")
        ->excludes(portal);
    return run;
}

// A program without the "--" before it looks like a scenario, or like arguments too many.
bool is_program_without_dashes(const CLI::App &run, const CLI::ParseError &error)
{
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const auto is_word = [](const std::string &argument) { return !argument.starts_with('-'); };
    return code == CLI::ExitCodes::ExcludesError ||
           (code == CLI::ExitCodes::ExtrasError &&
            std::ranges::any_of(run.remaining(true), is_word));
}

std::string usage_error(const CLI::App &app, const CLI::ParseError &error)
{
    const std::vector<std::string> left = app.remaining();
    const bool no_command = app.get_subcommands().empty() && !left.empty();
    return hostsim::shown(no_command ? "no such command: " + left.front() : error.what(), 1000) +
           "; see \"varnok-host --help\"";
}

int start(std::span<char *> arguments)
{
    // What follows the "--" of run is for the other program.
    const auto end = arguments.size() > 1 && arguments[1] == std::string_view("run")
                         ? std::ranges::find(arguments, std::string_view("--"))
                         : arguments.end();
    const bool has_dashes = end != arguments.end();
    const std::span program(has_dashes ? end + 1 : end, arguments.end());

    command_line line;
    CLI::App app("Runs programs on a simulated host.", "varnok-host");
    app.require_subcommand(1);
    app.set_version_flag("--version", "varnok-host " VARNOK_HOST_VERSION);
    const CLI::App *run_command = add_run(app, line);
    CLI::App *check_command = app.add_subcommand("check", "Say what is wrong with a scenario");
    check_command
        ->add_option("SCENARIO", line.source, "The scenario, a JSON file; - is standard input")
        ->required();
    const CLI::App *example_command =
        app.add_subcommand("example", "Print a scenario to start one's own from");

    try {
        app.parse(static_cast<int>(end - arguments.begin()), arguments.data());
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == 0)
            return app.exit(e);
        if (!has_dashes && is_program_without_dashes(*run_command, e))
            return refuse(exit_usage, missing_dashes);
        return refuse(exit_usage, usage_error(app, e));
    }
    if (*example_command)
        std::fputs(example, stdout);
    if (*check_command)
        return check(hostsim::named_source(line.source));
    if (!*run_command)
        return 0;
    if (line.portal.empty() && line.source.empty())
        return refuse(exit_usage, "run: the scenario is missing");
    if (program.empty())
        return refuse(exit_usage, has_dashes ? "run: the program is missing" : missing_dashes);

    const auto source = line.portal.empty() ? hostsim::named_source(line.source)
                                            : scenario_of(line.driver, line.portal);
    check(source);
    if (line.source == "-" && freopen("/dev/null", "r", stdin) == nullptr)
        return refuse(exit_usage, std::string("/dev/null: ") + std::strerror(errno));
    return hostsim::run_program(source, line.settings, program);
}

} // namespace

int main(int argc, char **argv)
try {
    const std::span arguments(argv, static_cast<size_t>(argc));
    const int status = start(arguments);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    return refuse(exit_not_written, std::string("output: ") + std::strerror(errno));
} catch (const hostsim::scenario_error &e) {
    return refuse(exit_usage, e.what());
} catch (const std::exception &e) {
    return refuse(exit_usage, hostsim::shown(e.what(), 1000));
}
