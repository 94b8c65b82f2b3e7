// Collects what two captures differ in.
#pragma once

#include "varnokctl/capture_diff.h"
#include "varnokctl/captured_fields.h"

#include <array>
#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <tuple>

namespace ctl
{

enum side : size_t { before_side, after_side };

template <class Value>
using both = std::array<Value, 2>;

// What the two records are called, and which of their fields cannot be compared.
struct compared_pair {
    const char *what;
    std::string name;
    unsigned left_out = 0;     // traits
    bool absence_told = false; // a failure said why a field is missing
};

class difference_list
{
  public:
    explicit difference_list(const comparison_style &style) : style_(style) {}

    // What only this side has.
    void add(side where, const char *what, std::string name);

    // What this side lacks though it may be there.
    void note_unread(side where, std::string name, std::string why);

    void compare_fields(std::span<const captured_field> fields, const compared_pair &pair,
                        const capture_json &before, const capture_json &after);

    // Only when such numbers are asked for.
    void compare_numbers(const compared_pair &pair, const char *field, const capture_json &before,
                         const capture_json &after);

    capture_comparison take() { return std::move(result_); }

  private:
    void add_change(const compared_pair &pair, const captured_field &field,
                    const capture_json &before, const capture_json &after);

    const comparison_style &style_;
    std::set<std::tuple<std::string, std::string, std::string, std::string>> told_;
    capture_comparison result_;
};

} // namespace ctl
