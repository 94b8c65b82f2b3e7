// members.h - tables of the members of a scenario's objects, and what reads such objects. A row has
// the member's name and its kind: what values it takes, and where they go.
#pragma once

#include "values.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace hostsim
{

template <class Object>
struct member {
    std::string_view name;
    void (*read)(Object &into, const value &v, const place &at);
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
inline constexpr auto number = [](auto &into, const value &v, const place &at) {
    into.*Pointer = static_cast<value_at<Pointer>>(to_number(v, at, Min, Max));
};

template <auto Pointer, size_t MaxBytes>
inline constexpr auto text =
    [](auto &into, const value &v, const place &at) { into.*Pointer = to_text(v, at, MaxBytes); };

// Any other kind: a function converts the value.
template <auto Pointer, auto Convert>
inline constexpr auto made_by =
    [](auto &into, const value &v, const place &at) { into.*Pointer = Convert(v, at); };

// ---- Objects and arrays -----------------------------------------------------------------------

// Fields of a driver's record, and where the values that are given for them go.
struct field_group {
    std::span<const field> fields;
    settings *into;
};

enum class nested : uint8_t { none, object, array };

template <class Object>
class object_reader : public container
{
  public:
    explicit object_reader(Object &into, std::span<const member<Object>> rows,
                           std::array<field_group, 2> groups = {})
        : into_(into), rows_(rows), groups_(groups)
    {
    }

    bool select(std::string_view name) override
    {
        const auto row = std::ranges::find(rows_, name, &member<Object>::name);
        row_ = static_cast<size_t>(row - rows_.begin());
        field_ = nullptr;
        nested_ = nested::none;
        if (row != rows_.end())
            return true;
        for (const field_group &group : groups_) {
            field_ = find_field(group.fields, name);
            settings_ = group.into;
            if (field_ != nullptr)
                return true;
        }
        nested_ = nested_member(name);
        return nested_ != nested::none;
    }

    void take(const value &v, const place &at) override
    {
        if (nested_ != nested::none)
            at.fail(nested_ == nested::array ? "not an array" : "not an object");
        if (field_ != nullptr)
            return settings_->push_back({field_, to_field(v, at, *field_)});
        rows_[row_].read(into_, v, at);
        given_ |= 1U << row_;
    }

    std::unique_ptr<container> open(bool array, const place &at) override
    {
        if (nested_ == (array ? nested::array : nested::object))
            return open_nested(at);
        if (nested_ == nested::none && array)
            return open_bytes(*this, at);
        return container::open(array, at);
    }

    void close(const place &at) override
    {
        for (size_t k = 0; k < rows_.size(); ++k)
            if (rows_[k].required && (given_ >> k & 1) == 0)
                at.fail(std::string(rows_[k].name) + " is missing");
    }

  protected:
    // A member that is an object or an array, and the opening of it.
    virtual nested nested_member(std::string_view) const { return nested::none; }
    virtual std::unique_ptr<container> open_nested(const place &) { return nullptr; }

    Object &into_;

  private:
    std::span<const member<Object>> rows_;
    std::array<field_group, 2> groups_;
    uint32_t given_ = 0; // a bit for each row
    // The member that was selected:
    size_t row_ = 0;
    const field *field_ = nullptr;
    settings *settings_ = nullptr;
    nested nested_ = nested::none;
};

// An array of objects. open(place) begins one of them.
template <class Open>
class object_array : public container
{
  public:
    explicit object_array(Open open) : open_(std::move(open)) {}

    void take(const value &, const place &at) override { at.fail("not an object"); }
    std::unique_ptr<container> open(bool array, const place &at) override
    {
        return array ? container::open(array, at) : open_(at);
    }

  private:
    Open open_;
};

template <class Open>
std::unique_ptr<container> objects(Open open)
{
    return std::make_unique<object_array<Open>>(std::move(open));
}

} // namespace hostsim
