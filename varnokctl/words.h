// Words for the codes in the library's records.
#pragma once

#include <cstdint>
#include <string>

#include "model.h"

namespace ctl
{

std::string port_state(uint32_t code);                 // "online"
std::string port_speed(uint32_t code);                 // "10 Gbit/s"; empty when unknown
std::string pcie_link(uint32_t speed, uint32_t width); // "PCIe 8.0 GT/s x8"; empty when unknown

// The first byte of INQUIRY data: "disk", "tape (absent)", "no device".
std::string device_type(uint8_t code);

// A LUN by its addressing methods: "5" for peripheral addressing of bus 0, "300 flat", and so on;
// the levels of a LUN with several are separated by slashes.
std::string lun_number(uint32_t levels_1_and_2, uint32_t levels_3_and_4);

// The same LUN as its eight bytes in hexadecimal.
std::string lun_bytes(uint32_t levels_1_and_2, uint32_t levels_3_and_4);

// "VARNOK_GetLunInfo, port 0, target 2: VARNOK_STATUS_DRIVER_6 (0x80000006): driver status 6"
std::string failure_text(const failure &failure);

} // namespace ctl
