#include "scenario_json.h"

#include "hostsim.h"

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace hostsim
{
namespace
{

// The parser keeps one of two members with the same name without an error.
class repeated_key_finder
{
  public:
    bool operator()(int, json::parse_event_t event, const json &parsed)
    {
        using parse_event = json::parse_event_t;
        if (event == parse_event::key) {
            open_.back().key = parsed.get<std::string>();
            if (!open_.back().keys.insert(open_.back().key).second)
                throw scenario_error(where() + ": given twice");
            return true;
        }
        if (event == parse_event::object_end || event == parse_event::array_end) {
            open_.pop_back();
            return true;
        }
        if (!open_.empty())
            ++open_.back().values;
        if (event != parse_event::value)
            open_.push_back({event == parse_event::array_start, 0, {}, {}});
        return true;
    }

  private:
    struct container {
        bool array;
        size_t values; // begun so far
        std::string key;
        std::set<std::string> keys;
    };

    std::string where() const
    {
        std::string text;
        for (const container &c : open_) {
            if (c.array)
                text += '[' + std::to_string(c.values - 1) + ']';
            else
                text += (text.empty() ? "" : ".") + c.key;
        }
        return text;
    }

    std::vector<container> open_;
};

} // namespace

void parse_document(std::string_view text, const std::function<void(const json &)> &take)
{
    json document;
    try {
        repeated_key_finder finder;
        document = json::parse(text, std::ref(finder), true, true);
    } catch (const json::exception &e) {
        std::string what = e.what(); // begins with the exception's name in brackets
        size_t name_end = what.find("] ");
        throw scenario_error(name_end == std::string::npos ? what : what.substr(name_end + 2));
    }
    take(document);
}

} // namespace hostsim
