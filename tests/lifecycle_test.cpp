// Load, free, count, open and close.
#include "host_test.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace
{

struct LifecycleTest : HostTest {
    // The drivers that a load asked, in order.
    static std::string asked()
    {
        std::string names;
        for (const std::string &call : platform::calls()) {
            for (const char *name : {"rovani", "tepli", "pelt", "dxo"})
                if (call == std::string("vmk_init ") + name ||
                    call == std::string("open /dev/char/vmkdriver/") + name + " 0")
                    names += std::string(names.empty() ? "" : " ") + name;
        }
        return names;
    }
};

TEST_F(LifecycleTest, DiscoveryOrder)
{
    constexpr uint32_t failed = VARNOK_STATUS_FAILED;
    struct {
        const char *scenario;
        uint32_t result;
        uint32_t ports;
        const char *asked;
    } const cases[] = {
        {R"({"drivers":[]})", failed, 0, "rovani tepli pelt dxo"},
        {R"({"drivers":["rovani"]})", 0, 0, "rovani pelt dxo"},
        {R"({"drivers":["tepli"]})", 0, 0, "rovani tepli pelt dxo"},
        {R"({"drivers":["pelt"]})", failed, 0, "rovani tepli pelt"},
        {R"({"drivers":["dxo"]})", failed, 0, "rovani tepli pelt dxo"},
        {R"({"drivers":["tepli","dxo","pelt","rovani"],"ports":[{"driver":"tepli"},{"driver":"dxo"}]})", 0, 0,
         "rovani pelt"},
        {R"({"ports":[{"driver":"rovani"},{"driver":"dxo"}]})", 0, 2, "rovani pelt dxo"},
        {R"({"ports":[{"driver":"tepli"},{"driver":"pelt"}]})", 0, 2, "rovani tepli pelt"},
        {R"({"ports":[{"driver":"dxo","repeat":3}]})", 0, 3, "rovani tepli pelt dxo"},
        {R"({"ports":[{"driver":"rovani","device_id":1}]})", 0, 0, "rovani pelt dxo"},
        {R"({"host":{"euid":1},"ports":[{"driver":"rovani"}]})", failed, 0, ""},
        {R"({"host":{"sysname":"Linux"},"ports":[{"driver":"rovani"}]})", failed, 0, ""},
        {R"({"host":{"sysname":"xVMkernel7"},"ports":[{"driver":"rovani"}]})", 0, 1, "rovani pelt dxo"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.scenario);
        simulate(c.scenario);
        platform::reset();
        platform::set_user_lines("2\n");
        EXPECT_EQ(VARNOK_LoadLibrary(), c.result);
        EXPECT_EQ(asked(), c.asked);
        uint32_t count = 77;
        EXPECT_EQ(VARNOK_GetPortCount(&count), c.ports > 0 ? 0 : failed);
        EXPECT_EQ(count, c.ports > 0 ? c.ports : 77U);
        EXPECT_EQ(varnok_priv_database != nullptr, c.ports > 0);
        EXPECT_EQ(varnok_shared_data != nullptr, c.ports > 0);
        EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
        expect_nothing_held();
    }
}

TEST_F(LifecycleTest, LoadingTwiceAsksOnce)
{
    simulate(R"({"ports":[{"driver":"pelt"}]})");
    EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
    const size_t calls = platform::calls().size();
    EXPECT_EQ(log_of(4, [] { EXPECT_EQ(VARNOK_LoadLibrary(), 0U); }), "VARNOK_LoadLibrary: already loaded.\n");
    EXPECT_EQ(
        std::count(platform::calls().begin() + static_cast<long>(calls), platform::calls().end(), "vmk_init pelt"), 0);
    // Ports found before, but the shared database failed: the lists are gone and the next load
    // looks again.
    EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
    platform::fail_call("mmap", 1, ENOMEM);
    EXPECT_EQ(log_of(4, [] { EXPECT_EQ(VARNOK_LoadLibrary(), VARNOK_STATUS_FAILED); })
                      .find("varnok_load_lib: ERROR setting up database.\nVARNOK_LoadLibrary: load "
                            "failed. rval=1\n") != std::string::npos,
              true);
    expect_nothing_held();
    EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
}

TEST_F(LifecycleTest, CallsOutOfOrder)
{
    uint8_t version[13] = {};
    uint32_t handle = 5;
    uint32_t count = 0;
    EXPECT_EQ(VARNOK_GetVersion(nullptr, 0), 0x05000200U);
    EXPECT_EQ(VARNOK_GetVersion(version, 12), 0x05000200U);
    EXPECT_EQ(version[0], 0);
    EXPECT_EQ(VARNOK_GetVersion(version, 13), 0x05000200U);
    EXPECT_STREQ(reinterpret_cast<char *>(version), "v5.00 build2");
    EXPECT_EQ(std::string(varnok_version_description), "Molvar Halcyon iSCSI API library version v5.00 build2");
    EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
    EXPECT_EQ(VARNOK_OpenAdapter(0, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(VARNOK_OpenAdapter(0, &handle), VARNOK_STATUS_FAILED);
    EXPECT_EQ(VARNOK_CloseAdapter(0), VARNOK_STATUS_FAILED);
    EXPECT_EQ(VARNOK_GetPortCount(&count), VARNOK_STATUS_FAILED);
    EXPECT_EQ(log_of(6, [] { EXPECT_EQ(VARNOK_GetPortCount(nullptr), VARNOK_STATUS_INVALID_PARAMETER); }),
              "VARNOK_GetPortCount: invalid parameter.\n");
    simulate(R"({"ports":[{"driver":"rovani"}]})");
    EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_OpenAdapter(1, &handle), VARNOK_STATUS_NOT_FOUND); }),
              "VARNOK_OpenAdapter(1): pdb not found, exiting\n");
    EXPECT_EQ(handle, 5U);
}

