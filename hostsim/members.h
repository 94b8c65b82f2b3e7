// members.h - tables of the members of a scenario's objects. A row has the member's name and its
// kind: what values it takes, and where they go.
#pragma once

#include "values.h"

#include <algorithm>
#include <cstdint>
#include <functional>
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

// ---- Objects ----------------------------------------------------------------------------------

// Takes a member that is not in the table, or returns false.
using other_members =
    std::function<bool(std::string_view name, const json &value, const place &at)>;

template <class Object>
void read_members(Object &into, const json &object, const place &at,
                  std::type_identity_t<std::span<const member<Object>>> members,
                  const other_members &others = nullptr)
{
    each_member(object, at, [&](std::string_view name, const json &value, const place &here) {
        const auto row = std::ranges::find(members, name, &member<Object>::name);
        if (row != members.end())
            row->read(into, value, here);
        else if (others == nullptr || !others(name, value, here))
            here.fail("unknown field");
    });
    for (const member<Object> &row : members)
        if (row.required && !has_member(object, row.name))
            at.fail(std::string(row.name) + " is missing");
}

} // namespace hostsim
