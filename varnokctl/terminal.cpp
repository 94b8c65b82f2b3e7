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

constexpr size_t usual_width = 80;

} // namespace

size_t terminal_width(int descriptor)
{
    winsize window{};
    if (ioctl(descriptor, TIOCGWINSZ, &window) != 0)
        return 0;
    return window.ws_col == 0 ? usual_width : window.ws_col;
}

size_t output_width()
{
    size_t width = 0;
    const char *columns = std::getenv("COLUMNS");
    if (columns != nullptr)
        std::from_chars(columns, columns + std::strlen(columns), width);
    if (width == 0)
        width = terminal_width(STDOUT_FILENO);
    return width == 0 ? unlimited_width : width;
}

bool output_has_colours()
{
    const char *const none = std::getenv("NO_COLOR");
    const char *const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (none == nullptr || *none == '\0') &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

} // namespace ctl