struct OpenTest : BackEndTest {
    static long devices_opened()
    {
        const auto &calls = platform::calls();
        return std::count_if(calls.begin(), calls.end(), [](const std::string &c) {
            return c.starts_with("open /dev/char") && c.ends_with(" " + std::to_string(O_RDWR));
        });
    }
};
OVER_ALL_BACK_ENDS(OpenTest);

TEST_P(OpenTest, OpensAreCounted)
{
    const bool native = GetParam().native;
    simulate(R"({"ports":[{"driver":"@","repeat":4}]})");
    ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
    const long before = devices_opened();
    uint32_t handle = 0;
    EXPECT_EQ(VARNOK_OpenAdapter(2, &handle), 0U);
    EXPECT_EQ(handle, 3U);
    handle = 0;
    EXPECT_EQ(VARNOK_OpenAdapter(2, &handle), 0U);
    EXPECT_EQ(handle, 3U);
    EXPECT_EQ(devices_opened() - before, native ? 0 : 1);
    EXPECT_EQ(platform::open_descriptors(), native ? 1 : 2) << "the shared file, and the device";
    const varnok_hw_info *const hw = varnok_get_pdb_from_user_handle(3)->hw_info;
    EXPECT_EQ(hw->open_cnt, 2U);
    EXPECT_EQ(VARNOK_CloseAdapter(3), 0U);
    EXPECT_EQ(hostsim::open_devices(), native ? 0 : 1);
    if (!native) {
        platform::fail_call("close", 1, EIO);
        EXPECT_EQ(VARNOK_CloseAdapter(3), static_cast<uint32_t>(EIO));
        EXPECT_EQ(hw->open_cnt, 1U) << "a close that fails takes no open back";
        EXPECT_EQ(hw->apihandle, 3U);
        VARNOK_FreeLibrary();
        return;
    }
    EXPECT_EQ(VARNOK_CloseAdapter(3), 0U);
    EXPECT_EQ(hw->open_cnt, 0U);
    EXPECT_EQ(hw->apihandle, 0U);
    EXPECT_EQ(hw->oshandle, 0xFFFFFFFFU);
    EXPECT_EQ(VARNOK_CloseAdapter(3), VARNOK_STATUS_FAILED);
}

TEST_P(OpenTest, Lines)
{
    const bool native = GetParam().native;
    simulate(R"({"ports":[{"driver":"@","repeat":2}]})");
    ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
    uint32_t handle = 0;
    const std::string open = native ? GetParam().name("open_adapter") : "varnok_open_adapter";
    const std::string close = native ? GetParam().name("close_adapter") : "varnok_close_adapter";
    const std::string lookup = "varnok_get_pdb_from_user_instance(1): "
                               "entered.\nvarnok_get_pdb_from_user_instance(1): exiting.\n";
    const std::string instance =
        "varnok_get_instance_from_pdb(0): entered.\nvarnok_get_instance_from_pdb(0): exiting.\n";
    EXPECT_EQ(log_of(6, [&] { EXPECT_EQ(VARNOK_OpenAdapter(1, &handle), 0U); }),
              "VARNOK_OpenAdapter(1): entered.\n" + lookup + open + ": entered.\n" +
                  (native ? open + ": exiting.\n"
                          : instance + open + "(1): opened adapter instance.\n" + open + ": exiting, rval=0\n") +
                  "VARNOK_OpenAdapter(1): exiting, Return Handle=2 rval=0\n");
    EXPECT_EQ(log_of(6, [&] { EXPECT_EQ(VARNOK_CloseAdapter(2), 0U); }),
              "VARNOK_CloseAdapter(2): entered.\nvarnok_get_pdb_from_user_handle(2): entered.\n"
              "varnok_get_pdb_from_user_handle(2): exiting.\n" +
                  close + "(2): entered.\n" + close + "(0): exiting" + (native ? "." : ", rval=0") +
                  "\nVARNOK_CloseAdapter(2): exiting, rval=0\n");
    EXPECT_EQ(log_of(4, [] { EXPECT_EQ(VARNOK_CloseAdapter(2), VARNOK_STATUS_FAILED); }),
              "VARNOK_CloseAdapter(2): get pdb failed.\n");
    EXPECT_EQ(log_of(4, [] { VARNOK_CloseAdapter(0); }),
              "varnok_get_pdb_from_user_handle: invalid handle\nVARNOK_CloseAdapter(0): get pdb "
              "failed.\n");
}

