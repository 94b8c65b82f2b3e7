// varnok-host - runs a program on a simulated host.
#include "drivers.h"
#include "hostsim.h"
#include "values.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace
{

namespace fs = std::filesystem;

constexpr int exit_not_written = 1;
constexpr int exit_usage = 2;
constexpr int exit_not_started = 127;

int complain(int result, const std::string &what, const std::string &why)
{
    std::fprintf(stderr, "varnok-host: %s: %s\n", what.c_str(), why.c_str());
    return result;
}

fs::path preload_object()
{
    std::error_code none;
    const fs::path own_folder = fs::read_symlink("/proc/self/exe", none).parent_path();
    const fs::path prefix = own_folder.parent_path();
    for (const fs::path &folder : {prefix / "lib", prefix / INSTALLED_LIBDIR, own_folder})
        if (fs::exists(folder / "varnok-hostsim.so", none))
            return folder / "varnok-hostsim.so";
    return {};
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

// A scenario is its text or the name of a file.
bool is_text(const std::string &source) { return source.starts_with('{'); }

int check(const std::string &source)
{
    try {
        if (is_text(source))
            hostsim::host::from_text(source);
        else
            hostsim::host::from_file(source);
        return 0;
    } catch (const hostsim::scenario_error &e) {
        return complain(exit_usage, source, e.what());
    }
}

// A host with one port, on a real portal.
std::string scenario_of(const std::string &driver, const std::string &portal)
{
    const nlohmann::json only_port = {{"driver", driver}, {"portal", portal}};
    return nlohmann::json{{"ports", {only_port}}}.dump();
}

int run(const std::string &source, std::span<char *> program)
{
    if (const int wrong = check(source))
        return wrong;
    const fs::path object = preload_object();
    if (object.empty())
        return complain(exit_not_started, "varnok-hostsim.so", "not found beside the program");

    std::string preload = object;
    if (const char *others = std::getenv("LD_PRELOAD"); others != nullptr && *others != '\0')
        preload += std::string(":") + others;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv("VARNOK_HOST_SCENARIO", is_text(source) ? source.c_str() : fs::absolute(source).c_str(),
           1);

    execvp(program[0], program.data()); // ends with main's null pointer
    return complain(exit_not_started, program[0], std::strerror(errno));
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

int start(std::span<char *> arguments)
{
    // What follows the "--" of run is for the other program.
    auto end = arguments.end();
    if (arguments.size() > 1 && arguments[1] == std::string_view("run"))
        end = std::ranges::find(arguments, std::string_view("--"));
    const std::span program(end == arguments.end() ? end : end + 1, arguments.end());

    CLI::App app("Runs programs on a simulated host.", "varnok-host");
    app.require_subcommand(1);

    std::string source, portal;
    std::string driver(hostsim::facts(hostsim::driver_id::pelt).name);
    CLI::App *run_command = app.add_subcommand("run", "Run a program on the host of a scenario");
    run_command->footer("The program and its arguments come after \"--\".");
    CLI::Option *portal_option =
        run_command
            ->add_option("--portal", portal,
                         "host:port of a real iSCSI portal, instead of a scenario")
            ->check(hostsim::portal_error);
    run_command->add_option("--driver", driver, "With --portal: " + driver_list())
        ->check(CLI::IsMember(
            std::vector<std::string>(hostsim::driver_names.begin(), hostsim::driver_names.end())))
        ->needs(portal_option);
    CLI::Option *scenario_option =
        run_command->add_option("SCENARIO", source, "The scenario, a JSON file; none with --portal")
            ->excludes(portal_option);
    CLI::App *check_command = app.add_subcommand("check", "Say what is wrong with a scenario");
    check_command->add_option("SCENARIO", source, "The scenario, a JSON file")->required();
    CLI::App *example_command =
        app.add_subcommand("example", "Print a scenario to start one's own from");

    try {
        app.parse(static_cast<int>(end - arguments.begin()), arguments.data());
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? 0 : exit_usage;
    }
    if (*example_command)
        std::fputs(example, stdout);
    if (*check_command)
        return check(source);
    if (!*run_command)
        return 0;
    if (!*portal_option && !*scenario_option)
        return complain(exit_usage, "run", "the scenario is missing");
    if (program.empty())
        return complain(exit_usage, "run", "the program is missing: it comes after \"--\"");
    return run(*portal_option ? scenario_of(driver, portal) : source, program);
}

} // namespace

int main(int argc, char **argv)
try {
    const int status = start(std::span(argv, static_cast<size_t>(argc)));
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    return complain(exit_not_written, "output", std::strerror(errno));
} catch (const std::exception &e) {
    std::fprintf(stderr, "varnok-host: %s\n", e.what());
    return exit_usage;
}
