// disk.h - the contents of the host's disks, in memory or in a file. Both are sparse.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>

namespace hostsim
{

// Makes the file at least this long. Returns why that failed, or an empty text.
std::string prepare_file(const std::string &path, uint64_t size);

bool read_file(const std::string &path, uint64_t offset, std::span<std::byte> into);
bool write_file(const std::string &path, uint64_t offset, std::span<const std::byte> from);

// Bytes that were never written read as zero.
class sparse_bytes
{
  public:
    void read(uint64_t offset, std::span<std::byte> into) const;
    void write(uint64_t offset, std::span<const std::byte> from);

  private:
    static constexpr size_t piece_size = 4096;
    std::unordered_map<uint64_t, std::array<std::byte, piece_size>> pieces_;
};

} // namespace hostsim
