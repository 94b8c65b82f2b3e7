// values.h - converts the values of a scenario. An error names the value's place.
#pragma once

#include "hostsim.h"
#include "record_fields.h"
#include "scenario_json.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace hostsim
{

// A place in the scenario. It lives on the stack, and only an error makes its text.
struct place {
    static constexpr size_t no_index = SIZE_MAX;

    const place *up = nullptr;
    std::string_view key{};
    size_t index = no_index;

    std::string text() const;
    [[noreturn]] void fail(const std::string &what) const;
};

using take_member = std::function<void(std::string_view name, const json &value, const place &at)>;
void each_member(const json &object, const place &at, const take_member &take);

using take_element = std::function<void(const json &value, const place &at)>;
void each_element(const json &array, const place &at, const take_element &take);

bool has_member(const json &object, std::string_view name);

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

// Each throws scenario_error when the value is of another kind or beyond the limits.
uint64_t to_number(const json &value, const place &at, uint64_t min, uint64_t max);
bool to_bool(const json &value, const place &at);
std::string to_text(const json &value, const place &at, size_t max_bytes);
size_t to_choice(const json &value, const place &at, std::span<const std::string_view> choices);
uint64_t to_byte_count(const json &value, const place &at);
driver_id to_driver(const json &value, const place &at);
request to_request(const json &value, const place &at);
int to_error_number(const json &value, const place &at);
sense_code to_sense(const json &value, const place &at);
lun_number to_lun(const json &value, const place &at);
std::string to_portal(const json &value, const place &at);
std::string to_field(const json &value, const place &at, const field &where);

// Takes the value when the record has a field of that name, or returns false.
bool read_field(std::span<const field> fields, settings &into, std::string_view name,
                const json &value, const place &at);

// What is wrong with a portal's "host:port". Empty: nothing.
std::string portal_error(std::string_view portal);

} // namespace hostsim
