// values.h - converts the values of a scenario. An error names the value's place.
#pragma once

#include "record_fields.h"
#include "scenario.h"
#include "scenario_json.h"

#include <cstdint>
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

// Call take(name, value, place) for every member, or take(value, place) for every element.
template <class F>
void each_member(const json &object, const place &at, F take)
{
    if (!object.is_object())
        at.fail("not an object");
    for (const auto &[name, value] : object.items())
        take(name, value, place{&at, name});
}

template <class F>
void each_element(const json &array, const place &at, F take)
{
    if (!array.is_array())
        at.fail("not an array");
    for (size_t i = 0; i < array.size(); ++i)
        take(array[i], place{at.up, at.key, i});
}

// Each throws scenario_error when the value is of another kind or beyond the limits.
uint64_t to_number(const json &value, const place &at, uint64_t min, uint64_t max);
bool to_bool(const json &value, const place &at);
std::string to_text(const json &value, const place &at, size_t max_bytes);
size_t to_choice(const json &value, const place &at, std::span<const std::string_view> choices);
uint64_t to_byte_count(const json &value, const place &at);
int to_error_number(const json &value, const place &at);
sense_code to_sense(const json &value, const place &at);
std::string to_portal(const json &value, const place &at);
std::string to_field(const json &value, const place &at, const field &where);

// What is wrong with a portal's "host:port". Empty: nothing.
std::string portal_error(std::string_view portal);

struct lun_number {
    uint64_t wire;
    bool raw; // given as its eight bytes
    uint32_t number;
};
inline constexpr uint32_t lun_number_max = 0x3FFF;
uint64_t lun_wire(uint32_t number);
lun_number to_lun(const json &value, const place &at);

} // namespace hostsim
