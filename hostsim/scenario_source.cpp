#include "scenario_source.h"

#include "messages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

namespace fs = std::filesystem;

constexpr size_t most_bytes = size_t{256} << 20;
constexpr size_t most_in_environment = 100'000; // the kernel takes 128 KiB
constexpr std::string_view descriptors = "/proc/self/fd/";
constexpr int all_seals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

// Long enough for the path of a file.
std::string shown_whole(std::string_view text) { return shown(text, 4096); }

// A message may have been made fit for a terminal already.
std::string fit(const std::string &message)
{
    const auto is_printable = [](char c) { return c >= ' ' && c <= '~'; };
    return std::ranges::all_of(message, is_printable) ? message : shown_whole(message);
}

[[noreturn]] void fail(const scenario_source &source, const std::string &why)
{
    throw scenario_error(source.name + ": " + fit(why));
}

std::string error_text() { return std::strerror(errno); }

std::string read_to_end(std::FILE *file)
{
    std::string text;
    std::array<char, 65536> piece;
    while (const size_t size = std::fread(piece.data(), 1, piece.size(), file)) {
        text.append(piece.data(), size);
        if (text.size() > most_bytes)
            throw scenario_error("more than " + std::to_string(most_bytes >> 20) + " MiB");
    }
    if (std::ferror(file) != 0)
        throw scenario_error(error_text());
    return text;
}

// Other files can be read only once. What stands below /dev and /proc is a descriptor's file, which
// the program may not have.
bool stays(const std::string &path)
{
    struct stat file {
    };
    const bool there = stat(path.c_str(), &file) == 0;
    return !there ||
           (S_ISREG(file.st_mode) && !path.starts_with("/dev/") && !path.starts_with("/proc/"));
}

// A number that programs do not use themselves.
int move_up(int fd)
{
    rlimit most{};
    getrlimit(RLIMIT_NOFILE, &most);
    return fcntl(fd, F_DUPFD, static_cast<int>(std::min<rlim_t>(most.rlim_cur / 2, 500)));
}

// Puts the text into a file in memory that nobody can change. The program inherits it.
std::string path_in_memory(std::string_view text)
{
    const int made = memfd_create("varnok-host-scenario", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    while (made >= 0 && !text.empty()) {
        const ssize_t written = write(made, text.data(), text.size());
        if (written <= 0)
            throw scenario_error(error_text());
        text.remove_prefix(static_cast<size_t>(written));
    }
    const int kept = made >= 0 && fcntl(made, F_ADD_SEALS, all_seals) == 0 ? move_up(made) : -1;
    if (kept < 0)
        throw scenario_error(error_text());
    close(made);
    return std::string(descriptors) + std::to_string(kept);
}

// The descriptor may have become another file's.
bool is_still_in_memory(const std::string &path)
{
    const int fd = std::atoi(path.c_str() + descriptors.size());
    return fcntl(fd, F_GET_SEALS) == all_seals;
}

} // namespace

std::string document_text(const std::string &path)
{
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                  std::fclose);
    if (file == nullptr)
        throw scenario_error(error_text());
    return read_to_end(file.get());
}

scenario_source text_source(const std::string &name, std::string text)
{
    std::error_code none;
    return {name, {}, std::move(text), fs::current_path(none).string()};
}

scenario_source named_source(const std::string &name)
{
    scenario_source source;
    source.name = name == "-" ? "standard input" : shown_whole(name);
    try {
        if (name == "-")
            return text_source(source.name, read_to_end(stdin));
        if (!stays(name))
            return text_source(source.name, document_text(name));
        source.path = fs::absolute(name).string();
    } catch (const std::exception &e) {
        fail(source, e.what());
    }
    return source;
}

void pass_on(const scenario_source &source)
{
    std::string value = source.path;
    if (value.empty() && source.text.size() <= most_in_environment)
        value = source.text.starts_with('/') ? " " + source.text : source.text; // no path
    try {
        if (value.empty() && !source.text.empty())
            value = path_in_memory(source.text);
    } catch (const scenario_error &e) {
        fail(source, e.what());
    }
    setenv(environment::scenario, value.c_str(), 1);
    if (source.folder.empty())
        unsetenv(environment::folder);
    else
        setenv(environment::folder, source.folder.c_str(), 1);
}

scenario_source passed_source()
{
    const char *const value = std::getenv(environment::scenario);
    if (value == nullptr)
        throw scenario_error(std::string(environment::scenario) + ": not set");
    scenario_source source;
    if (*value == '/')
        source.path = value;
    else
        source.text = value;
    source.name = *value == '/' ? shown_whole(value) : environment::scenario;
    if (const char *const folder = std::getenv(environment::folder))
        source.folder = folder;
    if (source.path.starts_with(descriptors) && !is_still_in_memory(source.path))
        fail(source, "the scenario came through a pipe, and its descriptor was closed. "
                     "Put it in a file");
    return source;
}

std::unique_ptr<host> load(const scenario_source &source)
{
    try {
        if (source.path.empty())
            return host::from_text(source.text, source.folder.empty() ? "." : source.folder);
        if (source.folder.empty())
            return host::from_file(source.path);
        return host::from_text(document_text(source.path), source.folder);
    } catch (const std::exception &e) {
        fail(source, e.what());
    }
}

} // namespace hostsim
