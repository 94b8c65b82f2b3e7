// values.h - converts the values of a scenario. An error names the value's place.
#pragma once

#include "hostsim.h"
#include "record_fields.h"
#include "scenario_json.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace hostsim
{

struct sense_code {
    uint8_t key = 0;
    uint8_t asc = 0;
    uint8_t ascq = 0;
};

struct lun_number {
    uint64_t wire = 0; // the eight bytes of the LUN as a big-endian number
    bool raw = false;  // given as these bytes
    uint32_t number = 0;
};
inline constexpr uint32_t lun_number_max = 0x3FFF;
lun_number numbered_lun(uint32_t number);

// The bytes of "0x" and two digits for each. Empty when the text is anything else.
std::string hex_bytes(std::string_view text);

// Each throws scenario_error when the value is of another kind or beyond the limits.
uint64_t to_number(const value &v, const place &at, uint64_t min, uint64_t max);
bool to_bool(const value &v, const place &at);
std::string to_text(const value &v, const place &at, size_t max_bytes);
std::string to_path(const value &v, const place &at);
size_t to_choice(const value &v, const place &at, std::span<const std::string_view> choices);
uint64_t to_byte_count(const value &v, const place &at);
driver_id to_driver(const value &v, const place &at);
request to_request(const value &v, const place &at);
int to_error_number(const value &v, const place &at);
sense_code to_sense(const value &v, const place &at);
lun_number to_lun(const value &v, const place &at);
std::string to_portal(const value &v, const place &at); // with its TCP port
std::string to_field(const value &v, const place &at, const field &where);

// What is wrong with a portal's "host:port" or "host". Empty: nothing.
std::string portal_error(std::string_view portal);

} // namespace hostsim
