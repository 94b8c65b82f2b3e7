#include "host_test.h"

#include <cstdlib>
#include <sys/mman.h>
#include <sys/sem.h>
#include <unistd.h>

void PrintTo(const back_end &b, std::ostream *out) { *out << b.driver; }

HostTest::HostTest()
{
    unsetenv("VARNOK_API_DEBUG");
    platform::reset();
    varnok_debug = 0;
    varnok_db_semkey = 0x10000 + getpid();
    varnok_dbg_semkey = 0x20000000 + getpid();
    varnok_dbg_sem_id = varnok_sem_get(varnok_dbg_semkey);
    remove(platform::private_path("/tmp/varnok_shared.dat").c_str());
}

HostTest::~HostTest()
{
    varnok_debug = 0;
    platform::reset();
    VARNOK_FreeLibrary();
    expect_nothing_held();
    hostsim::install(nullptr);
    varnok_sem_del(varnok_dbg_sem_id);
    varnok_dbg_sem_id = -1;
    const int left = semget(varnok_db_semkey, 1, 0);
    if (left != -1)
        varnok_sem_del(left);
    varnok_db_sem_id = -1;
    varnoklog_path[0] = '\0';
}

void HostTest::simulate(std::string scenario, const char *driver)
{
    for (size_t at = 0; (at = scenario.find('@')) != std::string::npos;)
        scenario.replace(at, 1, driver);
    host = hostsim::host::from_text(scenario);
    hostsim::install(host.get());
}

std::string HostTest::log_of(uint32_t mask, const std::function<void()> &run)
{
    const int kept = dup(STDERR_FILENO);
    const int file = memfd_create("log", 0);
    dup2(file, STDERR_FILENO);
    varnok_debug = mask;
    run();
    varnok_debug = 0;
    dup2(kept, STDERR_FILENO);
    close(kept);
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    close(file);
    return text;
}

void HostTest::in_silence_and_aloud(const std::function<void()> &run)
{
    EXPECT_EQ(log_of(0, run), "");
    EXPECT_NE(log_of(6, run), "");
}

uint32_t HostTest::load_and_open(uint32_t instance)
{
    uint32_t handle = 0;
    EXPECT_EQ(VARNOK_LoadLibrary(), VARNOK_STATUS_SUCCESS);
    EXPECT_EQ(VARNOK_OpenAdapter(instance, &handle), VARNOK_STATUS_SUCCESS);
    EXPECT_EQ(handle, instance + 1);
    return handle;
}

void HostTest::expect_nothing_held()
{
    EXPECT_EQ(varnok_priv_database, nullptr);
    EXPECT_EQ(varnok_phy_info, nullptr);
    EXPECT_EQ(varnok_shared_data, nullptr);
    EXPECT_EQ(varnok_shm_fildes, -1);
    EXPECT_EQ(platform::live_blocks(), 0);
    EXPECT_EQ(platform::open_descriptors(), 0);
    EXPECT_EQ(platform::held_semaphores(), 0);
    EXPECT_EQ(hostsim::open_devices(), 0);
}
