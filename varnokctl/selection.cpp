#include "varnokctl/selection.h"

#include "varnokctl/json.h"
#include "varnokctl/scsi_command.h"

#include <algorithm>
#include <compare>
#include <fmt/format.h>
#include <sstream>

namespace ctl
{
namespace
{

std::vector<std::string> words_of(const std::string &list)
{
    std::vector<std::string> words;
    std::istringstream stream(list);
    for (std::string word; std::getline(stream, word, ',');)
        words.push_back(word);
    return words;
}

const record_field *find_column(const record_kind &kind, const std::string &name)
{
    const auto found = std::ranges::find_if(
        kind.fields, [&](const record_field &field) { return name == field.key; });
    if (found == kind.fields.end())
        throw usage_error(fmt::format("there is no column '{}'; the columns of {} are {}",
                                      safe_text(name), kind.plural, column_names(kind)));
    return &*found;
}

// What a column is sorted by: a number before a text, and nothing at the end.
struct sort_value {
    int kind = 2;
    uint64_t number = 0;
    std::string text{};

    // NOLINTNEXTLINE(modernize-use-nullptr): a false alarm of this version
    auto operator<=>(const sort_value &) const = default;
};

sort_value value_of(const record_field &field, const listed_record &record)
{
    if (record.failed != nullptr && std::string_view(field.key) != "port")
        return {};
    if (record.failed != nullptr)
        return {0, record.port};
    const field_value value = field.value(record, {.utf8 = true});
    const json &number =
        value.data.is_object() && value.data.contains("number") ? value.data["number"]
        : value.data.is_object() && value.data.contains("code") ? value.data["code"]
                                                                : value.data;
    if (number.is_number_unsigned())
        return {0, number.get<uint64_t>()};
    if (field.shape == look::number && number.is_string()) { // too large for some readers of JSON
        const auto &digits = number.get_ref<const std::string &>();
        return {0, std::strtoull(digits.c_str(), nullptr, 10)};
    }
    return value.text.empty() ? sort_value{} : sort_value{1, 0, value.text};
}

} // namespace

std::string column_names(const record_kind &kind)
{
    std::string names;
    for (const record_field &field : kind.fields)
        names += (names.empty() ? "" : ", ") + std::string(field.key);
    return names;
}

selection select(const record_kind &kind, const std::string &columns, const std::string &sort)
{
    selection chosen;
    for (const std::string &word : words_of(columns))
        chosen.columns.push_back(find_column(kind, word));
    for (const std::string &word : words_of(sort)) {
        const bool descending = word.starts_with('-');
        chosen.order.emplace_back(find_column(kind, word.substr(descending ? 1 : 0)), descending);
    }
    return chosen;
}

bool wants_identity(const selection &chosen)
{
    return std::ranges::any_of(chosen.columns, &record_field::of_identity) ||
           std::ranges::any_of(chosen.order, [](const auto &by) { return by.first->of_identity; });
}

void sort_records(std::vector<listed_record> &records, const selection &chosen)
{
    using keyed_record = std::pair<std::vector<sort_value>, listed_record>;
    if (chosen.order.empty())
        return;
    std::vector<keyed_record> keyed;
    for (const listed_record &record : records) {
        std::vector<sort_value> keys;
        for (const auto &[field, descending] : chosen.order)
            keys.push_back(value_of(*field, record));
        keyed.emplace_back(std::move(keys), record);
    }
    std::ranges::stable_sort(keyed, [&](const keyed_record &a, const keyed_record &b) {
        for (size_t at = 0; at < chosen.order.size(); ++at) {
            const auto &[left, right] = std::pair(a.first[at], b.first[at]);
            if (left == right)
                continue;
            const bool both_there = left.kind != 2 && right.kind != 2;
            return both_there && chosen.order[at].second ? right < left : left < right;
        }
        return false;
    });
    std::ranges::transform(keyed, records.begin(), &keyed_record::second);
}

} // namespace ctl
