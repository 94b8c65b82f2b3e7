// The exported queries: one suite over the four back-ends.
#include "byte_map.h"
#include "host_test.h"

#include <cerrno>
#include <cstring>
#include <tuple>

namespace
{

using hostsim::exchange;
using hostsim::request;

constexpr uint8_t untouched = 0xEE;

template <class Record>
Record marked(uint32_t version)
{
    Record record;
    memset(static_cast<void *>(&record), untouched, sizeof record);
    record.Version = version;
    return record;
}

struct QueryTest : BackEndTest {
    // A line of the function, with the handle.
    static std::string line(const char *func, uint32_t handle, const std::string &text)
    {
        return std::string("VARNOK_") + func + "(" + std::to_string(handle) + text + "\n";
    }

    // The driver answers every request of the kind with this from now on.
    void answer(request what, uint32_t status, int err)
    {
        host->on_answer = [=](exchange &e) {
            if (e.what != what)
                return;
            e.status = status;
            e.transport_errno = err;
        };
    }
};
OVER_ALL_BACK_ENDS(QueryTest);

struct {
    uint32_t status;
    int err;
    uint32_t result;

    std::string tail() const { return std::to_string(status) + " errno=" + std::to_string(err); }
} const failures[] = {
    {1, 0, 0x80000001},   {13, 0, 0x8000000D},  {14, 0, 0x8000000B},
    {0, EIO, 0x8000000B}, {7, EIO, 0x80000007}, {0xFFFFFFFF, 0, 0x8000000B},
};

// The load's record is one pattern, the query's another: every byte tells where it came from.
struct PhyPortTest : QueryTest {
    const std::string at_load = pattern(768, 1).replace(716, 4, "\0\xFF\x64\x08", 4);
    const std::string at_query = pattern(768, 2);
    std::string pci = pattern(64, 3);
    const std::string *info = &at_load;
    uint32_t handle = 0;

