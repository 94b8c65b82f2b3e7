// The shared database of one process: the file, the slots, the semaphore, and the order of what
// happens to them.
#include "host_test.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t file_size = 163840;

struct SharedDbTest : HostTest {
    const std::string path = platform::private_path("/tmp/varnok_shared.dat");

    ~SharedDbTest() override
    {
        platform::reset();
        platform::set_user_lines("2\n");
        varnok_close_database(0);
        platform::set_user_lines("2\n");
        remove(path.c_str());
    }

    void write_file(const std::string &bytes) const { std::ofstream(path, std::ios::binary) << bytes; }

    std::string read_file() const
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    bool file_exists() const { return access(path.c_str(), F_OK) == 0; }

    static std::string flags(std::initializer_list<uint32_t> words)
    {
        std::string bytes(file_size, '\0');
        memcpy(bytes.data(), words.begin(), words.size() * sizeof(uint32_t));
        return bytes;
    }

    static uint32_t open()
    {
        int32_t descriptor = -2;
        const uint32_t result = varnok_open_database(&descriptor);
        EXPECT_EQ(descriptor, result == 0 ? varnok_shm_fildes : 0);
        return result;
    }
};

TEST_F(SharedDbTest, TheFirstOpenMakesTheFile)
{
    const std::vector<std::string> expected = {"semget 1444",
                                               "semget 932",
                                               "semctl 16",
                                               "semop -1",
                                               "open /tmp/varnok_shared.dat " + std::to_string(O_RDWR),
                                               "open /tmp/varnok_shared.dat " + std::to_string(O_RDWR | O_CREAT),
                                               "write 163840",
                                               "fsync",
                                               "mmap",
                                               "msync 4",
                                               "semop 1"};
    platform::reset();
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(platform::calls(), expected);
    EXPECT_EQ(varnok_library_instance, 0);
    EXPECT_EQ(read_file(), flags({5}));
    struct stat status = {};
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0644U & ~umask(022));
    const int32_t descriptor = varnok_shm_fildes;
    EXPECT_EQ(log_of(6, [] { EXPECT_EQ(open(), 0U); }), "varnok_open_database: entered.\n");
    EXPECT_EQ(varnok_shm_fildes, descriptor);
}

TEST_F(SharedDbTest, Slots)
{
    struct {
        std::initializer_list<uint32_t> before;
        uint8_t slot;
        std::initializer_list<uint32_t> after;
    } const cases[] = {
        {{5}, 1, {5, 5}},
        {{5, 0, 5}, 1, {5, 5, 5}},
        {{1, 5}, 0, {5, 5}},
        {{0x80, 5}, 0, {0x85, 5}},
        {{5, 5, 5, 5, 5, 5, 5, 1}, 7, {5, 5, 5, 5, 5, 5, 5, 5}},
        {{5, 5, 5, 5, 4, 5, 5, 0x85}, 0, {5, 1, 1, 1, 0, 1, 1, 0x81}},
    };
    for (const auto &c : cases) {
        std::string before = flags(c.before);
        memset(before.data() + 32, 'q', 8 * 4116);
        before[file_size - 1] = 'r';
        write_file(before + "beyond");
        EXPECT_EQ(open(), 0U);
        EXPECT_EQ(varnok_library_instance, c.slot);
        std::string after = before;
        memcpy(after.data(), c.after.begin(), 4 * c.after.size());
        memset(after.data() + 32 + 4116 * c.slot, 0, 4116);
        EXPECT_TRUE(read_file() == after + "beyond");
        varnok_close_database(0);
    }
}

TEST_F(SharedDbTest, AShorterFileGrows)
{
    for (size_t size : {0U, 1U, 100U, 163839U}) {
        const std::string old = std::string(size, '\x85');
        write_file(old);
        platform::reset();
        platform::set_user_lines("2\n");
        const std::string log = log_of(2, [] { EXPECT_EQ(open(), 0U); });
        EXPECT_NE(log.find("varnok_open_database: done upgrading shared data file.\n"), std::string::npos);
        std::string grown = old;
        grown.resize(file_size, '\0');
        std::string now = read_file();
        ASSERT_EQ(now.size(), file_size);
        EXPECT_EQ(now.substr(32960), grown.substr(32960));
        varnok_close_database(0);
        EXPECT_FALSE(file_exists());
    }
}

