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

// Calls move_some(offset, bytes) until all bytes are moved. It returns how many it moved.
template <class Byte, class MoveSome>
bool move_all(uint64_t offset, std::span<Byte> bytes, MoveSome move_some)
{
    while (!bytes.empty()) {
        const ssize_t n = move_some(offset, bytes);
        if (n <= 0)
            return false;
        bytes = bytes.subspan(static_cast<size_t>(n));
        offset += static_cast<uint64_t>(n);
    }
    return true;
}

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
    const open_file file(path, O_RDONLY);
    return file.fd >= 0 && move_all(offset, into, [&](uint64_t at, auto rest) {
               return pread(file.fd, rest.data(), rest.size(), static_cast<off_t>(at));
           });
}

bool write_file(const std::string &path, uint64_t offset, std::span<const std::byte> from)
{
    const open_file file(path, O_WRONLY);
    return file.fd >= 0 && move_all(offset, from, [&](uint64_t at, auto rest) {
               return pwrite(file.fd, rest.data(), rest.size(), static_cast<off_t>(at));
           });
}

void sparse_bytes::read(uint64_t offset, std::span<std::byte> into) const
{
    move_all(offset, into, [&](uint64_t at, auto rest) {
        const size_t n = std::min(rest.size(), piece_size - at % piece_size);
        const auto piece = pieces_.find(at / piece_size);
        if (piece == pieces_.end())
            std::memset(rest.data(), 0, n);
        else
            std::memcpy(rest.data(), piece->second.data() + at % piece_size, n);
        return static_cast<ssize_t>(n);
    });
}

void sparse_bytes::write(uint64_t offset, std::span<const std::byte> from)
{
    move_all(offset, from, [&](uint64_t at, auto rest) {
        const size_t n = std::min(rest.size(), piece_size - at % piece_size);
        std::memcpy(pieces_[at / piece_size].data() + at % piece_size, rest.data(), n);
        return static_cast<ssize_t>(n);
    });
}

} // namespace hostsim
