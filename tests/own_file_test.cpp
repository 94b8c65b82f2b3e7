// What lies under a fixed name is used only when nobody else can have laid it there.
#include "host_test.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

const std::string content(200, '\x03');

void write(const std::string &path) { std::ofstream(path, std::ios::binary) << content; }

struct trap {
    const char *name;
    int err; // 0: no trap at all
    bool (*lay)(const std::string &path, const std::string &victim);
};

constexpr trap traps[] = {
    {"plain", 0, [](auto &path, auto &) { return write(path), true; }},
    {"private", 0, [](auto &path, auto &) { return write(path), chmod(path.c_str(), 0600) == 0; }},
    {"link", ELOOP, [](auto &path, auto &victim) { return symlink(victim.c_str(), path.c_str()) == 0; }},
    {"link to nothing", ELOOP,
     [](auto &path, auto &victim) { return symlink((victim + "x").c_str(), path.c_str()) == 0; }},
    {"second name", EPERM, [](auto &path, auto &victim) { return link(victim.c_str(), path.c_str()) == 0; }},
    {"folder", EISDIR, [](auto &path, auto &) { return mkdir(path.c_str(), 0755) == 0; }},
    {"fifo", EPERM, [](auto &path, auto &) { return mkfifo(path.c_str(), 0644) == 0; }},
    {"group writes", EPERM, [](auto &path, auto &) { return write(path), chmod(path.c_str(), 0664) == 0; }},
    {"others write", EPERM, [](auto &path, auto &) { return write(path), chmod(path.c_str(), 0646) == 0; }},
    // Only a real root can lay these.
    {"device", EPERM, [](auto &path, auto &) { return mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 3)) == 0; }},
    {"foreign", EPERM, [](auto &path, auto &) { return write(path), chown(path.c_str(), 12345, 12345) == 0; }},
};

struct OwnFileTest : HostTest {
    const std::string shared = platform::private_path("/tmp/varnok_shared.dat");
    const std::string log = platform::private_path("/var/tmp/libvarnok.log");
    const std::string victim = shared + ".victim";

    ~OwnFileTest() override { clear(); }

    void clear() const
    {
        for (const std::string &path : {shared, log, victim, victim + "x"})
            fs::remove(path);
    }

    // Sets a trap, and whether that can be done here.
    bool lay(const trap &t, const std::string &path) const
    {
        clear();
        write(victim);
        return t.lay(path, victim);
    }

    void expect_untouched(const trap &t, const std::string &path) const
    {
        EXPECT_EQ(fs::file_size(victim), content.size());
        EXPECT_FALSE(fs::exists(victim + "x"));
        EXPECT_TRUE(t.err == 0 || !fs::is_regular_file(path) || fs::file_size(path) == content.size());
    }
};

TEST_F(OwnFileTest, TheSharedFile)
{
    for (const trap &t : traps) {
        SCOPED_TRACE(t.name);
        if (!lay(t, shared))
            continue;
        int32_t descriptor = 0;
        EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(varnok_open_database(&descriptor), t.err == 0 ? 0U : 1U); }),
                  t.err == 0 ? "varnok_open_database: assigned api_lib_instance=0\n"
                             : "varnok_open_database: Unable to create shared data file. errno=" +
                                   std::to_string(t.err) + "\n");
        expect_untouched(t, shared);
        varnok_close_database(0);
        expect_nothing_held();
    }
}

TEST_F(OwnFileTest, TheLogFile)
{
    for (const trap &t : traps) {
        SCOPED_TRACE(t.name);
        if (!lay(t, log))
            continue;
        errno = 77;
        EXPECT_EQ(log_of(5, [] { varnok_dbg_print("f", ": x", 0, 0, 1); }), "f: x\n");
        EXPECT_EQ(errno, 77);
        expect_untouched(t, log);
        EXPECT_TRUE(t.err != 0 || fs::file_size(log) > content.size());
        expect_nothing_held();
    }
}

// Only the names that everybody knows can be trapped.
TEST_F(OwnFileTest, ACallersOwnLogFile)
{
    ASSERT_TRUE(lay(traps[2], log));
    snprintf(varnoklog_path, sizeof varnoklog_path, "%s", log.c_str());
    log_of(5, [] { varnok_dbg_print("f", ": x", 0, 0, 1); });
    EXPECT_GT(fs::file_size(victim), content.size());
}

} // namespace
