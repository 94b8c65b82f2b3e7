// The debug log and the semaphores.
#include "host_test.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/sem.h>
#include <tuple>
#include <unistd.h>

namespace
{

std::string file_text(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct LogTest : HostTest {
    static std::string print(const char *func, const std::string &text, uint64_t number, uint8_t radix)
    {
        return log_of(4, [&] { varnok_dbg_print(func, text.c_str(), number, radix, 1); });
    }
};

TEST_F(LogTest, Numbers)
{
    const std::tuple<uint64_t, uint8_t, std::string> cases[] = {
        {0, 10, "0"},     {0, 16, "0"},
        {9, 16, "9"},     {10, 16, "Ah"},
        {10, 10, "10"},   {31, 16, "1Fh"},
        {255, 10, "255"}, {0x80000004, 16, "80000004h"},
        {5, 0, ""},       {UINT64_MAX, 16, "FFFFFFFFFFFFFFFFh"},
        {5, 2, "101"},    {UINT64_MAX, 10, "18446744073709551615"},
        {35, 37, "Z"},    {255, 255, "10"},
        {5, 1, ""},       {254, 255, "?"},
    };
    for (const auto &[number, radix, text] : cases)
        EXPECT_EQ(print("f", ":n=", number, radix), "f:n=" + text + "\n");
    EXPECT_EQ(print(nullptr, " 100%s %n", 0, 0), " 100%s %n\n");
    EXPECT_EQ(log_of(0, [] { varnok_dbg_print("f", "x", 0, 0, 1); }), "");
    EXPECT_EQ(varnok_dbg_get_fptr(), nullptr) << "no file without a bit or a path";
}

TEST_F(LogTest, LongLinesLeaveInPieces)
{
    for (size_t length : {249U, 250U, 251U, 252U, 300U, 600U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(print(nullptr, text, 0, 0), text + "\n");
        // What leaves early leaves in pieces of 251: an unfinished line shows how many went.
        const std::string early = log_of(4, [&] { varnok_dbg_print(nullptr, text.c_str(), 0, 0, 0); });
        EXPECT_EQ(early.size(), length / 251 * 251) << length;
        log_of(4, [] { varnok_dbg_print(nullptr, "", 0, 0, 1); });
    }
}

TEST_F(LogTest, TheMaskFollowsTheEnvironment)
{
    const std::pair<const char *, uint32_t> cases[] = {
        {"6", 6},   {"0x4", 4}, {"4", 4},       {" 7", 7},        {"-1", 0xFFFFFFFF},
        {"xyz", 0}, {"", 0},    {"0X1f", 0x1F}, {"100000006", 6},
    };
    for (const auto &[text, mask] : cases) {
        setenv("VARNOK_API_DEBUG", text, 1);
        varnok_set_debug_level();
        EXPECT_EQ(varnok_debug, mask) << text;
    }
    unsetenv("VARNOK_API_DEBUG");
    varnok_debug = 6;
    varnok_set_debug_level();
    EXPECT_EQ(varnok_debug, 6U) << "an absent variable changes nothing";
}

TEST_F(LogTest, TheFileGetsTimeStampedLines)
{
    const std::string path = platform::private_path("/var/tmp/libvarnok.log");
    remove(path.c_str());
    const auto two_lines = [] {
        varnok_dbg_print("f", "(", 3, 10, 0);
        varnok_dbg_print(nullptr, "): entered.", 0, 0, 1);
        varnok_dbg_print("g", ": x=", 17, 16, 1);
    };
    EXPECT_EQ(log_of(7, two_lines), "f(3): entered.\ng: x=11h\n");
    EXPECT_STREQ(varnoklog_path, "/var/tmp/libvarnok.log");
    const std::string stamp = "[A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: ";
    EXPECT_THAT(file_text(path), testing::MatchesRegex(stamp + "f\\(3\\): entered\\.\n" + stamp + "g: x=11h\n"));
    EXPECT_EQ(varnokdbg_fp, nullptr);
    remove(path.c_str());

    // Without a file: standard error alone. Without local time: the piece is dropped whole.
    platform::fail_call("fdopen", 1, ENOMEM);
    errno = 1234;
    EXPECT_EQ(log_of(7, [] { varnok_dbg_print("f", ": x", 0, 0, 1); }), "f: x\n");
    EXPECT_EQ(errno, 1234);
    platform::fail_call("localtime", 1, EINVAL);
    EXPECT_EQ(log_of(7, two_lines), "f(3g: x=11h\n");
    platform::fail_allocation(1);
    EXPECT_EQ(log_of(4, two_lines), "): entered.\ng: x=11h\n");
    // A path that fills its array has no end.
    memset(varnoklog_path, 'x', sizeof varnoklog_path);
    EXPECT_EQ(varnok_dbg_get_fptr(), nullptr);
    expect_nothing_held();
}

// A print of a line takes the semaphore once for each piece; a failure on the log's own goes to
// standard error, once for each print, and the line is written all the same.
TEST_F(LogTest, AFailingLogSemaphoreDoesNotRecurse)
{
    const std::string wait = "varnok_sem_wait:libvarnok: WARNING - semaphore wait operation failed. errno=16h\n";
    const std::string signal = "varnok_sem_signal:libvarnok: WARNING - semaphore signal operation failed. errno=4\n";
    const auto line = [] { varnok_dbg_print("f", ": x", 0, 0, 1); };
    platform::fail_call("semop", 1, EINVAL);
    EXPECT_EQ(log_of(4, line), wait + "f: x\n");
    platform::fail_call("semop", 2, EINTR);
    EXPECT_EQ(log_of(4, line), "f: x\n" + signal);
    EXPECT_EQ(platform::held_semaphores(), 0);
    varnok_sem_del(varnok_dbg_sem_id);
    varnok_dbg_sem_id = -1;
    EXPECT_EQ(log_of(7, line), "f: x\n") << "no semaphore: no lock, and no warning";
    // Another semaphore's failure goes through the log.
    EXPECT_EQ(log_of(4, [] { varnok_sem_wait(12345678); }), wait);
}

TEST_F(LogTest, GettingASemaphore)
{
    const key_t key = varnok_db_semkey;
    platform::fail_call("semctl", 1, EPERM);
    EXPECT_EQ(varnok_sem_get(key), -1) << "a set that cannot be set up is removed";
    EXPECT_EQ(semget(key, 1, 0), -1);
    errno = EPERM;
    EXPECT_EQ(errno, EPERM);
    const int32_t id = varnok_sem_get(key);
    EXPECT_GE(id, 0);
    EXPECT_EQ(semctl(id, 0, GETVAL), 1);
    EXPECT_EQ(varnok_sem_get(key), id);
    EXPECT_EQ(varnok_sem_wait(id), 0);
    EXPECT_EQ(varnok_sem_get(key), id) << "held";
    EXPECT_EQ(varnok_sem_signal(id), 0);
    varnok_sem_del(id);
    platform::fail_call("semget", 2, ENOSPC);
    EXPECT_EQ(varnok_sem_get(key), -1);
    EXPECT_EQ(errno, ENOSPC);
    // Another process makes it in the same moment, or takes it away before its value.
    platform::fail_call("semget", 2, EEXIST);
    varnok_sem_del(varnok_sem_get(key));
    platform::fail_call("semctl", 1, EIDRM);
    int32_t next = varnok_sem_get(key);
    EXPECT_EQ(semctl(next, 0, GETVAL), 1);
    platform::fail_call("semctl", 1, EIDRM);
    platform::when_it_fails([next] { varnok_sem_del(next); });
    const int32_t gone = next;
    next = varnok_sem_get(key);
    EXPECT_NE(next, gone);
    varnok_sem_del(next);
    // One that is always there to make, and never to fetch.
    platform::fail_call("semget", 2, EEXIST);
    platform::when_it_fails([] { platform::fail_call("semget", 2, EEXIST); });
    EXPECT_EQ(varnok_sem_get(key), -1);
    EXPECT_EQ(errno, EBUSY);
}

// Whose set lies under the key, who asks, and what becomes of it.
TEST_F(LogTest, SetsThatOthersMade)
{
    enum fate { used, replaced, refused };
    struct {
        uid_t asks, made;
        int semaphores;
        fate then;
    } const cases[] = {
        {0, 0, 1, used},     {0, 12345, 1, replaced},    {0, 0, 2, replaced},        {12345, 12345, 1, used},
        {12345, 0, 1, used}, {12345, 54321, 1, refused}, {12345, 12345, 2, refused},
    };
    const key_t key = varnok_db_semkey;
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.asks << ' ' << c.made << ' ' << c.semaphores);
        for (const bool told : {true, false}) {
            if (seteuid(c.made) != 0)
                GTEST_SKIP() << "only root can be somebody else";
            const int32_t there = semget(key, c.semaphores, IPC_CREAT | 0666);
            unsigned short ones[] = {1, 1};
            semctl(there, 0, SETALL, ones);
            ASSERT_TRUE(seteuid(0) == 0 && seteuid(c.asks) == 0);
            if (!told)
                platform::fail_call("semctl", 1, ENOSYS);
            const int32_t id = varnok_sem_get(key);
            EXPECT_TRUE(id != -1 || errno == EPERM);
            ASSERT_EQ(seteuid(0), 0);
            EXPECT_EQ(id == -1 ? refused : id == there ? used : replaced, told ? c.then : used);
            EXPECT_TRUE(id == -1 || semctl(id, 0, GETVAL) == 1);
            varnok_sem_del(semget(key, 1, 0));
        }
    }
}

// A set that never had a value: whoever waited on it would wait for ever.
TEST_F(LogTest, SetsWhoseCreatorGaveNoValue)
{
    const key_t key = varnok_db_semkey;
    const auto get = [key](int32_t there, int value) {
        EXPECT_EQ(varnok_sem_get(key), there);
        EXPECT_EQ(semctl(there, 0, GETVAL), value);
        varnok_sem_del(there);
        return std::count(platform::calls().begin(), platform::calls().end(), "nanosleep");
    };
    const auto make = [key] {
        platform::reset();
        return semget(key, 1, IPC_CREAT | 0644);
    };
    long steps = get(make(), 1);
    EXPECT_TRUE(steps > 800 && steps <= 1000) << "ten seconds, less the part of one that the clock does not tell";
    int32_t id = make();
    platform::when_it_sleeps([] {});
    EXPECT_EQ(get(id, 1), 1000) << "a clock that stands";
    id = make();
    platform::fail_call("nanosleep", 1, EINTR);
    platform::when_it_sleeps([id] { semctl(id, 0, SETVAL, 1); });
    EXPECT_EQ(get(id, 1), 2) << "interrupted, and then born";
    id = make();
    platform::when_it_sleeps([id] { varnok_sem_del(id); });
    const int32_t next = varnok_sem_get(key);
    EXPECT_NE(next, id) << "removed, and made anew";
    varnok_sem_del(next);

    // Nobody sleeps, and nobody gives a value.
    id = make();
    semctl(id, 0, SETVAL, 0);
    EXPECT_EQ(get(id, 0), 0) << "0 on purpose";
    id = make();
    semctl(id, 0, SETVAL, 1);
    sembuf take = {0, -1, 0};
    ASSERT_EQ(semop(id, &take, 1), 0);
    EXPECT_EQ(get(id, 0), 0) << "held";
    for (const auto &[call, nth] :
         {std::pair("semget", 2), {"semctl", 4}, {"semctl", 5}, {"semop", 1}, {"semctl", 6}}) {
        id = make();
        platform::fail_call(call, nth, ENOSYS);
        EXPECT_EQ(get(id, 0), 0) << "a host that records nothing: " << call << nth;
    }
}

TEST_F(LogTest, Dump)
{
    const uint16_t words[] = {0x0001, 0x00AB, 0x1234};
    const uint32_t longs[] = {1, 0xDEADBEEF, 10, 9, 0};
    uint8_t bytes[33];
    for (size_t i = 0; i < sizeof bytes; ++i)
        bytes[i] = static_cast<uint8_t>(i * 9);
    const std::string quads(17, '\xFF');
    const auto table = [](const std::string &columns, size_t width, const std::string &elements) {
        const std::string rule = std::string(width, '-') + "\n";
        return columns + "\n" + rule + elements + rule;
    };
    const char *const columns_16 = "   0      2      4      6      8      Ah     Ch     Eh";
    const std::pair<std::tuple<const char *, const void *, uint32_t, uint64_t>, std::string> cases[] = {
        {{"title", words, 16, 3}, "title\n" + table(columns_16, 54, "   1     ABh  1234h  \n")},
        {{"", bytes, 8, sizeof bytes},
         table(" 0    1    2    3    4    5    6    7    8    9    Ah   Bh   Ch   Dh   Eh   Fh", 78,
               " 0    9   12h  1Bh  24h  2Dh  36h  3Fh  48h  51h  5Ah  63h  6Ch  75h  7Eh  87h\n"
               "90h  99h  A2h  ABh  B4h  BDh  C6h  CFh  D8h  E1h  EAh  F3h  FCh   5    Eh  17h\n20h  \n")},
        {{nullptr, longs, 32, 5},
         table("       0          4          8          Ch", 42,
               "       1   DEADBEEFh         Ah         9\n       0   \n")},
        // At an odd address: the elements need no alignment.
        {{"", quads.data() + 1, 64, 2},
         table("               0                  8", 35, "FFFFFFFFFFFFFFFFh  FFFFFFFFFFFFFFFFh\n")},
        {{"odd", words, 12, 3}, "odd\n"},
        {{"", words, 16, 0}, table(columns_16, 54, "")},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(log_of(0, [&] { std::apply(varnok_dbg_dump, c.first); }), c.second);
        platform::fail_call("semop", 1, EIO); // a dump that cannot be alone is written all the same
    }
}

} // namespace
