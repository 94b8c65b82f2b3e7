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

// Only the first of equal lines is written.
void complain_once(const std::string &line);

// A line on a terminal that says what the host waits for. It is there from the first call of
// waited() until the object ends.
class progress
{
  public:
    explicit progress(std::string text);
    ~progress();
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    static void waited();
};

} // namespace hostsim
