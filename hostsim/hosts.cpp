// hosts.cpp - hosts from scenarios, and the one that is installed.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "machine.h"

namespace hostsim
{
namespace
{
constinit machine *installed = nullptr;
}

constinit host_finder find_host = nullptr;

std::unique_ptr<host> host::from_text(std::string_view json, const std::string &base)
{
    return std::make_unique<machine>(read_scenario(json, base));
}

std::unique_ptr<host> host::from_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad())
        throw scenario_error("cannot be read");
    return from_text(text, std::filesystem::path(path).parent_path().string());
}

void install(host *h) { installed = static_cast<machine *>(h); }

machine *current()
{
    if (!installed && find_host)
        return find_host();
    return installed;
}

} // namespace hostsim
