#include "library_users.h"

#include <array>
#include <cctype>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

constexpr std::string_view sought = "libvarnok";
constexpr int most_descriptors = 64; // of a process: lsof looks at all

struct folder_closer {
    void operator()(DIR *folder) const { closedir(folder); }
};
using folder_handle = std::unique_ptr<DIR, folder_closer>;

folder_handle open_folder(const std::string &path) { return folder_handle(opendir(path.c_str())); }

// False when the file cannot be read.
bool read_file(const std::string &path, std::string &into)
{
    into.clear();
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    std::array<char, 65536> piece;
    ssize_t size = 0;
    while ((size = read(fd, piece.data(), piece.size())) > 0)
        into.append(piece.data(), static_cast<size_t>(size));
    close(fd);
    return size == 0;
}

bool has_name(std::string_view text) { return text.find(sought) != std::string_view::npos; }

bool leads_to_name(const std::string &link)
{
    std::array<char, 4096> target;
    const ssize_t size = readlink(link.c_str(), target.data(), target.size());
    return size > 0 && has_name({target.data(), static_cast<size_t>(size)});
}

// The fields of a mapping are addresses, rights, offset, device, inode and path. A file has a line
// however often it is mapped.
size_t mapped_files(std::string_view maps, bool all)
{
    std::set<std::string_view> files; // by device and inode
    for (size_t at = 0; at < maps.size();) {
        if (!all && (at = maps.find(sought, at)) == std::string_view::npos)
            break;
        size_t from = maps.rfind('\n', at) + 1; // 0 on the first line
        const size_t end = maps.find('\n', at);
        for (int fields = 0; fields < 3; ++fields)
            from = maps.find(' ', from) + 1;
        const size_t device_end = maps.find(' ', from);
        const size_t inode_end = maps.find(' ', device_end + 1);
        const std::string_view file = maps.substr(from, inode_end - from);
        if (!file.ends_with(" 0"))
            files.insert(file);
        at = end == std::string_view::npos ? end : end + 1;
    }
    return files.size();
}

size_t descriptors(const std::string &folder, bool all)
{
    size_t lines = 0;
    int seen = 0;
    const folder_handle list = open_folder(folder);
    // cppcheck-suppress readdirCalled; no other thread reads this folder
    while (const dirent *const entry = list != nullptr ? readdir(list.get()) : nullptr) {
        if (entry->d_name[0] == '.')
            continue;
        if (++seen > most_descriptors)
            break;
        lines += all || leads_to_name(folder + entry->d_name) ? 1 : 0;
    }
    return lines;
}

// lsof lists the files of a process again for each of its threads.
size_t threads(const std::string &process)
{
    struct stat list {
    };
    constexpr nlink_t of_folder = 2;
    const bool known = stat((process + "task").c_str(), &list) == 0 && list.st_nlink > of_folder;
    return known ? list.st_nlink - of_folder : 1;
}

// Every line begins with the program's name, of which lsof shows nine characters.
size_t lines_of(const std::string &process, std::string &buffer)
{
    if (!read_file(process + "maps", buffer) || buffer.empty())
        return 0; // another user's, or a part of the kernel
    std::string name;
    const bool named = read_file(process + "comm", name) && name.starts_with(sought);
    size_t lines = mapped_files(buffer, named);
    for (const char *link : {"cwd", "root"})
        lines += named || leads_to_name(process + link) ? 1 : 0;
    if (lines == 0)
        return 0;
    return (lines + descriptors(process + "fd/", named)) * threads(process);
}

} // namespace

std::optional<size_t> lines_with_the_library()
{
    const folder_handle processes = open_folder("/proc");
    if (processes == nullptr)
        return std::nullopt;
    size_t lines = 0;
    std::string buffer;
    // cppcheck-suppress readdirCalled; no other thread reads this folder
    while (const dirent *const entry = readdir(processes.get()))
        if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0)
            lines += lines_of(std::string("/proc/") + entry->d_name + "/", buffer);
    return lines;
}

} // namespace hostsim
