// Every allocation and every platform call failing in turn, through a whole life of the library on
// each back-end: a documented result, nothing left behind, no crash.
#include "host_test.h"

#include <algorithm>
#include <cerrno>
#include <set>

namespace
{

enum class fault { allocation, call };

using statuses = std::set<uint32_t>;

struct step {
    const char *name;
    std::function<uint32_t()> run;
    statuses on_allocation; // beside success
    statuses on_call;
};

class SweepTest : public BackEndTest
{
  protected:
    SweepTest()
    {
        const statuses memory = {VARNOK_STATUS_NO_MEMORY};
        const statuses driver = {VARNOK_STATUS_DRIVER_FAILED};
        steps = {
            {"load", VARNOK_LoadLibrary, {VARNOK_STATUS_FAILED}, {VARNOK_STATUS_FAILED}},
            {"open", [this] { return VARNOK_OpenAdapter(1, &handle); }, {}, {EIO}},
            {"port", [this] { return VARNOK_GetPhyPortInfo(handle, &port); }, memory, driver},
            {"sessions", [this] { return VARNOK_GetSessionInfo(handle, &(count = 2), &session); }, memory, driver},
            {"targets", [this] { return VARNOK_GetTgtInfo(handle, &(count = 2), &target); }, memory, driver},
            {"luns", [this] { return VARNOK_GetLunInfo(handle, 0, &(count = 2), &lun); }, memory, driver},
            {"write", [this] { return VARNOK_SendScsiCommand(handle, &command, &length, data.data()); }, memory,
             driver},
            {"close", [this] { return VARNOK_CloseAdapter(handle); }, {}, {EIO}},
            {"free", VARNOK_FreeLibrary, {}, {}},
        };
        command.Direction = 2;
        command.CDBLength = 10;
        command.CDB[0] = 0x2A;
        command.CDB[8] = 1;
    }

    static void arm(fault kind, long nth)
    {
        if (kind == fault::allocation)
            platform::fail_allocation(nth);
        else
            platform::fail_call(nth, EIO);
    }

    // Brings the library to the step, fails the n-th inside it, and lets it go. True when the fault
    // was met.
    bool fail_within(size_t at, fault kind, long nth)
    {
        platform::reset();
        for (size_t i = 0; i < at; ++i)
            EXPECT_EQ(steps[i].run(), 0U) << steps[i].name;
        const step &failing = steps[at];
        arm(kind, nth);
        const uint32_t result = failing.run();
        const bool met = platform::fault_met();
        const statuses &documented = kind == fault::allocation ? failing.on_allocation : failing.on_call;
        EXPECT_TRUE(result == 0 || documented.count(result) == 1)
            << failing.name << " " << nth << " " << std::hex << result;
        platform::reset();
        EXPECT_EQ(VARNOK_FreeLibrary(), 0U);
        expect_nothing_held();
        return met;
    }

    std::vector<step> steps;
    uint32_t handle = 0;
    uint32_t count = 2;
    uint32_t length = 512;
    VARNOK_PHY_PORT_INFO port = {};
    VARNOK_SCSI_CMND command = {};
    std::vector<VARNOK_SESS_INFO> sessions{2};
    std::vector<VARNOK_TGT_INFO> targets{2};
    std::vector<VARNOK_LUN_INFO> luns{2};
    std::vector<uint8_t> data = std::vector<uint8_t>(512);
    VARNOK_SESS_INFO *session = sessions.data();
    VARNOK_TGT_INFO *target = targets.data();
    VARNOK_LUN_INFO *lun = luns.data();
};
OVER_ALL_BACK_ENDS(SweepTest);

constexpr const char *scenario =
    R"({"ports":[{"driver":"@","sessions":[{"luns":[{"size":"1 MiB"},{"size":"3 TiB"}]},{}]},
                                              {"driver":"@","device_id":1},{"driver":"@"}]})";

// Silent and with every line on: a print allocates, takes its semaphore and writes its file as
// well.
TEST_P(SweepTest, FailEachInTurn)
{
    simulate(scenario);
    for (const char *mask : {"0", "7"}) {
        setenv("VARNOK_API_DEBUG", mask, 1);
        log_of(0, [&] {
            for (size_t at = 0; at < steps.size(); ++at)
                for (const fault kind : {fault::allocation, fault::call}) {
                    long nth = 1;
                    while (fail_within(at, kind, nth) && nth < 20000)
                        nth += mask[0] == '0' || nth < 40 ? 1 : 17;
                    EXPECT_LT(nth, 20000);
                }
        });
        unsetenv("VARNOK_API_DEBUG");
        varnok_debug = 0;
    }
}

} // namespace
