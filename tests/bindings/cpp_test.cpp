// varnok.hpp on simulated hosts: what it makes of lists that are cut, of claims and of objects' lives.
#include "host_test.h"

#include <varnok.hpp>

namespace
{

class CppTest : public BackEndTest
{
  protected:
    void simulate_targets(const std::string &more = "")
    {
        simulate(
            R"({"ports":[{"driver":"@","sessions":[{"luns":[{"size":1048576},{"lun":"0xffffffffffffffff"}]},{"luns":[]},
                   {"tgt_iqn":"iqn.third"}]},{"driver":"@"}])" +
            more + "}");
    }
};

OVER_ALL_BACK_ENDS(CppTest);

TEST_P(CppTest, ListsAreAsLongAsTheyReallyAre)
{
    simulate_targets();
    const varnok::library library;
    ASSERT_EQ(varnok::check(library.port_count()), 2U);
    const varnok::port port(library, 0), without(library, 1);
    EXPECT_EQ(varnok::check(port.info()).SessCount, 3U);
    EXPECT_EQ(varnok::check(port.sessions()).size(), 3U);
    EXPECT_EQ(varnok::check(port.portals()).size(), 1U);
    const auto targets = varnok::check(port.targets());
    ASSERT_EQ(targets.size(), 3U);
    EXPECT_EQ(varnok::text(targets[2].TargetName), "iqn.third");
    for (const uint32_t guess : {0U, 1U, 2U, 5000U})
        EXPECT_EQ(varnok::check(port.luns(0, guess)).size(), 2U) << guess;
    EXPECT_TRUE(varnok::check(port.luns(1)).empty());
    EXPECT_TRUE(varnok::check(without.targets()).empty() && varnok::check(without.sessions()).empty());
    EXPECT_EQ(varnok::port(library, 2).status().code(), VARNOK_STATUS_NOT_FOUND);
}

TEST_P(CppTest, AListThatFailsKeepsWhatWasRead)
{
    simulate_targets(R"(,"faults":[{"driver":"@","request":"tgt_info","target":2,"status":6}])");
    const varnok::library library;
    const varnok::port port(library, 0);
    const auto targets = port.targets();
    EXPECT_EQ(targets.value.size(), 2U);
    EXPECT_EQ(targets.status.text(), "VARNOK_GetTgtInfo: VARNOK_STATUS_DRIVER_6: driver status 6");
    try {
        varnok::check(targets);
        FAIL();
    } catch (const varnok::error &error) {
        EXPECT_EQ(error.status().code(), VARNOK_STATUS_DRIVER_6);
        EXPECT_EQ(error.what(), targets.status.text());
    }
}

// Such claims take no memory: a program without room for them reads what there is.
TEST_P(CppTest, ClaimsTakeNoMemory)
{
    simulate(R"({"ports":[{"driver":"@","sessions":[{}],"session_cnt":4000000}]})");
    const varnok::library library;
    const varnok::port port(library, 0);
    EXPECT_EQ(varnok::check(port.info()).SessCount, 4000000U);
    const auto sessions = port.sessions();
    EXPECT_FALSE(sessions.ok());
    EXPECT_EQ(sessions.value.size(), 1U);
    EXPECT_LT(sessions.value.capacity(), 1000U);
}

TEST_P(CppTest, ObjectsOpenAndClose)
{
    simulate_targets();
    {
        const varnok::library outer;
        varnok::port port(outer, 0);
        {
            const varnok::library inner;
            varnok::port other(inner, 1);
            port = std::move(other); // closes the first one
            // cppcheck-suppress accessMoved; it is what is looked at
            EXPECT_EQ(other.handle(), 0U); // NOLINT(bugprone-use-after-move)
            varnok::port &same = port;
            port = std::move(same);
        }
        EXPECT_EQ(port.handle(), 2U);
        EXPECT_TRUE(port.info().ok());
        EXPECT_EQ(varnok::port(outer, 0).handle(), 1U);
        EXPECT_TRUE(port.close().ok());
        EXPECT_TRUE(port.close().ok());
        EXPECT_EQ(port.handle(), 0U);
        EXPECT_EQ(port.info().status.code(), VARNOK_STATUS_FAILED);
    }
    expect_nothing_held();
}

TEST_P(CppTest, ACloseThatFailsIsNotRepeated)
{
    simulate_targets();
    const varnok::library library;
    {
        varnok::port port(library, 0);
        platform::fail_call("close", 1, EIO);
        EXPECT_EQ(port.close().code(), GetParam().native ? 0U : EIO);
        EXPECT_EQ(port.handle(), 0U);
        platform::reset();
        EXPECT_TRUE(port.close().ok());
    }
    EXPECT_EQ(std::ranges::count(platform::calls(), "close"), 0);
}

TEST_P(CppTest, CommandsMoveBytes)
{
    simulate_targets();
    const varnok::library library;
    const varnok::port port(library, 0);
    const varnok::scsi_lun lun = varnok::lun_of(varnok::check(port.luns(0)).at(0));
    const std::vector<uint8_t> block(512, 0x5A), read = {0x28, 0, 0, 0, 0, 0, 0, 0, 1, 0};
    EXPECT_TRUE(port.write(0, lun, {0x2A, 0, 0, 0, 0, 0, 0, 0, 1, 0}, block).ok());
    EXPECT_EQ(varnok::check(port.read(0, lun, read, block.size())).data, block);
    EXPECT_TRUE(port.send(0, lun, {0, 0, 0, 0, 0, 0}).ok());
    EXPECT_EQ(port.read(0, {7, 0}, read, block.size()).value.sense.at(2), 5); // no such LUN
    for (const size_t size : {size_t{0}, size_t{17}})
        EXPECT_EQ(port.send(0, lun, std::vector<uint8_t>(size)).status.code(), VARNOK_STATUS_INVALID_PARAMETER);
}

TEST(CppStatus, HasANameAndAMeaning)
{
    for (uint32_t driver_status = 1; driver_status <= 13; ++driver_status) {
        const varnok::status status(VARNOK_STATUS_FAILED - 1 + driver_status, "");
        EXPECT_EQ(std::string(status.name()).substr(0, 14), "VARNOK_STATUS_");
        EXPECT_NE(std::string(status.meaning()).find("status"), std::string::npos) << driver_status;
    }
    EXPECT_TRUE(varnok::status().ok());
    EXPECT_EQ(varnok::status(2, "x").text(), "x: system error: No such file or directory");
    EXPECT_EQ(varnok::status(0x80001234, "").name(), std::string("unknown status"));
}

} // namespace
