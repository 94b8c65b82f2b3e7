#include "program_file.h"

#include "messages.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <filesystem>
#include <link.h>
#include <optional>
#include <paths.h>
#include <sstream>
#include <string_view>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

constexpr char not_loaded[] = ": the simulation cannot be loaded into it";

// Opened for reading. Reads that go beyond its end give what is there.
class program_bytes
{
  public:
    explicit program_bytes(const std::string &path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
    }
    program_bytes(const program_bytes &) = delete;
    program_bytes &operator=(const program_bytes &) = delete;
    ~program_bytes()
    {
        if (fd_ >= 0)
            close(fd_);
    }

    bool is_open() const { return fd_ >= 0; }

    std::string read(uint64_t offset, size_t size) const
    {
        std::string bytes(size, '\0');
        const ssize_t length = pread(fd_, bytes.data(), size, static_cast<off_t>(offset));
        bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return bytes;
    }

    template <class Record>
    std::optional<Record> read_record(uint64_t offset) const
    {
        const std::string bytes = read(offset, sizeof(Record));
        Record record;
        if (bytes.size() != sizeof record)
            return std::nullopt;
        std::memcpy(&record, bytes.data(), sizeof record);
        return record;
    }

  private:
    int fd_;
};

std::string up_to_nul(const std::string &text) { return text.substr(0, text.find('\0')); }

// What the file names as its loader. Empty: none.
std::string loader_of(const program_bytes &program, const ElfW(Ehdr) & header)
{
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        const auto at = header.e_phoff + uint64_t{i} * sizeof(ElfW(Phdr));
        const auto segment = program.read_record<ElfW(Phdr)>(at);
        if (segment && segment->p_type == PT_INTERP && segment->p_filesz <= PATH_MAX)
            return up_to_nul(program.read(segment->p_offset, segment->p_filesz));
    }
    return {};
}

bool is_for_same_machine(const ElfW(Ehdr) & one, const ElfW(Ehdr) & other)
{
    return std::memcmp(one.e_ident, other.e_ident, EI_VERSION) == 0 &&
           one.e_machine == other.e_machine;
}

// The kernel gives such a program rights that its caller does not have, and the loader then takes
// nothing from its caller.
bool gives_rights(const std::string &path)
{
    struct statvfs file_system {
    };
    const bool ignored =
        prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1 ||
        (statvfs(path.c_str(), &file_system) == 0 && (file_system.f_flag & ST_NOSUID) != 0);
    struct stat file {
    };
    if (ignored || stat(path.c_str(), &file) != 0)
        return false;
    const bool to_group = (file.st_mode & S_ISGID) != 0 && (file.st_mode & S_IXGRP) != 0;
    return ((file.st_mode & S_ISUID) != 0 && file.st_uid != getuid()) ||
           (to_group && file.st_gid != getgid()) ||
           (getuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0);
}

std::string obstacle_in_elf(const std::string &path, const program_bytes &program)
{
    const program_bytes own("/proc/self/exe");
    const auto header = program.read_record<ElfW(Ehdr)>(0);
    const auto own_header = own.read_record<ElfW(Ehdr)>(0);
    if (!header || !own_header || !is_for_same_machine(*header, *own_header))
        return std::string("made for another machine") + not_loaded;
    const std::string loader = loader_of(program, *header);
    if (loader.empty())
        return std::string("statically linked") + not_loaded;
    std::error_code none;
    if (!std::filesystem::equivalent(loader, loader_of(own, *own_header), none))
        return "its loader is " + shown(loader) + not_loaded;
    if (gives_rights(path))
        return std::string("runs with rights that you do not have") + not_loaded;
    return {};
}

// The name behind "#!", as the kernel reads it. Empty: no script.
std::string interpreter_of(const program_bytes &program)
{
    constexpr size_t bytes_of_kernel = 256;
    std::istringstream line(program.read(0, bytes_of_kernel));
    std::string start, name;
    std::getline(line, start);
    if (!start.starts_with("#!"))
        return {};
    std::istringstream(start.substr(2)) >> name;
    return up_to_nul(name);
}

} // namespace

std::string find_program(const std::string &name)
{
    int error = ENOENT;
    const auto is_program = [&error](const std::string &file) {
        struct stat found {
        };
        const bool there = stat(file.c_str(), &found) == 0;
        if (there && S_ISREG(found.st_mode) &&
            faccessat(AT_FDCWD, file.c_str(), X_OK, AT_EACCESS) == 0)
            return true;
        if (there || errno == EACCES)
            error = EACCES;
        return false;
    };

    if (name.empty() || name.find('/') != std::string::npos) {
        if (is_program(name))
            return name;
    } else {
        const char *const path = std::getenv("PATH");
        std::istringstream folders(path != nullptr ? path : "/bin:/usr/bin");
        for (std::string folder; std::getline(folders, folder, ':');) {
            std::string file = (folder.empty() ? "." : folder) + "/" + name;
            if (is_program(file))
                return file;
        }
    }
    errno = error;
    return {};
}

std::string preload_obstacle(const std::string &path)
{
    constexpr int most_interpreters = 5; // as many as the kernel follows
    std::string file = path, whose;
    for (int level = 0; level <= most_interpreters; ++level) {
        const program_bytes program(file);
        if (!program.is_open())
            return whose + std::strerror(errno);
        if (program.read(0, SELFMAG) == ELFMAG) {
            const std::string obstacle = obstacle_in_elf(file, program);
            return obstacle.empty() ? obstacle : whose + obstacle;
        }
        file = interpreter_of(program);
        if (file.empty())
            file = _PATH_BSHELL; // execvp gives it what the kernel does not know
        whose = "its interpreter " + shown(file) + ": ";
    }
    return std::strerror(ELOOP);
}

} // namespace hostsim
