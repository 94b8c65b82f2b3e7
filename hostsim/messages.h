// messages.h - what the simulated host tells its user on standard error.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace hostsim
{

// The text for a terminal. Bytes that are not printable ASCII become "\x1B", and what is longer
// than most_bytes is cut and ends with "...".
std::string shown(std::string_view text, size_t most_bytes = 120);

// Writes "varnok-host: " and the line, which must be fit for a terminal. errno stays as it is.
void complain(const std::string &line);

} // namespace hostsim
