// varnok-host - runs a program on a simulated host.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "hostsim.h"

namespace
{

namespace fs = std::filesystem;

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

int run(const std::string &scenario, const std::vector<std::string> &program)
{
    try {
        hostsim::host::from_file(scenario);
    } catch (const hostsim::scenario_error &e) {
        return complain(exit_usage, scenario, e.what());
    }
    const fs::path object = preload_object();
    if (object.empty())
        return complain(exit_not_started, "varnok-hostsim.so", "not found beside the program");

    std::string preload = object;
    if (const char *others = std::getenv("LD_PRELOAD"); others && *others)
        preload += std::string(":") + others;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv("VARNOK_HOST_SCENARIO", fs::absolute(scenario).c_str(), 1);

    std::vector<char *> arguments(program.size() + 1); // a null ends them
    std::transform(program.begin(), program.end(), arguments.begin(),
                   [](const std::string &a) { return const_cast<char *>(a.c_str()); });
    execvp(arguments[0], arguments.data());
    return complain(exit_not_started, program[0], std::strerror(errno));
}

int start(int argc, char **argv)
{
    CLI::App app("Runs programs on a simulated host.", "varnok-host");
    app.require_subcommand(1);

    std::string scenario;
    std::vector<std::string> program;
    CLI::App *run_command = app.add_subcommand("run", "Run a program on the host of a scenario");
    run_command->add_option("SCENARIO", scenario, "The scenario, a JSON file")->required();
    run_command->add_option("PROGRAM", program, "After \"--\": the program and its arguments")
        ->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? 0 : exit_usage;
    }
    return run(scenario, program);
}

} // namespace

int main(int argc, char **argv)
try {
    return start(argc, argv);
} catch (const std::exception &e) {
    std::fprintf(stderr, "varnok-host: %s\n", e.what());
    return exit_usage;
}
