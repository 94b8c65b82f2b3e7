// Load, free, count, open and close.
#include "backend/varnok_ntapi.h"
#include "backend/varnok_ryx_ntapi.h"
#include "drivers.h"
#include "host_test.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr uint32_t failed = VARNOK_STATUS_FAILED;

struct LifecycleTest : HostTest {
    // The drivers that a load asked, in order, by their first letters.
    static std::string asked()
    {
        std::string letters;
        for (const std::string &call : platform::calls())
            for (const std::string name : {"rovani", "tepli", "pelt", "dxo"})
                if (call == "vmk_init " + name || call == "open /dev/char/vmkdriver/" + name + " 0")
                    letters += name[0];
        return letters;
    }
};

TEST_F(LifecycleTest, DiscoveryOrder)
{
    const std::tuple<const char *, uint32_t, uint32_t, const char *> cases[] = {
        {R"({"drivers":[]})", failed, 0, "rtpd"},
        {R"({"drivers":["rovani"]})", 0, 0, "rpd"},
        {R"({"drivers":["tepli"]})", 0, 0, "rtpd"},
        {R"({"drivers":["pelt"]})", failed, 0, "rtp"},
        {R"({"drivers":["dxo"]})", failed, 0, "rtpd"},
        {R"({"drivers":["tepli","dxo","pelt","rovani"],"ports":[{"driver":"tepli"},{"driver":"dxo"}]})", 0, 0, "rp"},
        {R"({"ports":[{"driver":"rovani"},{"driver":"dxo"}]})", 0, 2, "rpd"},
        {R"({"ports":[{"driver":"tepli"},{"driver":"pelt"}]})", 0, 2, "rtp"},
        {R"({"ports":[{"driver":"dxo","repeat":3}]})", 0, 3, "rtpd"},
        {R"({"ports":[{"driver":"rovani","device_id":1}]})", 0, 0, "rpd"},
        {R"({"host":{"euid":1},"ports":[{"driver":"rovani"}]})", failed, 0, ""},
        {R"({"host":{"sysname":"Linux"},"ports":[{"driver":"rovani"}]})", failed, 0, ""},
        {R"({"host":{"sysname":"xVMkernel7"},"ports":[{"driver":"rovani"}]})", 0, 1, "rpd"},
    };
    for (const auto &[scenario, result, ports, drivers] : cases) {
        SCOPED_TRACE(scenario);
        simulate(scenario);
        in_silence_and_aloud([&, result = result, ports = ports, drivers = drivers] {
            platform::reset();
            EXPECT_EQ(VARNOK_LoadLibrary(), result);
            EXPECT_EQ(asked(), drivers);
            uint32_t count = 77;
            EXPECT_EQ(VARNOK_GetPortCount(&count), ports > 0 ? 0 : failed);
            EXPECT_EQ(count, ports > 0 ? ports : 77U);
            EXPECT_EQ(varnok_priv_database != nullptr, ports > 0);
            EXPECT_EQ(varnok_shared_data != nullptr, ports > 0);
            EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
            expect_nothing_held();
        });
    }
}

TEST_F(LifecycleTest, LoadingTwiceAsksOnce)
{
    simulate(R"({"ports":[{"driver":"pelt"}]})");
    EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
    platform::reset();
    EXPECT_EQ(log_of(4, [] { EXPECT_EQ(VARNOK_LoadLibrary(), 0U); }), "VARNOK_LoadLibrary: already loaded.\n");
    EXPECT_EQ(asked(), "");
    // Ports found, but the shared database failed: the lists are gone and the next load looks again.
    EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
    platform::fail_call("mmap", 1, ENOMEM);
    EXPECT_THAT(log_of(4, [] { EXPECT_EQ(VARNOK_LoadLibrary(), failed); }),
                testing::HasSubstr("varnok_load_lib: ERROR setting up database.\n"
                                   "VARNOK_LoadLibrary: load failed. rval=1\n"));
    expect_nothing_held();
    EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
    // The shared database is left while the ports stay.
    varnok_close_database(0);
    in_silence_and_aloud([] {
        uint32_t count = 7;
        EXPECT_EQ(VARNOK_LoadLibrary(), failed);
        EXPECT_EQ(VARNOK_GetPortCount(&count), failed);
        EXPECT_EQ(count, 7U);
    });
}