    varnok_priv_db *load()
    {
        const uint16_t device_id = GetParam().device_id;
        memcpy(pci.data() + 2, &device_id, 2);
        simulate(R"({"ports":[{"driver":"@"}]})");
        host->on_answer = [this](exchange &e) {
            if (e.what == request::port_info)
                memcpy(e.record.data(), info->data(), info->size());
            if (e.what == request::pci_info)
                memcpy(e.record.data(), pci.data(), pci.size());
        };
        handle = load_and_open();
        info = &at_query;
        return varnok_get_pdb_from_user_handle(handle);
    }
};
OVER_ALL_BACK_ENDS(PhyPortTest);

TEST_P(PhyPortTest, TheCallersRecord)
{
    const uint8_t phy_port = load()->hw_info->phy_port_number;
    for (const uint32_t version : {2U, 1U}) {
        auto port = marked<VARNOK_PHY_PORT_INFO>(version);
        // To, from, size.
        std::string expected = moved(bytes_of(port), at_load,
                                     {{4, 64, 160}, {164, 256, 80}, {245, 224, 32}, {277, 337, 32}, {309, 625, 6}});
        expected[244] = 1;
        expected = moved(expected, at_query, {{315, 708, 4}, {339, 704, 4}});
        expected = moved(expected, pci, {{319, 0, 18}});
        expected.replace(337, 2, std::string{static_cast<char>(phy_port), '\0'});
        if (version == 2) {
            const uint32_t codes[] = {0, 0, 0, 0x80000000, 0, 4};
            expected.replace(343, sizeof codes, bytes_of(codes));
            expected = moved(expected, pci, {{351, 28, 4}});
            expected = moved(expected, at_load, {{367, 720, 32}});
            if (GetParam().newer)
                expected.replace(399, 14, "08.100.255.00", 14);
        }
        ASSERT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
        EXPECT_EQ(bytes_of(port), expected) << version;
    }
}

TEST_P(PhyPortTest, TheLibrarysOwnRecordTakesOverWhatMayChange)
{
    using db = varnok_priv_db;
    const db *const pdb = load();
    const std::string image = bytes_of(*pdb);
    VARNOK_PHY_PORT_INFO port = {};
    ASSERT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
    EXPECT_EQ(bytes_of(*pdb), moved(image, at_query,
                                    {// to, from, size, source_size
                                     {offsetof(db, ipv4_port), 631, 2},
                                     {offsetof(db, ipv4addr), 634, 12},
                                     {offsetof(db, ipv6_port), 646, 50},
                                     {offsetof(db, vlan_enabled), 696, 2},
                                     {offsetof(db, vlan_id), 712, 2},
                                     {offsetof(db, state), 698, 4, 2},
                                     {offsetof(db, port_sup_speed), 700, 4, 2},
                                     {offsetof(db, port_speed), 702, 4, 2},
                                     {offsetof(db, session_cnt), 704, 8}}));
}

TEST_P(QueryTest, PhyPortCodes)
{
    struct {
        uint32_t speed, width;
        uint16_t state, link;
        uint32_t expected[4];
    } const cases[] = {
        {20, 1, 0, 10000, {25, 3, 4, 0x8}},
        {22, 2, 1, 20000, {80, 4, 8, 0x80}},
        {19, 4, 2, 40000, {0, 5, 0x80000000, 0x100}},
        {255, 8, 0xFFFF, 50000, {0, 6, 0x80000000, 0x200}},
        {0, 12, 0, 1000, {0, 0, 4, 0}},
        {21, 32, 0, 0, {50, 9, 4, 0}},
    };
    simulate(R"({"ports":[{"driver":"@"}]})");
    const uint32_t handle = load_and_open();
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_handle(handle);
    for (const auto &c : cases) {
        pdb->hw_info->pcie_speed = c.speed;
        pdb->hw_info->pcie_width = c.width;
        host->on_answer = [&](exchange &e) {
            memcpy(e.record.data() + 698, &c.state, 2);
            memcpy(e.record.data() + 702, &c.link, 2);
        };
        auto port = marked<VARNOK_PHY_PORT_INFO>(2);
        ASSERT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
        const uint32_t codes[] = {port.PCIESpeed, port.PCIEWidth, port.PortState, port.PortSpeed};
        EXPECT_EQ(bytes_of(codes), bytes_of(c.expected)) << c.speed;
    }
}

TEST_P(QueryTest, PhyPortFailures)
{
    simulate(R"({"ports":[{"driver":"@","session_cnt":3}]})");
    const uint32_t handle = load_and_open();
    auto port = marked<VARNOK_PHY_PORT_INFO>(2);
    const std::string before = bytes_of(port);
    for (const auto &f : failures) {
        answer(request::port_info, f.status, f.err);
        errno = 0;
        EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_GetPhyPortInfo(handle, &port), f.result); }),
                  request_failed("get_port_info", "Get port info", f.status, f.err) +
                      line("GetPhyPortInfo", handle, "): get port info failed. stat=" + f.tail()));
        EXPECT_EQ(bytes_of(port), before);
        EXPECT_EQ(varnok_get_pdb_from_user_handle(handle)->session_cnt, 3U);
    }
    EXPECT_EQ(VARNOK_GetPhyPortInfo(0, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(VARNOK_GetPhyPortInfo(0, &port), VARNOK_STATUS_FAILED);
    EXPECT_EQ(VARNOK_GetPhyPortInfo(99, &port), VARNOK_STATUS_FAILED);
}

TEST_P(QueryTest, Portal)
{
    simulate(R"({"ports":[{"driver":"@"}]})");
    for (const bool is_ipv4 : {true, false}) {
        const std::string drivers = pattern(768, 6).replace(634, 4, 4, is_ipv4 ? '\1' : '\0');
        host->on_answer = [&](exchange &e) {
            if (e.what == request::port_info)
                memcpy(e.record.data(), drivers.data(), drivers.size());
        };
        const uint32_t handle = load_and_open();
        const std::string blank = bytes_of(marked<VARNOK_ISCSI_PORTAL>(9));
        // To, from, size.
        std::string expected = moved(blank, drivers, {{5, 634, 4}, {9, 631, 2}, {11, 648, 16}, {27, 646, 2}});
        expected[4] = is_ipv4 ? 1 : 0;
        const std::tuple<uint32_t, uint32_t, bool, uint32_t, uint32_t, std::string> calls[] = {
            {handle, 0, false, 0x80000009, 1, "): API portal count > apps portal count."},
            {handle, 1, false, 0x80000004, 1, "): invalid parameter."},
            {2, 4, true, 0x80000001, 4, "): get pdb failed."},
            {handle, 4, true, 0, 4, ""}};
        for (const auto &[of, room, array, result, count, text] : calls) {
            VARNOK_ISCSI_PORTAL portals[2] = {marked<VARNOK_ISCSI_PORTAL>(9), marked<VARNOK_ISCSI_PORTAL>(9)};
            VARNOK_ISCSI_PORTAL *portal = array ? portals : nullptr;
            uint32_t now = room;
            const std::string log = log_of(
                4, [&, of = of, result = result] { EXPECT_EQ(VARNOK_GetIscsiPortal(of, &now, &portal), result); });
            EXPECT_EQ(log, text.empty() ? "" : line("GetIscsiPortal", of, text));
            EXPECT_EQ(now, count);
            EXPECT_EQ(bytes_of(portals), (result == 0 ? expected : blank) + blank);
        }
        VARNOK_FreeLibrary();
    }
}

// The session and the target query treat their callers alike.
template <class Record>
struct list_query {
    const char *name;
    uint32_t (*call)(uint32_t, uint32_t *, Record **);
    const char *empty, *too_short, *failed;
    request what;
    const char *operation, *driver_text;
};

constexpr list_query<VARNOK_SESS_INFO> session_query = {"GetSessionInfo",
                                                        VARNOK_GetSessionInfo,
                                                        "): No sessions present.",
                                                        "): API sesion count > apps session count.",
                                                        "): session info ioctl failed, stat=",
                                                        request::sess_info,
                                                        "get_sess_info",
                                                        "Get session info"};
constexpr list_query<VARNOK_TGT_INFO> target_query = {"GetTgtInfo",
                                                      VARNOK_GetTgtInfo,
                                                      "): No targets present.",
                                                      "): API tgt count greater than apps tgt count.",
                                                      "): tgt info failed, stat=",
                                                      request::tgt_info,
                                                      "get_tgt_info",
                                                      "Get tgt info"};

struct ListQueryTest : QueryTest {
    uint32_t handle = 0, empty = 0;

    // Ports of three sessions and of none.
    void open_both()
    {
        VARNOK_FreeLibrary();
        simulate(R"({"ports":[{"driver":"@","sessions":[{"repeat":3}]},{"driver":"@"}]})");
        handle = load_and_open(0);
        empty = load_and_open(1);
    }

    // Asks with room for so many entries of a longer array. The first `written` of them are filled, the others
    // untouched.
    template <class Record>
    static void ask(const list_query<Record> &query, uint32_t of, bool array, uint32_t room, uint32_t result,
                    uint32_t count, size_t written)
    {
        std::vector<Record> records(10, marked<Record>(0));
        Record *entries = array ? records.data() : nullptr;
        EXPECT_EQ(query.call(of, &room, &entries), result);
        EXPECT_EQ(room, count);
        for (size_t i = 0; i < records.size(); ++i)
            EXPECT_EQ(bytes_of(records[i]) != bytes_of(marked<Record>(0)), i < written) << i;
    }

    // A count of 0 asks for the number, with or without an array.
    template <class Record>
    void compare_arrays(const list_query<Record> &query)
    {
        open_both();
        const struct {
            uint32_t handle, room, result, count;
            bool array;
            const char *text;
        } calls[] = {{handle, 0, 0x80000009, 3, false, query.too_short},
                     {handle, 2, 0x80000009, 3, true, query.too_short},
                     {handle, 3, 0x80000004, 3, false, "): invalid parameter."},
                     {handle, 10, 0, 10, true, nullptr},
                     {empty, 4, 0, 0, false, query.empty},
                     {empty, 0, 0, 0, false, query.empty},
                     {9, 4, 0x80000001, 4, true, "): get pdb failed."},
                     {handle, 3, 0, 3, true, nullptr}};
        for (const auto &c : calls)
            EXPECT_EQ(log_of(4, [&] { ask(query, c.handle, c.array, c.room, c.result, c.count, c.text ? 0 : 3); }),
                      c.text == nullptr ? "" : line(query.name, c.handle, c.text));
    }

    // The entries before a failure stay written.
    template <class Record>
    void fail_the_second(const list_query<Record> &query)
    {
        open_both();
        for (const auto &f : failures) {
            host->on_answer = [&, asked = 0](exchange &e) mutable {
                if (e.what == query.what && asked++ == 1) {
                    e.status = f.status;
                    e.transport_errno = f.err;
                }
            };
            errno = 0;
            EXPECT_EQ(log_of(4, [&] { ask(query, handle, true, 3, f.result, 3, 1); }),
                      request_failed(query.operation, query.driver_text, f.status, f.err) +
                          line(query.name, handle, query.failed + f.tail()));
        }
        host->on_answer = nullptr;
    }

    // A port that gains sessions meanwhile does not outgrow the array.
    template <class Record>
    void gain_sessions(const list_query<Record> &query)
    {
        open_both();
        host->on_answer = [this](exchange &) { varnok_get_pdb_from_user_handle(handle)->session_cnt = 5; };
        ask(query, handle, true, 3, 0, 3, 3);
    }
};
OVER_ALL_BACK_ENDS(ListQueryTest);

TEST_P(ListQueryTest, Arrays) { compare_arrays(session_query), compare_arrays(target_query); }

TEST_P(ListQueryTest, Failures) { fail_the_second(session_query), fail_the_second(target_query); }

TEST_P(ListQueryTest, Growth) { gain_sessions(session_query), gain_sessions(target_query); }

// A list is as long as the port's last data said, whatever the driver knows by now.
TEST_P(ListQueryTest, SessionCountsThatChange)
{
    open_both();
    const struct {
        uint32_t claimed, result, count, written;
    } cases[] = {{2, 0, 3, 2}, {0, 0, 0, 0}, {4, 0x80000009, 4, 0}, {UINT32_MAX, 0x80000009, UINT32_MAX, 0},
                 {1, 0, 3, 1}, {3, 0, 3, 3}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.claimed);
        host->on_answer = [&](exchange &e) {
            if (e.what == request::port_info)
                memcpy(e.record.data() + 704, &c.claimed, sizeof c.claimed);
        };
        VARNOK_PHY_PORT_INFO port = {};
        EXPECT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
        EXPECT_EQ(port.SessCount, c.claimed);
        ask(session_query, handle, true, 3, c.result, c.count, c.written);
        ask(target_query, handle, true, 3, c.result, c.count, c.written);
    }
}

