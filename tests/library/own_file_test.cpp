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
    bool (*lay)(const std::string &path, const std::string &victim);
    const char *shared_refused; // null: used
    int shared_errno;
    const char *log_refused; // null: used
};

constexpr char link_text[] = "it is a symbolic link", plain_text[] = "it is not a plain file",
               folder_text[] = "it is a folder", second_text[] = "it has a second name";

constexpr trap traps[] = {
    {"plain", [](auto &path, auto &) { return write(path), true; }, nullptr, 0, nullptr},
    {"private", [](auto &path, auto &) { return write(path), chmod(path.c_str(), 0600) == 0; }, nullptr, 0, nullptr},
    {"link", [](auto &path, auto &victim) { return symlink(victim.c_str(), path.c_str()) == 0; }, link_text, ELOOP,
     link_text},
    {"link to nothing", [](auto &path, auto &victim) { return symlink((victim + "x").c_str(), path.c_str()) == 0; },
     link_text, ELOOP, link_text},
    {"second name", [](auto &path, auto &victim) { return link(victim.c_str(), path.c_str()) == 0; }, second_text,
     EPERM, second_text},
    {"folder", [](auto &path, auto &) { return mkdir(path.c_str(), 0755) == 0; }, folder_text, EISDIR, folder_text},
    {"fifo", [](auto &path, auto &) { return mkfifo(path.c_str(), 0644) == 0; }, plain_text, EPERM, plain_text},
    {"group writes", [](auto &path, auto &) { return write(path), chmod(path.c_str(), 0664) == 0; }, nullptr, 0,
     nullptr},
    {"all write", [](auto &path, auto &) { return write(path), chmod(path.c_str(), 0777) == 0; }, nullptr, 0, nullptr},
    // Only a real root can lay these.
    {"device", [](auto &path, auto &) { return mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 3)) == 0; }, plain_text,
     EPERM, plain_text},
    {"foreign", [](auto &path, auto &) { return write(path), chown(path.c_str(), 12345, 12345) == 0; }, nullptr, 0,
     nullptr},
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

    void expect_untouched(bool used, const std::string &path) const
    {
        EXPECT_EQ(fs::file_size(victim), content.size());
        EXPECT_FALSE(fs::exists(victim + "x"));
        EXPECT_TRUE(used || !fs::is_regular_file(path) || fs::file_size(path) == content.size());
    }

    uint32_t open_shared() const
    {
        int32_t descriptor = 0;
        return varnok_open_database(&descriptor);
    }
};

TEST_F(OwnFileTest, TheSharedFile)
{
    for (const trap &t : traps) {
        SCOPED_TRACE(t.name);
        if (!lay(t, shared))
            continue;
        const bool used = t.shared_refused == nullptr;
        EXPECT_EQ(
            log_of(4, [&] { EXPECT_EQ(open_shared(), used ? 0U : 1U); }),
            used ? "varnok_open_database: assigned api_lib_instance=0\n"
                 : "varnok_open_database: Unable to create shared data file. errno=" + std::to_string(t.shared_errno) +
                       "\nvarnok_open_database: refused /tmp/varnok_shared.dat: " + t.shared_refused + "\n");
        expect_untouched(used, shared);
        struct stat status = {};
        EXPECT_TRUE(!used || (stat(shared.c_str(), &status) == 0 && (status.st_mode & 07777 & ~0644U) == 0 &&
                              status.st_uid == geteuid()));
        varnok_close_database(0);
        expect_nothing_held();
    }
}

