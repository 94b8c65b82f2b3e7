#include "varnokctl/metric_text.h"

#include <fmt/format.h>
#include <iterator>
#include <utility>

namespace ctl
{

label_set &label_set::add(std::string_view name, std::string_view value)
{
    if (value.empty())
        return *this;
    fmt::format_to(std::back_inserter(text_), "{}{}=\"", text_.empty() ? "" : ",", name);
    for (const char c : value) {
        if (c == '\\' || c == '"')
            text_ += '\\';
        if (c == '\n')
            text_ += "\\n";
        else
            text_ += c;
    }
    text_ += '"';
    return *this;
}

label_set distinct_labels::of(label_set labels)
{
    const size_t count = ++seen_[labels.text()];
    if (count > 1)
        labels.add(counter_, fmt::to_string(count));
    return labels;
}

void metric_text::begin(const metric_family &family)
{
    family_ = family;
    is_headed_ = false;
}

void metric_text::add(const label_set &labels, uint64_t value)
{
    add_sample(labels, fmt::to_string(value));
}

void metric_text::add_seconds(double value) { add_sample({}, fmt::format("{:.6f}", value)); }

void metric_text::add_sample(const label_set &labels, std::string_view value)
{
    const auto end = std::back_inserter(text_);
    if (!is_headed_) {
        const auto &[name, unit, help] = family_;
        fmt::format_to(end, "# HELP {0} {1}\n# TYPE {0} gauge\n", name, help);
        if (!unit.empty())
            fmt::format_to(end, "# UNIT {} {}\n", name, unit);
        is_headed_ = true;
    }
    if (labels.text().empty())
        fmt::format_to(end, "{} {}\n", family_.name, value);
    else
        fmt::format_to(end, "{}{{{}}} {}\n", family_.name, labels.text(), value);
}

std::string metric_text::finish() { return std::move(text_) + "# EOF\n"; }

} // namespace ctl