TEST_P(QueryTest, TargetFields)
{
    simulate(R"({"ports":[{"driver":"@","sessions":[{"repeat":4,"luns":[{"repeat":3}]}]}]})");
    std::string drivers = pattern(384, 5);
    const std::pair<std::string, std::string> isids[] = {{"400001020304", std::string("\x40\0\1\2\3\4", 6)},
                                                         {"0x4000010203", std::string("\x40\0\1\2\3\0", 6)},
                                                         {"", std::string(6, '\0')},
                                                         {"4000010203zz9", std::string("\x40\0\1\2\3\0", 6)}};
    uint32_t asked = 0;
    host->on_answer = [&](exchange &e) {
        if (e.what == request::tgt_info) {
            std::string isid = isids[asked++].first;
            isid.resize(13, '\0'); // the last one fills its field
            memcpy(e.record.data(), drivers.replace(270, 13, isid).data(), drivers.size());
        }
        if (e.what == request::scsi_cmd && asked == 2)
            e.status = 3;
    };
    const uint32_t handle = load_and_open();
    std::vector<VARNOK_TGT_INFO> targets(4, marked<VARNOK_TGT_INFO>(7));
    VARNOK_TGT_INFO *target = targets.data();
    uint32_t count = 4;
    const std::string log = log_of(4, [&] { ASSERT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), 0U); });
    EXPECT_TRUE(log.ends_with(line("GetTgtInfo", handle, "): send scsi cmd failed, rval=80000003h"))) << log;
    for (uint32_t i = 0; i < 4; ++i) {
        // To, from, size.
        std::string expected =
            moved(bytes_of(marked<VARNOK_TGT_INFO>(7)), drivers,
                  {{8, 8, 256}, {264, 264, 6}, {276, 283, 2}, {278, 285, 4}, {282, 289, 2}, {284, 291, 16}});
        expected.replace(4, 4, bytes_of(i)).replace(270, 6, isids[i].second);
        // A target that fails REPORT LUNS is listed with what came back: nothing over a native driver.
        const uint32_t luns = i == 1 && GetParam().native ? 0 : 3;
        EXPECT_EQ(bytes_of(targets[i]), expected.replace(300, 4, bytes_of(luns))) << i;
    }
}

} // namespace
