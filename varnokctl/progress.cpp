#include "varnokctl/progress.h"

#include "varnokctl/terminal.h"

#include <cstdlib>
#include <fmt/format.h>
#include <string_view>

namespace ctl
{
namespace
{

constexpr std::chrono::milliseconds delay{500}; // before the line comes
constexpr std::chrono::milliseconds pause{100}; // between two of its texts
constexpr const char *start_of_line = "\r";
constexpr const char *clear_to_end = "\x1b[K";

bool terminal_is_dumb()
{
    const char *terminal = std::getenv("TERM");
    return terminal != nullptr && std::string_view(terminal) == "dumb";
}

} // namespace

// The library's log goes to standard error too, so the line is not shown together with it.
progress::progress(std::FILE *stream, time (*clock)())
    : stream_(stream), clock_(clock), next_(clock() + delay),
      silent_(stream == nullptr || terminal_is_dumb() || std::getenv("VARNOK_API_DEBUG") != nullptr)
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
    const size_t width = terminal_width(fileno(stream_)); // a user may have changed it
    if (width == 0)
        return;
    // Some terminals begin another line after a character in the last column.
    fmt::print(stream_, "{}{}{}", start_of_line, text.substr(0, width - 1), clear_to_end);
    std::fflush(stream_);
    drawn_ = true;
}

} // namespace ctl
