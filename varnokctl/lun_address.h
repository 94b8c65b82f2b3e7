// LUNs: their four levels and how these are addressed.
#pragma once

#include "varnok_mgmt.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl
{

// As the library's records hold them.
struct lun_levels {
    uint32_t levels_1_and_2, levels_3_and_4;

    // NOLINTNEXTLINE(modernize-use-nullptr): a false alarm of this version
    auto operator<=>(const lun_levels &) const = default;
};

struct lun_form {
    std::string_view method;
    std::optional<uint64_t> number; // when the method and a number say it all
};

inline lun_levels levels_of(const VARNOK_LUN_INFO &lun)
{
    return {lun.ScsiLunNum, lun.ScsiLunNumExt};
}

// Takes every form in which a LUN is shown: its number, in decimal or by its addressing methods as
// lun_number gives them, or its eight bytes in hexadecimal, with "0x" or without. A decimal number
// is a peripheral address up to 255, and a flat one up to 16383.
std::optional<lun_levels> parse_lun(std::string_view text);

lun_form lun_form_of(const lun_levels &lun);

// The LUN by its addressing methods: "5" for a peripheral address on bus 0, "300 flat", and so on.
// Slashes separate several levels.
std::string lun_number(const lun_levels &lun);

// The LUN's eight bytes in hexadecimal.
std::string lun_bytes(const lun_levels &lun);

} // namespace ctl
