#include "varnokctl/text_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ctl
{
namespace
{

bool write_all(int file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// What others may need as it is: a device, a pipe or a folder.
bool is_special(const std::string &path)
{
    struct stat found {
    };
    return lstat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode) && !S_ISLNK(found.st_mode);
}

} // namespace

int replace_file(const std::string &path, std::string_view text)
{
    constexpr mode_t readable_by_all = 0644;
    if (is_special(path))
        return EEXIST;
    // The name is new, and nobody can guess it. So no link leads elsewhere.
    std::string fresh = path + ".XXXXXX";
    const int file = mkostemp(fresh.data(), O_CLOEXEC);
    if (file < 0)
        return errno;
    bool good = write_all(file, text) && fchmod(file, readable_by_all) == 0 && fsync(file) == 0;
    int why = good ? 0 : errno;
    if (close(file) != 0 && good) {
        why = errno;
        good = false;
    }
    if (good && std::rename(fresh.c_str(), path.c_str()) == 0)
        return 0;
    if (good)
        why = errno;
    unlink(fresh.c_str());
    return why;
}

} // namespace ctl
