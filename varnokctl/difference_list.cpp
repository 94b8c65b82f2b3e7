#include "varnokctl/difference_list.h"

#include <fmt/format.h>
#include <utility>

namespace ctl
{

void difference_list::add(side where, const char *what, std::string name)
{
    const change kind = where == before_side ? change::gone : change::added;
    result_.differences.push_back({kind, what, std::move(name), "", {}, {}});
}

void difference_list::note_unread(side where, std::string name, std::string why)
{
    auto &unread = where == before_side ? result_.unread_before : result_.unread_after;
    unread.push_back({std::move(name), std::move(why)});
}

void difference_list::compare_fields(std::span<const captured_field> fields,
                                     const compared_pair &pair, const capture_json &before,
                                     const capture_json &after)
{
    const unsigned left_out = pair.left_out | (style_.numbers ? 0U : unsigned{moves});
    for (const captured_field &field : fields) {
        const capture_json &was = captured_value(before, field);
        const capture_json &is = captured_value(after, field);
        if ((field.traits & left_out) != 0 || was == is)
            continue;
        const bool missing = was.is_null() || is.is_null();
        if (!missing || (field.traits & may_be_absent) != 0)
            add_change(pair, field, was, is);
        else if (!pair.absence_told)
            note_unread(was.is_null() ? before_side : after_side,
                        fmt::format("{} {}", pair.what, pair.name),
                        fmt::format("no {}", field.key));
    }
}

void difference_list::compare_numbers(const compared_pair &pair, const char *field,
                                      const capture_json &before, const capture_json &after)
{
    if (style_.numbers && before != after)
        add_change(pair, {field}, before, after);
}

void difference_list::add_change(const compared_pair &pair, const captured_field &field,
                                 const capture_json &before, const capture_json &after)
{
    field_value was = shown_value(field, before, style_.output);
    field_value is = shown_value(field, after, style_.output);
    // Another path to the device may have told it.
    if (!told_.insert({fmt::format("{} {}", pair.what, pair.name), field.key, was.text, is.text})
             .second)
        return;
    result_.differences.push_back(
        {change::changed, pair.what, pair.name, field.key, std::move(was), std::move(is)});
}

} // namespace ctl
