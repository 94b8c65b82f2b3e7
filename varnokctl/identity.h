// What identifies a LUN, and how it stores. It is read only when it is asked for.
#pragma once

#include "varnok_mgmt.h"
#include "varnokctl/device.h"
#include "varnokctl/text.h"

#include <cstdint>
#include <optional>
#include <string>
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

constexpr size_t longest_serial = 255;

// What the device does not tell, or tells against the rules, is empty.
struct lun_identity {
    std::vector<uint8_t> serial{};
    std::vector<lun_designator> designators{}; // of the logical unit itself
    std::optional<uint8_t> provisioning{};     // the type's number in page B2h
    std::optional<block_sizes> blocks{};
};

// Nothing when a command fails. Then the failure is added to the others.
std::optional<lun_identity> read_identity(const open_target &where, const VARNOK_LUN_INFO &lun,
                                          std::vector<failed_call> &failures);

// Keeps what lists show: the best designator of each type, and no serial number that is too long.
// So a LUN takes little memory, whatever it tells.
void keep_the_best(lun_identity &identity);

// The world-wide identifier, chosen and written as multipath tools do: "360a98000...". It is the
// same in every locale. Empty when no designator tells the LUN from all others.
std::string wwid(const lun_identity &identity);

// The best designator of the type: in hexadecimal, or as text for a T10 or a SCSI name. Empty when
// there is none.
std::string designator_text(const lun_identity &identity, designator_type type,
                            const output_style &style);

// "full", "resource" or "thin"; empty when the LUN does not tell.
std::string provisioning_text(const lun_identity &identity);

} // namespace ctl