// Each failure of the open: its line, and what is left of the file. Nothing else is left.
TEST_F(SharedDbTest, FailingOpens)
{
    const std::string func = "varnok_open_database";
    struct {
        const char *call;
        long nth;
        int err;
        long old_size; // -1: no file
        const char *line;
        bool file_stays;
    } const cases[] = {
        {"semget", 2, ENOSYS, -1,
         ": WARNING - semget function not supported.\n  Each adapter instance should be opened at "
         "most one time. errno=38\n",
         false},
        {"open", 2, EACCES, -1, ": Unable to create shared data file. errno=13\n", false},
        {"write", 1, ENOSPC, -1, ": Unable to write completely to shared data file. errno=28\n", false},
        {"fsync", 1, EIO, -1, ": fsync failed. errno=5\n", false},
        {"fstat", 1, EIO, 10, ": Unable to read shared data file. errno=5\n", true},
        {"read", 1, EIO, 10, ": Unable to read shared data file. errno=5\n", true},
        {"lseek", 1, EINVAL, 10, ": Unable to seek to beginning of shared data file. errno=22\n", true},
        {"write", 1, ENOSPC, 10, ": Unable to upgrade shared data file. errno=28\n", true},
        {"fsync", 1, EIO, 10, ": fsync failed for existing file. errno=5\n", true},
        {"mmap", 1, ENOMEM, 163840, ": Unable to map shared data file. errno=12\n", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        remove(path.c_str());
        if (c.old_size >= 0)
            write_file(std::string(static_cast<size_t>(c.old_size), '\0'));
        platform::fail_call(c.call, c.nth, c.err);
        EXPECT_EQ(log_of(4, [] { EXPECT_EQ(open(), 1U); }), func + c.line);
        EXPECT_TRUE(platform::fault_met());
        EXPECT_EQ(varnok_db_sem_id, -1);
        EXPECT_EQ(file_exists(), c.file_stays);
        expect_nothing_held();
    }
    // A short write is no error of the system's; a withdrawn file that cannot be removed has a line
    // of its own.
    remove(path.c_str());
    platform::fail_call("write", 1, 0);
    EXPECT_NE(log_of(4, [] { EXPECT_EQ(open(), 1U); }).find(": Unable to write completely"), std::string::npos);
    const std::pair<long, const char *> allocations[] = {{1, ": malloc failed=12\n"},
                                                         {2, ": Unable to alloc new shared data buf. errno=12\n"}};
    for (const auto &[nth, line] : allocations) {
        write_file("short");
        platform::fail_allocation(nth);
        EXPECT_EQ(log_of(4, [] { EXPECT_EQ(open(), 1U); }), func + line);
        expect_nothing_held();
    }
    remove(path.c_str());
    platform::fail_allocation(1);
    EXPECT_EQ(log_of(4, [] { EXPECT_EQ(open(), 1U); }), func + ": malloc tmp mem failed=12\n");
    EXPECT_TRUE(file_exists());
}

TEST_F(SharedDbTest, ClosingByTheNumberOfUsers)
{
    const std::string func = "varnok_close_database";
    const std::string last = func + ": inst=0, going to free up api instance.\n";
    const std::string not_last = func + ": inst=0, this is not last instance. load_inst=";
    struct {
        const char *lines;
        bool semaphore_stays;
        bool file_stays;
        std::string line;
    } const cases[] = {
        {"2\n", false, false, last},
        {"3\n", false, false, last},
        {"4\n", true, true, not_last + "2\n"},
        {"", false, true, last},
        {"x\n", false, true, last},
        {"1\n", false, true, last},
        {"9\n4\n", true, true, not_last + "2\n"},
        {"1200\n", true, true, not_last + "255\n"},
        {"-4\n", false, true, last},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.lines);
        remove(path.c_str());
        ASSERT_EQ(open(), 0U);
        platform::set_user_lines(c.lines);
        const std::string file = c.file_stays ? ": keeping shared db file.\n" : ": deleting shared db file.\n";
        EXPECT_EQ(log_of(4, [] { EXPECT_EQ(varnok_close_database(0), 0U); }),
                  func + ": inst=0, going to clean up shared mem.\n" + c.line + func + ": close db file.\n" + func +
                      file);
        EXPECT_EQ(varnok_db_sem_id != -1, c.semaphore_stays);
        EXPECT_EQ(file_exists(), c.file_stays);
        if (c.file_stays)
            EXPECT_EQ(read_file(), flags({0}));
        EXPECT_EQ(varnok_library_instance, 0);
        EXPECT_EQ(varnok_shm_fildes, -1);
        // Again: harmless.
        EXPECT_EQ(varnok_close_database(0), 0U);
        EXPECT_EQ(platform::held_semaphores(), 0);
    }
    ASSERT_EQ(open(), 0U);
    platform::fail_call("popen", 1, EMFILE);
    EXPECT_NE(log_of(4, [] { varnok_close_database(0); }).find("varnok_get_total_libinst_count: popen failed.\n"),
              std::string::npos);
    ASSERT_EQ(open(), 0U);
    platform::set_user_lines("2\n");
    platform::fail_call("remove", 1, EPERM);
    EXPECT_NE(log_of(4, [] { varnok_close_database(0); }).find(func + ": Unable to remove shared data file. errno=1\n"),
              std::string::npos);
}

TEST_F(SharedDbTest, ClosingInThisOrder)
{
    ASSERT_EQ(open(), 0U);
    platform::reset();
    platform::set_user_lines("2\n");
    varnok_close_database(0);
    const std::vector<std::string> expected = {
        "semop -1",  "msync 4", "popen lsof 2> /dev/null | grep libvarnok | wc -l",
        "semctl 14", "semop 1", "semctl 0",
        "munmap",    "close",   "remove /tmp/varnok_shared.dat"};
    EXPECT_EQ(platform::calls(), expected);
    // Without a slot the file is closed and everything else kept.
    ASSERT_EQ(open(), 0U);
    varnok_library_instance = 8;
    EXPECT_EQ(log_of(6, [] { varnok_close_database(0); }),
              "varnok_close_database: entered.\nvarnok_close_database: close db "
              "file.\nvarnok_close_database: keeping shared db file.\n");
    EXPECT_TRUE(file_exists());
    varnok_library_instance = 0;
}

} // namespace
