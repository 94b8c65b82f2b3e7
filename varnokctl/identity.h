// What identifies a LUN, and how it stores. It is read only when it is asked for.
#pragma once

#include "varnok_mgmt.h"
#include "varnokctl/failure.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace ctl
{

enum class designator_type : uint8_t { t10 = 1, eui64 = 2, naa = 3, scsi_name = 8 };

struct lun_designator {
    designator_type type;
    std::vector<uint8_t> bytes; // of a SCSI name without the NUL bytes at its end
};

struct block_sizes {
    uint32_t logical;           // in bytes
    unsigned physical_exponent; // a physical block has 2 to the power of this many logical ones
};

// What the device does not tell, or tells against the rules, is empty.
struct lun_identity {
    std::vector<uint8_t> serial{};
    std::vector<lun_designator> designators{}; // of the logical unit itself
    std::optional<uint8_t> provisioning{};     // the type's number in page B2h
    std::optional<block_sizes> blocks{};
};

struct open_target {
    uint32_t handle; // of its port
    uint32_t port, target;
};

// Nothing when a command fails. Then the failure is added to the others.
std::optional<lun_identity> read_identity(const open_target &where, const VARNOK_LUN_INFO &lun,
                                          std::vector<failed_call> &failures);

} // namespace ctl
