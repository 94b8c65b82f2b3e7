#include "hostsim.h"

#include "machine.h"
#include "scenario_source.h"

#include <atomic>
#include <filesystem>

namespace hostsim
{
namespace
{

constinit std::atomic<machine *> installed = nullptr;

} // namespace

constinit host_finder find_host = nullptr;

std::unique_ptr<host> host::from_text(std::string_view text, const std::string &base)
{
    return std::make_unique<machine>(read_scenario(text, base));
}

std::unique_ptr<host> host::from_file(const std::string &path)
{
    return from_text(document_text(path), std::filesystem::path(path).parent_path().string());
}

void install(host *h) { installed = static_cast<machine *>(h); }

machine *installed_host() { return installed; }

machine *current()
{
    machine *const found = installed;
    return found == nullptr && find_host != nullptr ? find_host() : found;
}

} // namespace hostsim
