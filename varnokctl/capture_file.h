// Reads captures back. Anybody may have written them.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace ctl
{

// Finds a member fast, however many an object has. Of members that are given twice the last counts.
using capture_json = nlohmann::json;

// The text is no capture; what() says why.
class capture_error : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// The file's text; "-" is standard input. Throws a capture_error, or a std::system_error.
std::string capture_text(const std::string &path);

// What it returns has the form of a capture: ports, sessions, LUNs, devices and failures are objects
// in lists, and each device that a LUN names is there. Other values may be anything. Throws a
// capture_error.
capture_json parse_capture(std::string_view text);

} // namespace ctl
