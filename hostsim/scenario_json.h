// scenario_json.h - parses the text of a scenario.
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace hostsim
{

using json = nlohmann::ordered_json; // keeps the members' order, so the first error comes first

// Accepts comments and refuses a member that is given twice. Throws scenario_error.
json parse_document(std::string_view text);

} // namespace hostsim
