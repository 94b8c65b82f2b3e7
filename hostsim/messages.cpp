#include "messages.h"

#include <cerrno>
#include <cstdio>
#include <set>
#include <unistd.h>
#include <utility>

namespace hostsim
{
namespace
{

std::string awaited; // empty: nothing
bool line_is_there = false;

void erase_line()
{
    if (line_is_there)
        std::fputs("\r\x1B[K", stderr);
    line_is_there = false;
}

} // namespace

std::string shown(std::string_view text, size_t most_bytes)
{
    std::string made;
    for (const char c : text) {
        char escape[5] = {c};
        if (c < ' ' || c > '~' || c == '\\')
            snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(c));
        if (made.size() + std::string_view(escape).size() > most_bytes)
            return made + "...";
        made += escape;
    }
    return made;
}

void complain(const std::string &line)
{
    const int error = errno;
    erase_line();
    std::fprintf(stderr, "varnok-host: %s\n", line.c_str());
    errno = error;
}

void complain_once(const std::string &line)
{
    constexpr size_t most = 1000;                      // a program may run for long
    static auto &written = *new std::set<std::string>; // a program may use a host when it ends
    if (written.size() >= most || !written.insert(line).second)
        return;
    complain(line);
    if (written.size() == most)
        complain("there is more of this kind, which is not told any more");
}

progress::progress(std::string text) { awaited = std::move(text); }

progress::~progress()
{
    erase_line();
    awaited.clear();
}

void progress::waited()
{
    if (line_is_there || awaited.empty() || isatty(STDERR_FILENO) == 0)
        return;
    line_is_there = true;
    std::fprintf(stderr, "\rvarnok-host: %s\x1B[K", awaited.c_str());
}

} // namespace hostsim
