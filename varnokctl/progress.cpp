#include "varnokctl/progress.h"

#include <cstdlib>
#include <string_view>

#include <fmt/format.h>

#include "varnokctl/terminal.h"

namespace ctl
{
namespace
{

using std::chrono::milliseconds;

constexpr milliseconds delay{500};
constexpr milliseconds pause{100};
constexpr const char *start_of_line = "\r";
constexpr const char *clear_to_end = "\x1b[K";

bool has(const char *variable, std::string_view value)
{
    const char *found = std::getenv(variable);
    return found != nullptr && found == value;
}

} // namespace

// The library's log goes to standard error too, from within its calls.
progress::progress(std::FILE *stream, time (*clock)())
    : stream_(stream), clock_(clock), next_(clock() + delay),
      silent_(has("TERM", "dumb") || std::getenv("VARNOK_API_DEBUG") != nullptr)
{
}

progress::~progress()
{
    if (drawn_)
        std::fprintf(stream_, "%s%s", start_of_line, clear_to_end);
}

void progress::show(const std::string &text)
{
    const time now = clock_();
    if (silent_ || now < next_)
        return;
    next_ = now + pause;
    const size_t width = terminal_width(fileno(stream_)); // it may have changed
    if (width == 0)
        return;
    // A character in the last column would make some terminals begin another line.
    fmt::print(stream_, "{}{}{}", start_of_line, text.substr(0, width - 1), clear_to_end);
    std::fflush(stream_);
    drawn_ = true;
}

} // namespace ctl