TEST_P(OpenTest, ADeviceThatDoesNotOpen)
{
    if (GetParam().native)
        GTEST_SKIP() << "native ports have no device";
    simulate(R"({"ports":[{"driver":"@"}]})");
    ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
    platform::fail_call("open", 1, ENOENT);
    uint32_t handle = 9;
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_OpenAdapter(0, &handle), static_cast<uint32_t>(ENOENT)); }),
              "varnok_open_adapter(0): error opening adapter=2, fd=18446744073709551615\n"
              "VARNOK_OpenAdapter(0): open failed.\n");
    EXPECT_EQ(handle, 9U);
    EXPECT_EQ(VARNOK_CloseAdapter(1), VARNOK_STATUS_FAILED);
}

TEST_P(OpenTest, UnloadClosesWhatWasOpenedAndNothingElse)
{
    simulate(R"({"ports":[{"driver":"@","repeat":3}]})");
    const auto closes = [] { return std::count(platform::calls().begin(), platform::calls().end(), "close"); };
    for (uint32_t opened : {0U, 2U}) {
        ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
        uint32_t handle = 0;
        for (uint32_t i = 0; i < opened; ++i) {
            EXPECT_EQ(VARNOK_OpenAdapter(i, &handle), 0U);
            EXPECT_EQ(VARNOK_OpenAdapter(i, &handle), 0U);
        }
        const long before = closes();
        EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
        EXPECT_EQ(closes() - before, 1 + (GetParam().native ? 0 : opened)) << "the shared file, and the devices";
        EXPECT_EQ(VARNOK_CloseAdapter(1), VARNOK_STATUS_FAILED);
        expect_nothing_held();
    }
}

// Admission and the back-end follow from the device alone, whichever pass found the port.
TEST_F(LifecycleTest, TheDeviceDecides)
{
    struct {
        uint16_t id;
        bool admitted;
        bool newer;
    } const devices[] = {
        {0x2E31, true, true},   {0x2E35, true, false}, {0x2E36, true, false},  {0x2E5D, true, false},
        {0x2E61, true, false},  {0x2E74, true, false}, {0x2E75, true, false},  {0x2E77, true, false},
        {0x2E78, true, false},  {0x2E81, true, false}, {0x7A24, true, true},   {0x7B24, true, true},
        {0x7A2C, false, false}, {0, false, false},     {0xFFFF, false, false}, {0x2E76, false, false},
    };
    for (const back_end &found_by : back_ends)
        for (const auto &device : devices) {
            simulate(R"({"drivers":["rovani"],"ports":[{"driver":"@","device_id":)" + std::to_string(device.id) + "}]}",
                     found_by.driver);
            // The older legacy driver is asked only when the native one fails.
            platform::reset();
            platform::set_user_lines("2\n");
            if (std::string(found_by.driver) == "tepli")
                platform::fail_call("vmk_init", 1, EIO);
            ASSERT_EQ(VARNOK_LoadLibrary(), 0U);
            ASSERT_EQ(varnok_priv_database != nullptr, device.admitted) << found_by.driver << device.id;
            if (!device.admitted)
                continue;
            uint32_t handle = 0;
            ASSERT_EQ(VARNOK_OpenAdapter(0, &handle), 0U);
            const auto *const serves = std::find_if(std::begin(back_ends), std::end(back_ends), [&](const back_end &b) {
                return b.native == found_by.native && b.newer == device.newer;
            });
            VARNOK_PHY_PORT_INFO port = {};
            const std::string log = log_of(2, [&] { VARNOK_GetPhyPortInfo(handle, &port); });
            EXPECT_NE(log.find("\n" + serves->name("get_port_info") + "(1): entered.\n"), std::string::npos) << log;
            VARNOK_FreeLibrary();
        }
}

} // namespace
