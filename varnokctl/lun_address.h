// LUNs: their four levels and the methods that these are addressed by.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl
{

struct lun_form {
    std::string_view method;
    std::optional<uint64_t> number; // when it and the method say it all
};

// As the library's records hold them.
struct lun_levels {
    uint32_t levels_1_and_2, levels_3_and_4;
};

// A LUN as decimal digits, 0 to 255 in peripheral and to 16383 in flat addressing, or as its eight
// bytes, "0x" and 16 hexadecimal digits.
std::optional<lun_levels> parse_lun(std::string_view text);

lun_form lun_form_of(uint32_t levels_1_and_2, uint32_t levels_3_and_4);

// A LUN by its addressing methods: "5" for peripheral addressing of bus 0, "300 flat", and so on;
// the levels of a LUN with several are separated by slashes.
std::string lun_number(uint32_t levels_1_and_2, uint32_t levels_3_and_4);

// The same LUN as its eight bytes in hexadecimal.
std::string lun_bytes(uint32_t levels_1_and_2, uint32_t levels_3_and_4);

} // namespace ctl
