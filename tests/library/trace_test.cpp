// Every line of a whole life of the library, on each back-end, against what was read line by line once:
// golden/DRIVER.log. VARNOK_GOLDEN=write writes the files anew.
#include "host_test.h"

#include <cstring>
#include <fstream>

namespace
{

struct TraceTest : BackEndTest {
};
OVER_ALL_BACK_ENDS(TraceTest);

TEST_P(TraceTest, AWholeLife)
{
    simulate(
        R"({"ports":[{"driver":"@","device_id":1},{"driver":"@","host_no":40,"vendor_id":"0x1e2b","model_name":"a model name that fills a field.",
        "sessions":[{"luns":[{"lun":12,"size":"3 TiB"}]}]}]})");
    setenv("VARNOK_API_DEBUG", "6", 1);
    std::string log = log_of(6, [] {
        EXPECT_EQ(VARNOK_LoadLibrary(), 0U);
        uint32_t count = 0;
        VARNOK_GetPortCount(&count);
        uint32_t handle = 0;
        EXPECT_EQ(VARNOK_OpenAdapter(0, &handle), 0U);
        VARNOK_PHY_PORT_INFO port = {};
        VARNOK_ISCSI_PORTAL portal = {}, *portals = &portal;
        VARNOK_SESS_INFO session = {}, *sessions = &session;
        VARNOK_TGT_INFO target = {}, *targets = &target;
        VARNOK_LUN_INFO lun = {}, *luns = &lun;
        EXPECT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
        EXPECT_EQ(VARNOK_GetIscsiPortal(handle, &count, &portals), 0U);
        EXPECT_EQ(VARNOK_GetSessionInfo(handle, &count, &sessions), 0U);
        EXPECT_EQ(VARNOK_GetTgtInfo(handle, &count, &targets), 0U);
        EXPECT_EQ(VARNOK_GetLunInfo(handle, 0, &count, &luns), 0U);
        EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
    });
    unsetenv("VARNOK_API_DEBUG");
    // Identifiers and descriptors are the system's choice.
    for (const char *key : {"sem_id=", "shm_fildes=", "closing handle="}) {
        const size_t at = log.find(key);
        if (at != std::string::npos)
            log.replace(at + strlen(key), log.find('\n', at) - at - strlen(key), "N");
    }
    const std::string version = VARNOK_API_VERSION_TEXT;
    ASSERT_NE(log.find(version), std::string::npos);
    log.replace(log.find(version), version.size(), "VERSION");
    const std::string path = std::string(GOLDEN) + "/" + GetParam().driver + ".log";
    if (getenv("VARNOK_GOLDEN") != nullptr)
        std::ofstream(path) << log;
    std::ifstream file(path);
    EXPECT_EQ(log, std::string(std::istreambuf_iterator<char>(file), {}));
}

} // namespace
