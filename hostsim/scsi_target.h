// scsi_target.h - carries out SCSI commands at the logical units of a simulated target.
#pragma once

#include "disk.h"
#include "luns.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>

namespace hostsim
{

struct scsi_command {
    std::span<const uint8_t> cdb;
    std::span<std::byte> in;        // room for data from the device
    std::span<const std::byte> out; // data to the device
};

struct scsi_result {
    sense_code sense{}; // all zero: GOOD
    size_t moved = 0;   // bytes
};

inline bool is_good(const sense_code &s) { return s.key == 0 && s.asc == 0 && s.ascq == 0; }

inline constexpr size_t sense_size = 18;
std::array<uint8_t, sense_size> fixed_sense(const sense_code &sense);

// The contents of the disks in memory, by their identity.
using disk_contents = std::unordered_map<uint64_t, sparse_bytes>;

// The LUN is its eight bytes as a big-endian number. target_number counts the targets of the host.
scsi_result run_scsi(const lun_list &luns, uint64_t target_number, uint64_t lun,
                     const scsi_command &command, disk_contents &contents);

} // namespace hostsim