TEST_F(LifecycleTest, CallsOutOfOrder)
{
    uint32_t handle = 5, major = 0, minor = 0, build = 0;
    ASSERT_EQ(sscanf(PROJECT_VERSION, "%u.%u.%u", &major, &minor, &build), 3);
    const uint32_t number = major << 24 | minor << 16 | build << 8;
    char text[64];
    snprintf(text, sizeof text, "v%u.%02u build%u", major, minor, build);
    in_silence_and_aloud([&] {
        uint8_t version[13] = {};
        EXPECT_EQ(VARNOK_GetVersion(nullptr, 0), number);
        EXPECT_EQ(VARNOK_GetVersion(version, 12), number);
        EXPECT_EQ(version[0], 0);
        EXPECT_EQ(VARNOK_GetVersion(version, 13), number);
        EXPECT_STREQ(reinterpret_cast<char *>(version), text);
        EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
        EXPECT_EQ(VARNOK_OpenAdapter(0, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
        EXPECT_EQ(VARNOK_OpenAdapter(0, &handle), failed);
        EXPECT_EQ(VARNOK_CloseAdapter(0), failed);
        EXPECT_EQ(VARNOK_GetPhyPortInfo(0, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
        EXPECT_EQ(VARNOK_GetPortCount(nullptr), failed);
    });
    EXPECT_EQ(varnok_version_description, std::string("Molvar Halcyon iSCSI API library version ") + text);
    simulate(R"({"ports":[{"driver":"rovani"}]})");
    EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
    EXPECT_EQ(log_of(6, [] { EXPECT_EQ(VARNOK_GetPortCount(nullptr), VARNOK_STATUS_INVALID_PARAMETER); }),
              "VARNOK_GetPortCount: entered.\nVARNOK_GetPortCount: invalid parameter.\n");
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_OpenAdapter(1, &handle), VARNOK_STATUS_NOT_FOUND); }),
              "VARNOK_OpenAdapter(1): pdb not found, exiting\n");
    EXPECT_EQ(handle, 5U);
}

struct OpenTest : BackEndTest {
    const bool native = GetParam().native;

    void load(int ports)
    {
        simulate(R"({"ports":[{"driver":"@","repeat":)" + std::to_string(ports) + "}]}");
        ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
    }
    static long times(const std::string &call)
    {
        return std::count(platform::calls().begin(), platform::calls().end(), call);
    }
};
OVER_ALL_BACK_ENDS(OpenTest);

TEST_P(OpenTest, OpensAreCounted)
{
    load(4);
    platform::reset();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(load_and_open(2), 3U);
    EXPECT_EQ(times("open /dev/char/vmkdriver/" + std::string(GetParam().driver) + " 2"), native ? 0 : 1);
    EXPECT_EQ(platform::open_descriptors(), native ? 1 : 2) << "the shared file, and the device";
    const varnok_hw_info *const hw = varnok_get_pdb_from_user_handle(3)->hw_info;
    EXPECT_EQ(hw->open_cnt, 2U);
    EXPECT_EQ(VARNOK_CloseAdapter(3), 0U);
    EXPECT_EQ(hostsim::open_devices(), native ? 0 : 1);
    platform::fail_call("close", 1, EIO);
    EXPECT_EQ(VARNOK_CloseAdapter(3), native ? 0U : EIO);
    // A close that fails takes no open back.
    EXPECT_EQ(hw->open_cnt, native ? 0U : 1U);
    EXPECT_EQ(hw->apihandle, native ? 0U : 3U);
    if (native) {
        EXPECT_EQ(hw->oshandle, 0xFFFFFFFFU);
        EXPECT_EQ(VARNOK_CloseAdapter(3), failed);
    }
    platform::reset();
}

