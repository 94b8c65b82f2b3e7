#include "disk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

// Open for one access only: the host keeps no descriptors of its process.
class open_file
{
  public:
    open_file(const std::string &path, int flags)
        : fd(::open(path.c_str(), flags | O_CLOEXEC, 0644))
    {
    }
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    ~open_file()
    {
        if (fd >= 0)
            ::close(fd);
    }
    const int fd;
};

} // namespace

std::string prepare_file(const std::string &path, uint64_t size)
{
    open_file file(path, O_RDWR | O_CREAT);
    struct stat st {
    };
    if (file.fd < 0 || fstat(file.fd, &st) != 0)
        return std::strerror(errno);
    if (size > static_cast<uint64_t>(INT64_MAX))
        return std::strerror(EFBIG);
    auto length = static_cast<off_t>(size);
    if (st.st_size < length && ftruncate(file.fd, length) != 0)
        return std::strerror(errno);
    return {};
}

bool read_file(const std::string &path, uint64_t offset, std::span<std::byte> into)
{
    open_file file(path, O_RDONLY);
    while (file.fd >= 0 && !into.empty()) {
        ssize_t n = pread(file.fd, into.data(), into.size(), static_cast<off_t>(offset));
        if (n <= 0)
            return false;
        into = into.subspan(static_cast<size_t>(n));
        offset += static_cast<uint64_t>(n);
    }
    return file.fd >= 0;
}

bool write_file(const std::string &path, uint64_t offset, std::span<const std::byte> from)
{
    open_file file(path, O_WRONLY);
    while (file.fd >= 0 && !from.empty()) {
        ssize_t n = pwrite(file.fd, from.data(), from.size(), static_cast<off_t>(offset));
        if (n <= 0)
            return false;
        from = from.subspan(static_cast<size_t>(n));
        offset += static_cast<uint64_t>(n);
    }
    return file.fd >= 0;
}

void sparse_bytes::read(uint64_t offset, std::span<std::byte> into) const
{
    while (!into.empty()) {
        size_t at = offset % piece_size;
        size_t n = std::min(into.size(), piece_size - at);
        auto piece = pieces_.find(offset / piece_size);
        if (piece == pieces_.end())
            std::memset(into.data(), 0, n);
        else
            std::memcpy(into.data(), piece->second.data() + at, n);
        into = into.subspan(n);
        offset += n;
    }
}

void sparse_bytes::write(uint64_t offset, std::span<const std::byte> from)
{
    while (!from.empty()) {
        size_t at = offset % piece_size;
        size_t n = std::min(from.size(), piece_size - at);
        std::memcpy(pieces_[offset / piece_size].data() + at, from.data(), n);
        from = from.subspan(n);
        offset += n;
    }
}

} // namespace hostsim
