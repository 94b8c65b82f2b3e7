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

} // namespace

constinit host_finder find_host = nullptr;

// With stdio, errno tells why a file cannot be read.
std::string read_stream(std::FILE *stream)
{
    std::string text;
    std::array<char, 65536> piece;
    while (const size_t size = std::fread(piece.data(), 1, piece.size(), stream))
        text.append(piece.data(), size);
    if (std::ferror(stream) != 0)
        throw scenario_error(std::strerror(errno));
    return text;
}

std::unique_ptr<host> host::from_text(std::string_view text, const std::string &base)
{
    return std::make_unique<machine>(read_scenario(text, base));
}

std::unique_ptr<host> host::from_file(const std::string &path)
{
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rbe"),
                                                                  std::fclose);
    if (file == nullptr)
        throw scenario_error(std::strerror(errno));
    return from_text(read_stream(file.get()), std::filesystem::path(path).parent_path().string());
}

void install(host *h) { installed = static_cast<machine *>(h); }

machine *current()
{
    return installed == nullptr && find_host != nullptr ? find_host() : installed;
}

} // namespace hostsim
