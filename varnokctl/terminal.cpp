#include "varnokctl/terminal.h"

#include <charconv>
#include <cstdlib>
#include <cstring>

#include <sys/ioctl.h>
#include <unistd.h>

namespace ctl
{
namespace
{
constexpr size_t usual = 80;
}

size_t terminal_width(int descriptor)
{
    winsize window{};
    if (ioctl(descriptor, TIOCGWINSZ, &window) != 0)
        return 0;
    return window.ws_col == 0 ? usual : window.ws_col;
}

size_t output_width()
{
    size_t width = 0;
    if (const char *columns = std::getenv("COLUMNS"))
        std::from_chars(columns, columns + std::strlen(columns), width);
    if (width == 0)
        width = terminal_width(STDOUT_FILENO);
    return width == 0 ? usual : width;
}

} // namespace ctl
