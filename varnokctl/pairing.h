// Pairs the elements of two lists by keys.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <ranges>
#include <string>
#include <vector>

namespace ctl
{

class pairing
{
  public:
    pairing(size_t before, size_t after) : after_of_(before), before_of_(after) {}

    // Pairs what is left, in its order, where the keys are equal and not empty. Keys come by place.
    template <class KeyBefore, class KeyAfter>
    void match(const KeyBefore &key_before, const KeyAfter &key_after)
    {
        std::map<std::string, std::vector<size_t>> waiting; // the first at the end
        for (size_t place = before_of_.size(); place-- > 0;)
            if (!before_of_[place])
                if (std::string key = key_after(place); !key.empty())
                    waiting[std::move(key)].push_back(place);
        for (size_t place = 0; place < after_of_.size() && !waiting.empty(); ++place) {
            if (after_of_[place])
                continue;
            const auto found = waiting.find(key_before(place));
            if (found == waiting.end() || found->second.empty())
                continue;
            after_of_[place] = found->second.back();
            before_of_[found->second.back()] = place;
            found->second.pop_back();
        }
    }

    // The partners, by place.
    const std::vector<std::optional<size_t>> &after_of() const { return after_of_; }
    const std::vector<std::optional<size_t>> &before_of() const { return before_of_; }

  private:
    std::vector<std::optional<size_t>> after_of_, before_of_;
};

} // namespace ctl
