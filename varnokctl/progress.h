// Shows on a terminal how far a long reading is, in one line that comes and goes.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

namespace ctl
{

class progress
{
  public:
    using time = std::chrono::steady_clock::time_point;

    static time steady_time() { return std::chrono::steady_clock::now(); }

    // Nothing is shown on a stream that leads to no terminal, or on none.
    explicit progress(std::FILE *stream, time (*clock)() = steady_time);
    static progress none() { return progress(nullptr); }
    ~progress(); // wipes the line
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    // Draws the line again, unless it is too early for that. The text is ASCII.
    void show(const std::string &text);

  private:
    std::FILE *stream_;
    time (*clock_)();
    time next_;
    bool silent_;
    bool drawn_ = false;
};

} // namespace ctl
