#include "hostsim.h"

#include "machine.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace hostsim
{
namespace
{

constinit machine *installed = nullptr;

// With stdio, errno tells why a file cannot be read.
std::string contents(const std::string &path)
{
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                  std::fclose);
    std::string text;
    std::array<char, 65536> piece;
    while (file != nullptr) {
        const size_t size = std::fread(piece.data(), 1, piece.size(), file.get());
        text.append(piece.data(), size);
        if (size == 0)
            break;
    }
    if (file == nullptr || std::ferror(file.get()) != 0)
        throw scenario_error(std::strerror(errno));
    return text;
}

} // namespace

constinit host_finder find_host = nullptr;

std::unique_ptr<host> host::from_text(std::string_view text, const std::string &base)
{
    return std::make_unique<machine>(read_scenario(text, base));
}

std::unique_ptr<host> host::from_file(const std::string &path)
{
    return from_text(contents(path), std::filesystem::path(path).parent_path().string());
}

void install(host *h) { installed = static_cast<machine *>(h); }

machine *current()
{
    return installed == nullptr && find_host != nullptr ? find_host() : installed;
}

} // namespace hostsim
