// document.h - the JSON of a scenario.
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace hostsim
{

using json = nlohmann::ordered_json; // errors come in the order of the text

// Comments are allowed, doubled members are not. Throws scenario_error.
json parse_document(std::string_view text);

} // namespace hostsim