// The back-ends' own functions, whose callers need not be the exported ones.
TEST_P(OpenTest, WithoutAPort)
{
    const auto [open, close, ask] = std::tuple(GetParam().open, GetParam().close, GetParam().get_port_info);
    varnok_hw_info hw = {};
    varnok_priv_db pdb = {}, bare = {};
    varnok_drv_port_info info = {};
    pdb.hw_info = &hw;
    uint32_t handle = 7, err = 7, stat = 7;
    in_silence_and_aloud([&, open = open, close = close, ask = ask] {
        EXPECT_EQ(native ? open(nullptr, 1, &handle) : varnok_open_adapter(&pdb, &handle, &err), 1U);
        if (native) {
            EXPECT_EQ(close(nullptr), 1U);
            EXPECT_EQ(ask(&bare, &info, &stat), 1U) << "only lines look for the handle";
        }
        EXPECT_EQ(native ? close(&pdb) : varnok_close_adapter(&pdb, &err), 0U) << "not open";
        EXPECT_EQ(handle + err + hw.open_cnt, 14U);
    });
}

TEST_P(OpenTest, Lines)
{
    load(2);
    uint32_t handle = 9;
    const std::string open = native ? GetParam().name("open_adapter") : "varnok_open_adapter";
    const std::string close = native ? GetParam().name("close_adapter") : "varnok_close_adapter";
    const auto around = [](const std::string &name) { return name + ": entered.\n" + name + ": exiting.\n"; };
    if (!native) {
        platform::fail_call("open", 1, ENOENT);
        EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_OpenAdapter(0, &handle), static_cast<uint32_t>(ENOENT)); }),
                  open +
                      "(0): error opening adapter=2, fd=18446744073709551615\nVARNOK_OpenAdapter(0): open failed.\n");
        EXPECT_EQ(handle, 9U);
        EXPECT_EQ(VARNOK_CloseAdapter(1), failed);
    }
    EXPECT_EQ(log_of(6, [&] { EXPECT_EQ(VARNOK_OpenAdapter(1, &handle), 0U); }),
              "VARNOK_OpenAdapter(1): entered.\n" + around("varnok_get_pdb_from_user_instance(1)") +
                  (native ? around(open)
                          : open + ": entered.\n" + around("varnok_get_instance_from_pdb(0)") + open +
                                "(1): opened adapter instance.\n" + open + ": exiting, rval=0\n") +
                  "VARNOK_OpenAdapter(1): exiting, Return Handle=2 rval=0\n");
    EXPECT_EQ(log_of(6, [&] { EXPECT_EQ(VARNOK_CloseAdapter(2), 0U); }),
              "VARNOK_CloseAdapter(2): entered.\n" + around("varnok_get_pdb_from_user_handle(2)") + close +
                  "(2): entered.\n" + close + "(0): exiting" + (native ? "." : ", rval=0") +
                  "\nVARNOK_CloseAdapter(2): exiting, rval=0\n");
    EXPECT_EQ(log_of(4, [] { EXPECT_EQ(VARNOK_CloseAdapter(2), failed); }),
              "VARNOK_CloseAdapter(2): get pdb failed.\n");
    EXPECT_EQ(log_of(4, [] { VARNOK_CloseAdapter(0); }),
              "varnok_get_pdb_from_user_handle: invalid handle\nVARNOK_CloseAdapter(0): get pdb failed.\n");
}

TEST_P(OpenTest, UnloadClosesWhatWasOpenedAndNothingElse)
{
    for (uint32_t opened : {0U, 2U}) {
        load(3);
        for (uint32_t i = 0; i < 2 * opened; ++i)
            load_and_open(i / 2);
        platform::reset();
        EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
        EXPECT_EQ(times("close"), 1 + (native ? 0 : opened)) << "the shared file, and the devices";
        EXPECT_EQ(VARNOK_CloseAdapter(1), failed);
        expect_nothing_held();
    }
}

