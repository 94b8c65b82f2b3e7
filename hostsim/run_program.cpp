#include "run_program.h"

#include "messages.h"
#include "program_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

namespace hostsim
{
namespace
{

namespace fs = std::filesystem;

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
    for (const fs::path &folder : {prefix / "lib", prefix / INSTALLED_FOLDER, own_folder})
        if (fs::exists(folder / object_name, none))
            return folder / object_name;
    return {};
}

// Why the loader does not take the object, which says itself that it has come up. The loader of the
// program is the same one.
std::string load_obstacle(const std::string &object)
{
    using question = bool (*)();
    void *const loaded = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr)
        return shown(dlerror(), 4096);
    const auto is_up = reinterpret_cast<question>(dlsym(loaded, "varnok_hostsim_is_up"));
    // cppcheck-suppress resourceLeak; it stays until the program starts
    return is_up != nullptr && is_up() ? "" : "it is not the simulated host";
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
    if (object.find_first_of(" \t\n:$") != std::string::npos)
        return refuse(object, "the loader does not take a path with a blank, a colon or a dollar "
                              "sign: move the build or the install elsewhere");
    if (const std::string obstacle = load_obstacle(object); !obstacle.empty())
        return refuse(object, obstacle);
    const std::string file = find_program(program[0]);
    if (file.empty())
        return refuse(program[0], std::strerror(errno));
    const std::string obstacle = preload_obstacle(file);
    if (!obstacle.empty())
        return refuse(program[0], obstacle);

    set_environment(object, source, settings);
    execvp(file.c_str(), program.data()); // ends with main's null pointer
    return refuse(program[0], std::strerror(errno));
}

} // namespace hostsim
