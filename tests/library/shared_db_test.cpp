// The shared database of one process: the file, the slots, the semaphore, and the order of what
// happens to them.
#include "host_test.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using words = std::vector<uint32_t>;

constexpr size_t file_size = 163840;
const std::string func = "varnok_close_database: ";

struct SharedDbTest : HostTest {
    const std::string path = platform::private_path("/tmp/varnok_shared.dat");

    ~SharedDbTest() override
    {
        platform::reset();
        varnok_close_database(0);
        remove(path.c_str());
    }

    void write_file(const std::string &bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    std::string read_file() const
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool file_exists() const { return access(path.c_str(), F_OK) == 0; }

    static std::string flags(const words &values)
    {
        std::string bytes(file_size, '\0');
        for (size_t i = 0; i < values.size(); ++i)
            memcpy(&bytes[4 * i], &values[i], 4);
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
    platform::reset();
    EXPECT_EQ(open(), 0U);
    // Closed on exec, behind no link, not waiting for a FIFO's other end.
    constexpr int guarded = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    const std::string opens = "open /tmp/varnok_shared.dat ";
    EXPECT_THAT(platform::calls(),
                ElementsAre("semget 1444", "semget 1956", "semctl 16", "semop -1", opens + std::to_string(guarded),
                            opens + std::to_string(guarded | O_CREAT | O_EXCL), "fstat", "write 163840", "fsync",
                            "posix_fallocate", "mmap", "msync 4", "semop 1"));
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
    const std::tuple<words, int, words> cases[] = {
        {{5}, 1, {5, 5}},
        {{5, 0, 5}, 1, {5, 5, 5}},
        {{1, 5}, 0, {5, 5}},
        {{0x80, 5}, 0, {0x85, 5}},
        {{5, 5, 5, 5, 5, 5, 5, 1}, 7, {5, 5, 5, 5, 5, 5, 5, 5}},
        {{5, 5, 5, 5, 4, 5, 5, 0x85}, 0, {5, 1, 1, 1, 0, 1, 1, 0x81}},
    };
    for (const auto &[before, slot, after] : cases) {
        std::string file = flags(before);
        memset(file.data() + 32, 'q', 8 * 4116);
        file.back() = 'r';
        write_file(file + "beyond");
        EXPECT_EQ(open(), 0U);
        EXPECT_EQ(varnok_library_instance, slot);
        memcpy(file.data(), after.data(), 4 * after.size());
        memset(file.data() + 32 + 4116 * slot, 0, 4116);
        EXPECT_TRUE(read_file() == file + "beyond");
        varnok_close_database(0);
    }
}

TEST_F(SharedDbTest, AShorterFileGrows)
{
    for (size_t size : {0U, 1U, 100U, 163839U}) {
        std::string file(size, '\x85');
        write_file(file);
        EXPECT_THAT(log_of(2, [] { EXPECT_EQ(open(), 0U); }),
                    HasSubstr("varnok_open_database: done upgrading shared data file.\n"));
        file.resize(file_size, '\0');
        EXPECT_EQ(read_file().substr(32960), file.substr(32960));
        varnok_close_database(0);
        EXPECT_FALSE(file_exists());
    }
}

// Each failure of the open: its line, and what is left of the file. Nothing else is left.
TEST_F(SharedDbTest, FailingOpens)
{
    struct {
        const char *call; // null: an allocation
        int nth, err;
        long old_size; // -1: no file
        bool file_stays;
        const char *line;
    } const cases[] = {
        {"semget", 2, ENOSYS, -1, false,
         "WARNING - semget function not supported.\n"
         "  Each adapter instance should be opened at most one time. errno=38\n"},
        {"open", 2, EACCES, -1, false, "Unable to create shared data file. errno=13\n"},
        {"fstat", 1, EIO, -1, true, "Unable to read shared data file. errno=5\n"},
        {"fstat", 1, EIO, 10, true, "Unable to create shared data file. errno=5\n"},
        {"write", 1, ENOSPC, -1, false, "Unable to write completely to shared data file. errno=28\n"},
        {"fsync", 1, EIO, -1, false, "fsync failed. errno=5\n"},
        {"fstat", 2, EIO, 10, true, "Unable to read shared data file. errno=5\n"},
        {"read", 1, EIO, 10, true, "Unable to read shared data file. errno=5\n"},
        {"lseek", 1, EINVAL, 10, true, "Unable to seek to beginning of shared data file. errno=22\n"},
        {"write", 1, ENOSPC, 10, true, "Unable to upgrade shared data file. errno=28\n"},
        {"fsync", 1, EIO, 10, true, "fsync failed for existing file. errno=5\n"},
        {"posix_fallocate", 1, ENOSPC, 163840, true, "Unable to allocate shared data file. errno=28\n"},
        {"mmap", 1, ENOMEM, 163840, true, "Unable to map shared data file. errno=12\n"},
        {nullptr, 1, 0, 5, true, "malloc failed=12\n"},
        {nullptr, 2, 0, 5, true, "Unable to alloc new shared data buf. errno=12\n"},
        {nullptr, 1, 0, -1, true, "malloc tmp mem failed=12\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        platform::reset();
        for (const uint32_t mask : {4U, 0U}) {
            remove(path.c_str());
            if (c.old_size >= 0)
                write_file(std::string(static_cast<size_t>(c.old_size), '\0'));
            c.call != nullptr ? platform::fail_call(c.call, c.nth, c.err) : platform::fail_allocation(c.nth);
            EXPECT_EQ(log_of(mask, [] { EXPECT_EQ(open(), 1U); }),
                      mask == 0 ? "" : std::string("varnok_open_database: ") + c.line);
            EXPECT_TRUE(platform::fault_met());
            EXPECT_EQ(varnok_db_sem_id, -1);
            EXPECT_EQ(file_exists(), c.file_stays);
            expect_nothing_held();
        }
    }
    // A short write is no error of the system's.
    remove(path.c_str());
    platform::fail_call("write", 1, 0);
    EXPECT_THAT(log_of(4, [] { EXPECT_EQ(open(), 1U); }), HasSubstr(": Unable to write completely"));
    // A file that can be neither filled, the disk being full, nor withdrawn.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit full = {file_size / 2, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    platform::fail_call("remove", 1, EPERM);
    EXPECT_THAT(log_of(4, [] { EXPECT_EQ(open(), 1U); }), HasSubstr(": Unable to remove shared data file. errno=1\n"));
    setrlimit(RLIMIT_FSIZE, &before);
    expect_nothing_held();
}

TEST_F(SharedDbTest, ClosingByTheNumberOfUsers)
{
    const std::tuple<const char *, int, bool> cases[] = {
        // what lsof gives, users left, whether the file stays
        {"2\n", 0, false}, {"3\n", 0, false},   {"4\n", 2, true},      {"", 0, true},     {"x\n", 0, true},
        {"1\n", 0, true},  {"9\n4\n", 2, true}, {"1200\n", 255, true}, {"-4\n", 0, true},
    };
    for (const auto &[lines, left, file_stays] : cases) {
        SCOPED_TRACE(lines);
        remove(path.c_str());
        ASSERT_EQ(open(), 0U);
        platform::set_user_lines(lines);
        EXPECT_EQ(log_of(4, [] { EXPECT_EQ(varnok_close_database(0), 0U); }),
                  func + "inst=0, going to clean up shared mem.\n" + func + "inst=0, " +
                      (left == 0 ? "going to free up api instance."
                                 : "this is not last instance. load_inst=" + std::to_string(left)) +
                      "\n" + func + "close db file.\n" + func + (file_stays ? "keeping" : "deleting") +
                      " shared db file.\n");
        EXPECT_EQ(varnok_db_sem_id != -1, left > 0);
        EXPECT_EQ(read_file(), file_stays ? flags({0}) : "");
        EXPECT_EQ(varnok_library_instance, 0);
        EXPECT_EQ(varnok_shm_fildes, -1);
        EXPECT_EQ(varnok_close_database(0), 0U) << "again: harmless";
        EXPECT_EQ(platform::held_semaphores(), 0);
    }
    const std::tuple<const char *, int, std::string> failures[] = {
        {"popen", EMFILE, "varnok_get_total_libinst_count: popen failed.\n"},
        {"remove", EPERM, func + "Unable to remove shared data file. errno=1\n"},
        {"semctl", EPERM, func + "keeping semaphore.\n"}, // whether somebody waits for it is unknown
    };
    for (const auto &[call, err, line] : failures) {
        ASSERT_EQ(open(), 0U);
        platform::set_user_lines("2\n");
        platform::fail_call(call, 1, err);
        EXPECT_THAT(log_of(6, [] { varnok_close_database(0); }), HasSubstr(line));
    }
}

TEST_F(SharedDbTest, ClosingInThisOrder)
{
    ASSERT_EQ(open(), 0U);
    platform::reset();
    varnok_close_database(0);
    EXPECT_THAT(platform::calls(),
                ElementsAre("semop -1", "msync 4", "popen lsof 2> /dev/null | grep libvarnok | wc -l", "fstat",
                            "posix_fallocate", "semctl 14", "semop 1", "semctl 0", "munmap", "close",
                            "remove /tmp/varnok_shared.dat"));
    // Without a slot the file is closed and everything else kept.
    ASSERT_EQ(open(), 0U);
    varnok_library_instance = 8;
    EXPECT_EQ(log_of(6, [] { varnok_close_database(0); }),
              func + "entered.\n" + func + "close db file.\n" + func + "keeping shared db file.\n");
    EXPECT_TRUE(file_exists());
    varnok_library_instance = 0;
}

// To touch the mapping beyond the file's end would end this process.
TEST_F(SharedDbTest, AFileCutBehindTheMappingIsMadeWhole)
{
    for (const bool grows : {true, false}) {
        ASSERT_EQ(open(), 0U);
        ASSERT_EQ(truncate(path.c_str(), 0), 0);
        platform::reset();
        platform::set_user_lines("4\n");
        if (!grows)
            platform::fail_call("posix_fallocate", 1, ENOSPC);
        EXPECT_EQ(log_of(4, [] { EXPECT_EQ(varnok_close_database(0), 0U); })
                          .find("varnok_close_database: Unable to allocate shared data file. errno=28\n") ==
                      std::string::npos,
                  grows);
        EXPECT_EQ(read_file(), grows ? flags({}) : "");
        expect_nothing_held();
    }
    // What the kernel cannot give a block to: a sparse file on a full disk.
    for (const int err : {EINTR, EOPNOTSUPP}) {
        platform::fail_call("posix_fallocate", 1, err);
        EXPECT_EQ(open(), 0U);
        EXPECT_TRUE(platform::fault_met());
        varnok_close_database(0);
    }
    // A program that closed all descriptors, and opened another file of its own since.
    ASSERT_EQ(open(), 0U);
    platform::set_user_lines("4\n");
    const std::string other = path + ".other";
    close(varnok_shm_fildes);
    ASSERT_EQ(::open(other.c_str(), O_RDWR | O_CREAT, 0600), varnok_shm_fildes);
    EXPECT_EQ(varnok_close_database(0), 0U);
    EXPECT_EQ(read_file(), flags({}));
    EXPECT_EQ(std::filesystem::file_size(other), 0U);
    remove(other.c_str());
    // What is there already is kept when only the first open failed.
    write_file("older");
    platform::fail_call("open", 1, EMFILE);
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(read_file().substr(0, 4), "olde");
}

// Signals come in the midst of waiting, or another process takes the semaphore away: nobody goes on without it.
TEST_F(SharedDbTest, WaitsThatEndEarlyAreRepeated)
{
    const auto waits = [] { return std::count(platform::calls().begin(), platform::calls().end(), "semop -1"); };
    const std::string warning = "varnok_sem_wait:libvarnok: WARNING - semaphore wait operation failed. errno=4\n";
    platform::reset();
    platform::fail_call("semop", 1, EINTR);
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(waits(), 2);
    platform::reset();
    platform::fail_call("semop", 1, EINTR);
    varnok_close_database(0);
    EXPECT_EQ(waits(), 2);
    varnok_sem_del(varnok_dbg_sem_id);
    varnok_dbg_sem_id = -1;
    platform::fail_call("semop", 1, EINTR);
    EXPECT_EQ(log_of(4, [] { open(); }), warning + "varnok_open_database: assigned api_lib_instance=0\n");
    // A close waits on what stands in the place of the old one; so does an open.
    varnok_sem_del(varnok_db_sem_id);
    varnok_close_database(0);
    EXPECT_EQ(varnok_db_sem_id, -1) << "removed by the last";
    platform::fail_call("semop", 1, EIDRM);
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(platform::held_semaphores(), 0);
    varnok_close_database(0);
    // One that cannot be had again, one that is always taken away, and other failures.
    platform::reset();
    platform::fail_call("semop", 1, EIDRM);
    platform::when_it_fails([] {
        varnok_sem_del(varnok_db_sem_id);
        platform::fail_call("semget", 2, ENOSPC);
    });
    EXPECT_EQ(open(), 1U);
    platform::when_it_fails([] { platform::fail_call("semop", 1, EIDRM); });
    platform::fail_call("semop", 1, EIDRM);
    EXPECT_EQ(open(), 0U);
    platform::when_it_fails(nullptr);
    varnok_close_database(0);
    platform::fail_call("semop", 1, EACCES);
    EXPECT_EQ(open(), 0U);
}

} // namespace