TEST_P(OpenTest, CleanupLeavesEveryPortClosed)
{
    load(2);
    load_and_open(1);
    varnok_cleanup_hbas();
    for (const uint32_t i : {0U, 1U}) {
        const varnok_hw_info *const hw = varnok_get_pdb_from_user_instance(i)->hw_info;
        EXPECT_EQ(hw->oshandle, 0xFFFFFFFFU);
        EXPECT_EQ(hw->apihandle + hw->open_cnt + hw->phys_path[0], 0U);
    }
    EXPECT_EQ(hostsim::open_devices(), 0);
}

// In a program without its standard descriptors, nothing of the library's stays on them: log lines would go there.
TEST_P(OpenTest, StandardDescriptorsStayFree)
{
    const int kept[] = {fcntl(0, F_DUPFD, 100), fcntl(1, F_DUPFD, 100), fcntl(2, F_DUPFD, 100)};
    load(1);
    VARNOK_FreeLibrary();
    for (const bool moves : native ? std::vector{true} : std::vector{true, false}) {
        for (const int fd : {0, 1, 2})
            close(fd);
        platform::reset();
        if (!moves)
            platform::fail_call("fcntl", 8, EMFILE); // after the node's, discovery's and the shared file's two
        varnok_debug = moves ? 7 : 0;
        const uint32_t loaded = VARNOK_LoadLibrary();
        uint32_t handle = 0;
        const uint32_t opened = VARNOK_OpenAdapter(0, &handle);
        const bool met = platform::fault_met();
        const std::string slots(reinterpret_cast<const char *>(varnok_shared_data), 32);
        const varnok_hw_info hw = *varnok_get_pdb_from_user_instance(0)->hw_info;
        const int file = varnok_shm_fildes;
        const uint32_t closed = VARNOK_CloseAdapter(handle);
        VARNOK_FreeLibrary();
        varnok_debug = 0;
        for (const int fd : {0, 1, 2}) {
            EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "left open: " << fd;
            dup2(kept[fd], fd);
        }
        EXPECT_EQ(loaded + opened + closed, 0U);
        EXPECT_EQ(slots, std::string("\5", 1) + std::string(31, '\0'));
        EXPECT_NE(met, moves);
        EXPECT_GT(file, 2);
        EXPECT_EQ(native || hw.oshandle > 2, moves);
    }
    for (const int fd : kept)
        close(fd);
}

// Admission and the back-end follow from the device alone, whichever pass found the port.
TEST_F(LifecycleTest, TheDeviceDecides)
{
    std::vector<std::tuple<int, bool, bool>> devices = {
        {0x7A2C, false, false}, {0, false, false}, {0xFFFF, false, false}, {0x2E76, false, false}};
    for (const bool newer : {false, true})
        for (const uint16_t id :
             hostsim::facts(newer ? hostsim::driver_id::pelt : hostsim::driver_id::rovani).device_ids)
            devices.emplace_back(id, true, newer);
    for (const back_end &found_by : back_ends)
        for (const auto &[id, admitted, newer] : devices) {
            SCOPED_TRACE(found_by.driver + std::to_string(id));
            simulate(R"({"drivers":["rovani"],"ports":[{"driver":"@","device_id":)" + std::to_string(id) + "}]}",
                     found_by.driver);
            // The older legacy driver is asked only when the native one fails.
            platform::reset();
            if (std::string(found_by.driver) == "tepli")
                platform::fail_call("vmk_init", 1, EIO);
            ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
            ASSERT_EQ(varnok_priv_database != nullptr, admitted);
            if (!admitted)
                continue;
            VARNOK_PHY_PORT_INFO port = {};
            const uint32_t handle = load_and_open();
            if (!found_by.native) // anything but 1 is legacy
                varnok_get_pdb_from_user_handle(handle)->hw_info->native_driver = 2;
            const std::string log = log_of(2, [&] { VARNOK_GetPhyPortInfo(handle, &port); });
            for (const back_end &b : back_ends)
                EXPECT_EQ(log.find("\n" + b.name("get_port_info") + "(1): entered.\n") != std::string::npos,
                          b.native == found_by.native && b.newer == newer);
            VARNOK_FreeLibrary();
        }
}

} // namespace
