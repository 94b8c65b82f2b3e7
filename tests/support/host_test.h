// host_test.h - a test on a simulated host: fixed names made private, the log captured, and nothing
// left behind.
#pragma once

#include "api/varnok_core.h"
#include "backend/legacy_adapter.h"
#include "backend/peltl_core.h"
#include "backend/varnok_core_ioctl.h"
#include "backend/varnok_ntapi.h"
#include "backend/varnok_ryx_ntapi.h"
#include "core/shared_db_file.h"
#include "core/varnok_instdb.h"
#include "core/varnok_shared_db.h"
#include "hostsim.h"
#include "platform.h"
#include "support/varnok_dbg.h"
#include "support/varnok_sem.h"
#include "varnok_mgmt.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// The four back-ends, for suites that run over all of them.
struct back_end {
    const char *driver;
    bool native;
    bool newer;
    uint16_t device_id;
    const char *query_prefix; // of the names in its log lines
    const char *query_suffix;
    const char *scsi_failed; // in the line about a command that fails
    uint32_t (*find)(const char *driver, uint32_t *counter);
    // A native one's own functions.
    uint32_t (*open)(varnok_priv_db *, uint32_t instance, uint32_t *handle) = nullptr;
    uint32_t (*close)(varnok_priv_db *) = nullptr;
    uint32_t (*get_port_info)(varnok_priv_db *, varnok_drv_port_info *, uint32_t *stat) = nullptr;
    uint32_t (*send_scsi_cmd)(varnok_priv_db *, varnok_drv_scsi_cmd_native *, uint32_t *stat) = nullptr;

    std::string name(const std::string &operation) const { return query_prefix + operation + query_suffix; }
};

inline constexpr back_end back_ends[] = {
    {"rovani", true, false, 0x2E35, "varnok_ryxnt_", "", "cmd ryx callback", varnok_ryxnt_find_all_instances,
     varnok_ryxnt_open_adapter, varnok_ryxnt_close_adapter, varnok_ryxnt_get_port_info, varnok_ryxnt_send_scsi_cmd},
    {"tepli", false, false, 0x2E35, "varnok_", "", "cmd ioctl", varnok_find_all_instances},
    {"pelt", true, true, 0x7A24, "varnoknt_", "", "cmd callback", varnoknt_find_all_instances, varnoknt_open_adapter,
     varnoknt_close_adapter, varnoknt_get_port_info, varnoknt_send_scsi_cmd},
    {"dxo", false, true, 0x7A24, "varnok_", "_zt", "cmd zt callback", varnok_find_all_instances_zt},
};

void PrintTo(const back_end &b, std::ostream *out);

class HostTest : public testing::Test
{
  protected:
    HostTest();
    ~HostTest() override;

    // Every "@" in the scenario stands for the driver.
    void simulate(std::string scenario, const char *driver = "");

    // Runs it with the mask and gives what it wrote to standard error.
    static std::string log_of(uint32_t mask, const std::function<void()> &run);

    // Twice: without a line on standard error, and with every one.
    static void in_silence_and_aloud(const std::function<void()> &run);

    // Loads the library and opens the port.
    static uint32_t load_and_open(uint32_t instance = 0);

    // Everything given back: memory, descriptors, semaphores, lists.
    static void expect_nothing_held();

    std::unique_ptr<hostsim::host> host;
};

class BackEndTest : public HostTest, public testing::WithParamInterface<back_end>
{
  protected:
    void simulate(const std::string &scenario) { HostTest::simulate(scenario, GetParam().driver); }

    // The back-end's own line about a request that failed. The driver's status counts before the call's result.
    static std::string request_failed(const std::string &operation, const std::string &text, uint32_t status, int err)
    {
        const bool native = GetParam().native;
        const std::string kind = native && operation == "get_port_info" ? " callback" : native ? " native" : " ioctl";
        return GetParam().name(operation) + ": " + text + kind +
               (status != 0 ? (native ? " failed, status=" : " failed, ioctl_status=") + std::to_string(status)
                            : " function failed, errno=" + std::to_string(err)) +
               "\n";
    }
};

#define OVER_ALL_BACK_ENDS(suite)                                                                                      \
    INSTANTIATE_TEST_SUITE_P(All, suite, testing::ValuesIn(back_ends),                                                 \
                             [](const auto &p) { return std::string(p.param.driver); })

// The bytes of a record.
template <class Record>
std::string bytes_of(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

// A public record as text up to its NUL or its end.
template <size_t Size>
std::string text_of(const uint8_t (&field)[Size])
{
    return {reinterpret_cast<const char *>(field), strnlen(reinterpret_cast<const char *>(field), Size)};
}
