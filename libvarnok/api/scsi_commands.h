// scsi_commands.h - the SCSI commands that the library sends itself, and their answers.
#pragma once

#include "include/varnok_mgmt.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace varnok
{

constexpr uint32_t lun_list_size = 16384; // bytes that REPORT LUNS may return
constexpr uint32_t lun_list_entries = lun_list_size / 8 - 1;

// One addressing level after the other, each as the big-endian pair on the wire, method bits
// included.
struct lun_number {
    uint32_t levels_1_2;
    uint32_t levels_3_4;
};

// A command that reads from the device, with the CDB given and zeros after it.
VARNOK_SCSI_CMND read_command(uint32_t target, lun_number lun, std::initializer_list<uint8_t> cdb);

// Answered by a list of lun_list_size bytes at most.
VARNOK_SCSI_CMND report_luns_command(uint32_t target);

// LUNs that the list claims to hold, which may be more than were received.
uint32_t lun_list_count(const uint8_t *list);

// Entry k of the list, below lun_list_entries.
lun_number lun_list_entry(const uint8_t *list, uint32_t k);

} // namespace varnok