// Another user's file gives way to root only, and only while it is still that file.
TEST_F(OwnFileTest, AStrangersFile)
{
    const trap &foreign = traps[std::size(traps) - 1];
    varnok_sem_del(varnok_dbg_sem_id); // root's, which another user cannot wait on
    varnok_dbg_sem_id = -1;
    if (!lay(foreign, shared))
        GTEST_SKIP() << "only root can give a file away";
    const std::string create = "varnok_open_database: Unable to create shared data file. errno=1\n",
                      refused = "varnok_open_database: refused /tmp/varnok_shared.dat: it belongs to another user";
    platform::fail_call("remove", 2, EPERM); // the first removes the probe of the file system
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(open_shared(), 1U); }), create + refused + " and cannot be removed\n");
    ASSERT_EQ(chmod(shared.c_str(), 0666), 0);
    ASSERT_EQ(chmod(fs::path(shared).parent_path().c_str(), 01777), 0);
    ASSERT_EQ(seteuid(54321), 0);
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(open_shared(), 1U); }), create + refused + "\n");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(fs::file_size(shared), content.size());
    // It was taken away in the same moment; then this process makes its own.
    platform::fail_call("lstat", 1, ENOENT);
    EXPECT_EQ(open_shared(), 0U);
    varnok_close_database(0);
    // Without a probe the file system counts as one that keeps owners.
    ASSERT_TRUE(lay(foreign, shared));
    platform::fail_call("open", 2, ENOSPC);
    EXPECT_EQ(open_shared(), 0U);
    varnok_close_database(0);
    // He runs it as a program, and it does not open.
    ASSERT_TRUE(lay(foreign, shared));
    platform::when_it_fails([] {
        platform::when_it_fails(nullptr);
        platform::fail_call("open", 2, ETXTBSY);
    });
    platform::fail_call("open", 1, ETXTBSY);
    EXPECT_EQ(open_shared(), 0U);
    EXPECT_EQ(fs::file_size(shared), 163840U);
    varnok_close_database(0);
    // Where every file is somebody else's, none is a stranger's.
    for (const bool there : {false, true}) {
        clear();
        if (there)
            write(shared);
        platform::show_every_file_as(12345);
        EXPECT_EQ(open_shared(), 0U);
        EXPECT_EQ(fs::file_size(shared), 163840U);
        std::string start(8, '\0');
        std::ifstream(shared, std::ios::binary).read(start.data(), 8);
        EXPECT_EQ(start.substr(4), there ? content.substr(0, 4) : std::string(4, '\0'));
        varnok_close_database(0);
    }
}

TEST_F(OwnFileTest, AFileThatComesAndGoes)
{
    platform::reset();
    // Another process made it between the two opens, or took its name away between open and check.
    platform::fail_call("open", 2, EEXIST);
    EXPECT_EQ(open_shared(), 0U);
    varnok_close_database(0);
    // It comes and goes for ever, or never opens.
    platform::when_it_fails([] { platform::fail_call("open", 2, EEXIST); });
    platform::fail_call("open", 2, EEXIST);
    const std::string create = "varnok_open_database: Unable to create shared data file. errno=",
                      refused = "\nvarnok_open_database: refused /tmp/varnok_shared.dat: it ";
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(open_shared(), 1U); }), create + "16" + refused + "comes and goes\n");
    write(shared);
    platform::when_it_fails([] { platform::fail_call("open", 2, EACCES); });
    platform::fail_call("open", 1, EACCES);
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(open_shared(), 1U); }), create + "13" + refused + "cannot be opened\n");
    platform::when_it_fails(nullptr);
    write(shared);
    platform::unlink_before_fstat(shared);
    EXPECT_EQ(open_shared(), 0U);
    EXPECT_EQ(fs::file_size(shared), 163840U);
    varnok_close_database(0);
}

TEST_F(OwnFileTest, TheLogFile)
{
    const char *refused_before = nullptr;
    for (const trap &t : traps) {
        SCOPED_TRACE(t.name);
        if (!lay(t, log))
            continue;
        // Told of once, until a log opens again.
        const bool used = t.log_refused == nullptr;
        const bool told = !used && refused_before == nullptr;
        refused_before = t.log_refused;
        errno = 77;
        EXPECT_EQ(log_of(3, [] { varnok_dbg_print("f", ": x", 0, 0, 1); }), "f: x\n") << "the bit is clear";
        EXPECT_EQ(log_of(5, [] { varnok_dbg_print("f", ": x", 0, 0, 1); }),
                  (told ? "varnok_dbg_get_fptr:libvarnok: WARNING - log file /var/tmp/libvarnok.log refused: " +
                              std::string(t.log_refused) + "\n"
                        : "") +
                      "f: x\n");
        EXPECT_EQ(errno, 77);
        expect_untouched(used, log);
        EXPECT_TRUE(!used || fs::file_size(log) > content.size());
        expect_nothing_held();
    }
}

// Only the names that everybody knows can be trapped.
TEST_F(OwnFileTest, ACallersOwnLogFile)
{
    ASSERT_TRUE(lay(traps[2], log)); // a link
    snprintf(varnoklog_path, sizeof varnoklog_path, "%s", log.c_str());
    log_of(5, [] { varnok_dbg_print("f", ": x", 0, 0, 1); });
    EXPECT_GT(fs::file_size(victim), content.size());
}

} // namespace
