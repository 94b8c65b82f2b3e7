// scenario_json.h - parses the text of a scenario.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace hostsim
{

using json = nlohmann::ordered_json; // keeps the members' order, so the first error comes first

// Calls take with the document. Accepts comments and refuses a member that is given twice. Throws
// scenario_error.
void parse_document(std::string_view text, const std::function<void(const json &)> &take);

} // namespace hostsim
