// What a terminal gets to see of a long reading, by a clock that goes on at every look.
#include "varnokctl/inventory.h"

#include <array>
#include <cstdlib>

#include <pty.h>
#include <unistd.h>

#include "host_test.h"

namespace
{

std::chrono::milliseconds time_now, step;

ctl::progress::time next_time()
{
    time_now += step;
    return ctl::progress::time(time_now);
}

// Both ends of a terminal, or of a pipe when it has no columns.
std::array<int, 2> ends(unsigned short columns)
{
    std::array<int, 2> pair{};
    winsize window{25, columns, 0, 0};
    const int failed = columns == 0 ? pipe(pair.data()) : openpty(&pair[0], &pair[1], nullptr, nullptr, &window);
    EXPECT_EQ(failed, 0);
    return pair;
}

std::string text_of_reading(unsigned short columns)
{
    const auto [read_end, write_end] = ends(columns);
    std::FILE *stream = fdopen(write_end, "w");
    if (stream == nullptr)
        return "no terminal to be had";
    ctl::inventory_request ask;
    ask.needs = ctl::need_luns;
    EXPECT_TRUE(ctl::read_host(ask, ctl::progress(stream, next_time)).failures.empty());
    std::fputs("!", stream);
    std::fflush(stream);
    std::string text;
    for (char c = 0; c != '!' && read(read_end, &c, 1) == 1;)
        text += c;
    std::fclose(stream);
    close(read_end);
    return text;
}

class Progress : public HostTest
{
};

TEST_F(Progress, IsOneLineThatIsGoneInTheEnd)
{
    const struct {
        int step;
        unsigned short columns;
        const char *variable, *value;
        std::string text;
    } cases[] = {
        {41, 80, "TERM", "xterm", ""},
        {50, 80, "TERM", "xterm",
         "\rvarnokctl: port 1, target 4 of 6, 18 LUNs read\x1b[K"
         "\rvarnokctl: port 1, target 6 of 6, 22 LUNs read\x1b[K\r\x1b[K"},
        {50, 24, "TERM", "xterm", "\rvarnokctl: port 1, targ\x1b[K\rvarnokctl: port 1, targ\x1b[K\r\x1b[K"},
        {500, 0, "TERM", "xterm", ""},
        {500, 80, "TERM", "dumb", ""},
        {500, 80, "VARNOK_API_DEBUG", "0", ""},
    };
    for (const auto &c : cases) {
        simulate(
            R"({"ports": [{"driver": "dxo", "repeat": 2, "sessions": [{"repeat": 6, "luns": [{"repeat": 2}]}]}]})");
        step = std::chrono::milliseconds(c.step);
        setenv("TERM", "xterm", 1);
        setenv(c.variable, c.value, 1);
        EXPECT_EQ(text_of_reading(c.columns), c.text + "!") << c.step << c.variable;
        unsetenv("VARNOK_API_DEBUG");
    }
}

} // namespace
