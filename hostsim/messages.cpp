#include "messages.h"

#include <cerrno>
#include <cstdio>

namespace hostsim
{

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
    std::fprintf(stderr, "varnok-host: %s\n", line.c_str());
    errno = error;
}

} // namespace hostsim
