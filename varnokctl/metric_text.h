// Writes metrics as text. OpenMetrics and Prometheus' older text format both read it: to the older
// one the lines of units and of the end are comments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace ctl
{

// What tells one sample of a metric from another: `mac="02:00:00:00:00:01",target="iqn.a"`.
class label_set
{
  public:
    // A label without a value means the same as no label, and is left out.
    label_set &add(std::string_view name, std::string_view value);

    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

// Sees that no two things have the same labels: a reader refuses the whole text because of one pair.
class distinct_labels
{
  public:
    // The second thing with the same labels gets this one, too, with the value 2, and so on.
    explicit distinct_labels(std::string_view counter) : counter_(counter) {}

    label_set of(label_set labels);

  private:
    std::string_view counter_;
    std::unordered_map<std::string, size_t> seen_;
};

// All are gauges: a type "info" or "stateset" is unknown to the older format.
struct metric_family {
    std::string_view name;
    std::string_view unit; // empty for none; else the name ends with it
    std::string_view help;
};

class metric_text
{
  public:
    // The samples that follow are of this family. It is left out when none follows.
    void begin(const metric_family &family);

    void add(const label_set &labels, uint64_t value);
    void add_seconds(double value);

    std::string finish();

  private:
    void add_sample(const label_set &labels, std::string_view value);

    metric_family family_{};
    bool is_headed_ = false;
    std::string text_;
};

} // namespace ctl
