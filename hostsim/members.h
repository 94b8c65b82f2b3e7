// members.h - reads an object of the scenario by a table of its members. A row has the member's
// name and its kind: what values it takes, and where they go.
#pragma once

#include "record_fields.h"
#include "values.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace hostsim
{

template <class Object>
struct member {
    std::string_view name;
    void (*read)(Object &into, const json &value, const place &at);
    bool required = false;
};

inline constexpr bool required = true;

// The type behind a pointer to a data member, without std::optional.
template <class Pointer>
struct pointed_to;
template <class Object, class Value>
struct pointed_to<Value Object::*> {
    using type = Value;
};
template <class Object, class Value>
struct pointed_to<std::optional<Value> Object::*> {
    using type = Value;
};
template <auto Pointer>
using value_at = typename pointed_to<decltype(Pointer)>::type;

// ---- The kinds of a row -----------------------------------------------------------------------

template <auto Pointer, uint64_t Min = 0,
          uint64_t Max = std::numeric_limits<value_at<Pointer>>::max()>
inline constexpr auto number = [](auto &into, const json &value, const place &at) {
    into.*Pointer = static_cast<value_at<Pointer>>(to_number(value, at, Min, Max));
};

template <auto Pointer, size_t MaxBytes = SIZE_MAX>
inline constexpr auto text = [](auto &into, const json &value, const place &at) {
    into.*Pointer = to_text(value, at, MaxBytes);
};

// Any other kind: a function converts the value.
template <auto Pointer, auto Convert>
inline constexpr auto made_by =
    [](auto &into, const json &value, const place &at) { into.*Pointer = Convert(value, at); };

template <auto ReadOne>
inline constexpr auto array_of = [](auto &into, const json &value, const place &at) {
    each_element(value, at,
                 [&](const json &element, const place &here) { ReadOne(into, element, here); });
};

inline constexpr auto ignored = [](auto &, const json &, const place &) {};

// ---- Objects ----------------------------------------------------------------------------------

// An object may give fields of a driver record by their names.
struct record_members {
    std::span<const field> fields;
    settings &given;
};

inline bool read_field(const record_members &record, std::string_view name, const json &value,
                       const place &at)
{
    const field *const f = find_field(record.fields, name);
    if (f != nullptr)
        record.given.push_back({f, to_field(value, at, *f)});
    return f != nullptr;
}

template <class Object>
void read_members(Object &into, const json &object, const place &at,
                  std::type_identity_t<std::span<const member<Object>>> members,
                  std::initializer_list<record_members> records = {})
{
    each_member(object, at, [&](const std::string &name, const json &value, const place &here) {
        const auto row = std::ranges::find(members, name, &member<Object>::name);
        const auto takes = [&](const record_members &r) {
            return read_field(r, name, value, here);
        };
        if (row != members.end())
            row->read(into, value, here);
        else if (std::ranges::none_of(records, takes))
            here.fail("unknown field");
    });
    for (const member<Object> &row : members)
        if (row.required && !object.contains(row.name))
            at.fail(std::string(row.name) + " is missing");
}

} // namespace hostsim
