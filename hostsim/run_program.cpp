#include "run_program.h"

#include "messages.h"
#include "program_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <string_view>
#include <unistd.h>
#include <vector>

#ifdef VARNOK_SANITIZED
// At the second start the loader takes the simulated host before the sanitizer's run time.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's name
extern "C" const char *__asan_default_options() { return "verify_asan_link_order=0"; }
#endif

namespace hostsim
{
namespace
{

namespace fs = std::filesystem;

constexpr char second_start[] = "start-preloaded";
constexpr char object_name[] = "varnok-hostsim.so";

int refuse(const std::string &what, const std::string &why)
{
    complain(shown(what, 4096) + ": " + why);
    return exit_not_started;
}

fs::path preload_object()
{
    std::error_code none;
    const fs::path own_folder = fs::read_symlink("/proc/self/exe", none).parent_path();
    const fs::path prefix = own_folder.parent_path();
    for (const fs::path &folder : {prefix / "lib", prefix / INSTALLED_LIBDIR, own_folder})
        if (fs::exists(folder / object_name, none))
            return folder / object_name;
    return {};
}

void set_environment(const std::string &object, const scenario_source &source,
                     const run_settings &settings)
{
    std::string preload = object;
    if (const char *others = std::getenv("LD_PRELOAD"); others != nullptr && *others != '\0')
        preload += std::string(":") + others;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    pass_on(source);
    setenv(environment::timeout, std::to_string(settings.timeout).c_str(), 1);
    if (settings.own_lsof)
        setenv(environment::lsof, "1", 1);
    else
        unsetenv(environment::lsof);
}

} // namespace

int run_program(const scenario_source &source, const run_settings &settings,
                std::span<char *> program)
{
    const std::string object = preload_object();
    if (object.empty())
        return refuse(object_name, "not found beside varnok-host");
    if (object.find_first_of(" \t\n:;$") != std::string::npos)
        return refuse(object, "the loader does not take a path with a blank, a colon, a semicolon "
                              "or a dollar sign: move or link the build or the install elsewhere");
    std::string file = find_program(program[0]);
    if (file.empty())
        return refuse(program[0], std::strerror(errno));
    const std::string obstacle = preload_obstacle(file);
    if (!obstacle.empty())
        return refuse(program[0], obstacle);

    set_environment(object, source, settings);
    std::string own_name = "varnok-host", mark = second_start;
    std::vector<char *> arguments = {own_name.data(), mark.data(), file.data()};
    arguments.insert(arguments.end(), program.begin(), program.end());
    arguments.push_back(nullptr);
    execv("/proc/self/exe", arguments.data());
    return refuse(program[0], std::strerror(errno));
}

std::span<char *> arguments_behind(std::span<char *> own_arguments)
{
    const bool is_second =
        own_arguments.size() > 3 && own_arguments[1] == std::string_view(second_start);
    return is_second ? own_arguments.subspan(2) : std::span<char *>();
}

int run_if_preloaded(std::span<char *> program)
{
    using question = bool (*)();
    const auto is_up = reinterpret_cast<question>(dlsym(RTLD_DEFAULT, "varnok_hostsim_is_up"));
    if (is_up == nullptr || !is_up())
        return refuse(program[1], std::string("not started: the loader did not take ") +
                                      object_name + " for the simulated host");
    execvp(program[0], program.data() + 1); // has a slash and is not looked for again
    return refuse(program[1], std::strerror(errno));
}

} // namespace hostsim
