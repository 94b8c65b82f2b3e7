// Words for the codes in the library's records.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ctl
{

struct code_word {
    uint32_t code;
    const char *text;
};

// The word for the code, or the other text when there is none.
std::string word_of(std::span<const code_word> words, uint32_t code, const char *otherwise = "");

std::string port_state(uint32_t code);         // "online"
std::string port_speed(uint32_t code);         // "10 Gbit/s"; empty when unknown
uint64_t bits_per_second(uint32_t port_speed); // 0 when unknown

// By the number that the driver reports: "logged in", "not logged in"; empty when unknown.
constexpr uint8_t session_logged_in = 1;
std::string session_state(uint32_t state);

std::string pcie_link(uint32_t speed, uint32_t width); // "PCIe 8.0 GT/s x8"; empty when unknown

// By the first byte of INQUIRY data: "disk", "tape (absent)", "no device".
std::string device_type(uint8_t code);

} // namespace ctl
