// The exported queries: one suite over the four back-ends.
#include "host_test.h"

#include <cerrno>
#include <cstring>

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
} const failures[] = {
    {1, 0, 0x80000001},   {13, 0, 0x8000000D},  {14, 0, 0x8000000B},
    {0, EIO, 0x8000000B}, {7, EIO, 0x80000007}, {0xFFFFFFFF, 0, 0x8000000B},
};

TEST_P(QueryTest, PhyPort)
{
    simulate(
        R"({"ports":[{"driver":"@","model_name":"M","mac":"02:00:00:00:00:07","mtu":9000,"vendor_id":"0x1e2b",
        "domain_num":1,"bus_num":2,"device_num":3,"function_num":4,"revision":5,"session_cnt":6,"pcie_speed":21,
        "pcie_width":16,"chip_rev_id":9,"port_state":1,"port_speed":25000,"hba_name":"vmhba9","mfw_version":"0x08140A00"}]})");
    const uint32_t handle = load_and_open();
    auto port = marked<VARNOK_PHY_PORT_INFO>(2);
    ASSERT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
    EXPECT_EQ(text_of(port.ModelName), "M");
    EXPECT_EQ(port.DriverLoaded, 1);
    EXPECT_EQ(port.MAC[5], 7);
    EXPECT_EQ(port.MTU, 9000U);
    EXPECT_EQ(port.VendorID, 0x1E2B);
    EXPECT_EQ(port.PciDomainNum * 10000 + port.PciBusNum * 1000 + port.PciDeviceNum * 100 +
                  port.PciFunctionNum * 10 + port.PciRevision,
              12345);
    EXPECT_EQ(port.SessCount, 6U);
    EXPECT_EQ(port.PCIESpeed, VARNOK_PCIE_SPEED_5_0GT);
    EXPECT_EQ(port.PCIEWidth, VARNOK_PCIE_WIDTH_X16);
    EXPECT_EQ(port.ChipRevId, 9U);
    EXPECT_EQ(port.PortState, 8U);
    EXPECT_EQ(port.PortSpeed, 0x800U);
    EXPECT_EQ(port.MediaType, 4U);
    EXPECT_EQ(text_of(port.HbaName), "vmhba9");
    if (GetParam().newer)
        EXPECT_STREQ(reinterpret_cast<char *>(port.MFWVersion), "08.20.10.00");
    else
        EXPECT_EQ(std::string(32, static_cast<char>(untouched)), bytes_of(port.MFWVersion));

    // The older record ends with SessCount.
    auto old = marked<VARNOK_PHY_PORT_INFO>(1);
    ASSERT_EQ(VARNOK_GetPhyPortInfo(handle, &old), 0U);
    EXPECT_EQ(bytes_of(old).substr(4, 339), bytes_of(port).substr(4, 339));
    EXPECT_EQ(bytes_of(old).substr(343), std::string(88, static_cast<char>(untouched)));
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

TEST_P(QueryTest, PhyPortRefreshesWhatMayChange)
{
    simulate(
        R"({"ports":[{"driver":"@","ipv4addr":"10.0.0.1","iqn":"iqn.old","mac":"02:00:00:00:00:01","serial_num":"old"}]})");
    const uint32_t handle = load_and_open();
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_handle(handle);
    // All of the fresh record's bytes are 0x41.
    host->on_answer = [](exchange &e) { memset(e.record.data(), 0x41, e.record.size()); };
    auto port = marked<VARNOK_PHY_PORT_INFO>(2);
    ASSERT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
    EXPECT_EQ(port.SessCount, 0x41414141U);
    EXPECT_EQ(pdb->session_cnt, 0x41414141U);
    EXPECT_EQ(pdb->mtu, 0x41414141U);
    EXPECT_EQ(pdb->state, 0x4141U);
    EXPECT_EQ(pdb->port_sup_speed, 0x4141U);
    EXPECT_EQ(pdb->vlan_id, 0x4141);
    EXPECT_EQ(pdb->vlan_enabled, 0x41);
    EXPECT_EQ(bytes_of(pdb->ipv6addr) + bytes_of(pdb->ipv6_linklocal) + bytes_of(pdb->ipv6_router),
              std::string(48, 'A'));
    EXPECT_EQ(bytes_of(pdb->ipv4addr) + bytes_of(pdb->subnet) + bytes_of(pdb->gateway),
              std::string(12, 'A'));
    EXPECT_EQ(text_of(pdb->iqn), "iqn.old");
    EXPECT_EQ(port.MAC[5], 1);
    EXPECT_EQ(text_of(port.SerialNum), "old");
    EXPECT_EQ(pdb->is_dhcp, 0);
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
        const std::string log =
            log_of(4, [&] { EXPECT_EQ(VARNOK_GetPhyPortInfo(handle, &port), f.result); });
        const std::string last = line("GetPhyPortInfo", handle,
                                      "): get port info failed. stat=" + std::to_string(f.status) +
                                          " errno=" + std::to_string(f.err));
        EXPECT_TRUE(log.ends_with(last)) << log;
        EXPECT_EQ(bytes_of(port), before);
        EXPECT_EQ(varnok_get_pdb_from_user_handle(handle)->session_cnt, 3U);
    }
    EXPECT_EQ(VARNOK_GetPhyPortInfo(0, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(VARNOK_GetPhyPortInfo(0, &port), VARNOK_STATUS_FAILED);
    EXPECT_EQ(VARNOK_GetPhyPortInfo(99, &port), VARNOK_STATUS_FAILED);
}

TEST_P(QueryTest, Portal)
{
    simulate(
        R"({"ports":[{"driver":"@","ipv4addr":"10.1.2.3","ipv4_port":3260,"ipv6addr":"fe80::1","ipv6_port":860},
                          {"driver":"@","ipv4addr":"0.0.0.0","ipv6addr":"fe80::2"}]})");
    const uint32_t handle = load_and_open();
    VARNOK_ISCSI_PORTAL none[2] = {marked<VARNOK_ISCSI_PORTAL>(9), marked<VARNOK_ISCSI_PORTAL>(9)};
    VARNOK_ISCSI_PORTAL *portals = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(
        log_of(4, [&] { EXPECT_EQ(VARNOK_GetIscsiPortal(handle, &count, &portals), 0x80000009); }),
        line("GetIscsiPortal", handle, "): API portal count > apps portal count."));
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(VARNOK_GetIscsiPortal(handle, &count, &portals), VARNOK_STATUS_INVALID_PARAMETER);
    portals = none;
    count = 2;
    EXPECT_EQ(VARNOK_GetIscsiPortal(handle, &count, &portals), 0U);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(none[0].Version, 9U);
    EXPECT_EQ(none[0].IsIPv4, 1);
    EXPECT_EQ(bytes_of(none[0].IPv4Addr), "\x0A\x01\x02\x03");
    EXPECT_EQ(none[0].IPv4PortNum, 3260);
    EXPECT_EQ(none[0].IPv6Addr[15], 1);
    EXPECT_EQ(none[0].IPv6PortNum, 860);
    EXPECT_EQ(none[1].IsIPv4, untouched);
    uint32_t second = 0;
    ASSERT_EQ(VARNOK_OpenAdapter(1, &second), 0U);
    EXPECT_EQ(VARNOK_GetIscsiPortal(second, &count, &portals), 0U);
    EXPECT_EQ(none[0].IsIPv4, 0);
    EXPECT_EQ(none[0].IPv6Addr[15], 2);
    EXPECT_EQ(VARNOK_GetIscsiPortal(3, &count, &portals), VARNOK_STATUS_FAILED);
}

TEST_P(QueryTest, SessionFields)
{
    simulate(
        R"({"ports":[{"driver":"@","sessions":[{"sess_num":41,"sess_unique":"0x1122334455667788","state":"0x101",
        "init_iqn":"iqn.init","init_ipv4addr":"10.0.0.1","init_ipv4_port":1,"init_ipv6addr":"fe80::1","init_ipv6_port":2,
        "tgt_iqn":"iqn.tgt","tgt_ipv4addr":"0.0.0.0","tgt_ipv4_port":3,"tgt_ipv6addr":"fe80::2","tgt_ipv6_port":4,
        "initial_r2t":"0x1FF","imm_data":256,"dataseq_inorder":1,"pdu_inorder":2,"max_r2t":5,"first_burst_len":65536,
        "erl":2,"cid":"0xFFFFFFFF"}]}]})");
    const uint32_t handle = load_and_open();
    auto record = marked<VARNOK_SESS_INFO>(7);
    VARNOK_SESS_INFO *sessions = &record;
    uint32_t count = 1;
    ASSERT_EQ(VARNOK_GetSessionInfo(handle, &count, &sessions), 0U);
    auto expected = marked<VARNOK_SESS_INFO>(7);
    memset(static_cast<void *>(&expected.InitiatorName), 0, sizeof expected.InitiatorName);
    memset(static_cast<void *>(&expected.TargetName), 0, sizeof expected.TargetName);
    memset(static_cast<void *>(&expected.InitIPv6Addr), 0, 16);
    memset(static_cast<void *>(&expected.TgtIPv6Addr), 0, 16);
    memset(static_cast<void *>(&expected.TgtIPv4Addr), 0, 4);
    expected.SessionNum = 41;
    expected.SessionUnique = 0x1122334455667788;
    expected.SessionState = 1;
    memcpy(expected.InitiatorName, "iqn.init", 8);
    expected.InitIsIPv4 = 1;
    memcpy(expected.InitIPv4Addr, "\x0A\0\0\1", 4);
    expected.InitIPv4PortNum = 1;
    memcpy(expected.InitIPv6Addr, "\xFE\x80", 2);
    expected.InitIPv6Addr[15] = 1;
    expected.InitIPv6PortNum = 2;
    memcpy(expected.TargetName, "iqn.tgt", 7);
    expected.TgtIsIPv4 = 0;
    expected.TgtIPv4PortNum = 3;
    memcpy(expected.TgtIPv6Addr, "\xFE\x80", 2);
    expected.TgtIPv6Addr[15] = 2;
    expected.TgtIPv6PortNum = 4;
    expected.InitialR2T = 0xFF;
    expected.ImmediateData = 0;
    expected.DataSequenceInOrder = 1;
    expected.DataPDUInOrder = 2;
    expected.MaxOutstandingR2T = 5;
    expected.FirstBurstLength = 65536;
    expected.ErrorRecoveryLevel = 2;
    expected.ConnID = 0xFFFFFFFF;
    EXPECT_EQ(bytes_of(record), bytes_of(expected));
}

TEST_P(QueryTest, SessionAndTargetCounts)
{
    simulate(R"({"ports":[{"driver":"@","sessions":[{"repeat":3}]},{"driver":"@"}]})");
    const uint32_t handle = load_and_open();
    std::vector<VARNOK_SESS_INFO> sessions(10, marked<VARNOK_SESS_INFO>(0));
    std::vector<VARNOK_TGT_INFO> targets(10, marked<VARNOK_TGT_INFO>(0));
    VARNOK_SESS_INFO *session = nullptr;
    VARNOK_TGT_INFO *target = nullptr;
    uint32_t count = 2;
    EXPECT_EQ(
        log_of(4, [&] { EXPECT_EQ(VARNOK_GetSessionInfo(handle, &count, &session), 0x80000009); }),
        line("GetSessionInfo", handle, "): API sesion count > apps session count."));
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(VARNOK_GetSessionInfo(handle, &count, &session), VARNOK_STATUS_INVALID_PARAMETER);
    count = 0;
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), 0x80000009); }),
              line("GetTgtInfo", handle, "): API tgt count greater than apps tgt count."));
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), VARNOK_STATUS_INVALID_PARAMETER);
    session = sessions.data();
    target = targets.data();
    count = 10;
    EXPECT_EQ(VARNOK_GetSessionInfo(handle, &count, &session), 0U);
    EXPECT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), 0U);
    EXPECT_EQ(count, 10U);
    EXPECT_EQ(sessions[2].SessionNum, 2U);
    EXPECT_EQ(targets[2].ScsiTgtNum, 2U);
    EXPECT_EQ(bytes_of(sessions[3]), bytes_of(marked<VARNOK_SESS_INFO>(0)));
    EXPECT_EQ(bytes_of(targets[3]), bytes_of(marked<VARNOK_TGT_INFO>(0)));

    // The second port has none, and the array is not looked at.
    uint32_t second = 0;
    ASSERT_EQ(VARNOK_OpenAdapter(1, &second), 0U);
    session = nullptr;
    target = nullptr;
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_GetSessionInfo(second, &count, &session), 0U); }),
              line("GetSessionInfo", second, "): No sessions present."));
    EXPECT_EQ(count, 0U);
    count = 4;
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_GetTgtInfo(second, &count, &target), 0U); }),
              line("GetTgtInfo", second, "): No targets present."));
    EXPECT_EQ(count, 0U);
    for (uint32_t bad : {0U, 3U}) {
        EXPECT_EQ(VARNOK_GetSessionInfo(bad, &count, &session), VARNOK_STATUS_FAILED);
        EXPECT_EQ(VARNOK_GetTgtInfo(bad, &count, &target), VARNOK_STATUS_FAILED);
    }
}

TEST_P(QueryTest, EntriesBeforeAFailureStay)
{
    simulate(R"({"ports":[{"driver":"@","sessions":[{"repeat":3}]}]})");
    const uint32_t handle = load_and_open();
    for (const auto &f : failures) {
        int asked = 0;
        host->on_answer = [&](exchange &e) {
            if ((e.what == request::sess_info || e.what == request::tgt_info) && asked++ == 1) {
                e.status = f.status;
                e.transport_errno = f.err;
            }
        };
        std::vector<VARNOK_SESS_INFO> sessions(3, marked<VARNOK_SESS_INFO>(0));
        VARNOK_SESS_INFO *session = sessions.data();
        uint32_t count = 3;
        errno = 0;
        std::string log = log_of(
            4, [&] { EXPECT_EQ(VARNOK_GetSessionInfo(handle, &count, &session), f.result); });
        const std::string tail = std::to_string(f.status) + " errno=" + std::to_string(f.err);
        EXPECT_TRUE(log.ends_with(
            line("GetSessionInfo", handle, "): session info ioctl failed, stat=" + tail)))
            << log;
        EXPECT_EQ(sessions[0].SessionNum, 0U);
        EXPECT_EQ(bytes_of(sessions[1]), bytes_of(marked<VARNOK_SESS_INFO>(0)));
        asked = 0;
        std::vector<VARNOK_TGT_INFO> targets(3, marked<VARNOK_TGT_INFO>(0));
        VARNOK_TGT_INFO *target = targets.data();
        errno = 0;
        log = log_of(4, [&] { EXPECT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), f.result); });
        EXPECT_TRUE(log.ends_with(line("GetTgtInfo", handle, "): tgt info failed, stat=" + tail)))
            << log;
        EXPECT_EQ(targets[0].ScsiTgtNum, 0U);
        EXPECT_EQ(bytes_of(targets[1]), bytes_of(marked<VARNOK_TGT_INFO>(0)));
        EXPECT_EQ(count, 3U);
    }
}

TEST_P(QueryTest, TargetFields)
{
    simulate(R"({"ports":[{"driver":"@","sessions":[
        {"target":{"scsi_tgt_num":9,"iqn":"iqn.a","mac":"02:00:00:00:00:01","isid":"400001020304","ipv4_port":1,
                   "ipv4addr":"10.0.0.1","ipv6_port":2,"ipv6addr":"fe80::1","lun_count":99},
         "luns":[{"repeat":3}]},
        {"target":{"isid":"0x4000010203"}}, {"target":{"isid":""}}, {"target":{"isid":"4000010203zz9"}}]}]})");
    const uint32_t handle = load_and_open();
    std::vector<VARNOK_TGT_INFO> targets(4, marked<VARNOK_TGT_INFO>(0));
    VARNOK_TGT_INFO *target = targets.data();
    uint32_t count = 4;
    host->on_answer = [&](exchange &e) {
        if (e.what == request::scsi_cmd && e.record[4] == std::byte{1})
            e.status = 3; // the second target's REPORT LUNS
    };
    const std::string log =
        log_of(4, [&] { ASSERT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), 0U); });
    EXPECT_TRUE(
        log.ends_with(line("GetTgtInfo", handle, "): send scsi cmd failed, rval=80000003h")))
        << log;
    auto expected = marked<VARNOK_TGT_INFO>(0);
    memset(static_cast<void *>(&expected.ScsiTgtNum), 0, sizeof expected - 4);
    memcpy(expected.TargetName, "iqn.a", 5);
    memcpy(expected.MAC, "\2\0\0\0\0\1", 6);
    memcpy(expected.Isid, "\x40\0\1\2\3\4", 6);
    expected.IPv4Port = 1;
    memcpy(expected.IPv4Addr, "\x0A\0\0\1", 4);
    expected.IPv6Port = 2;
    memcpy(expected.IPv6Addr, "\xFE\x80", 2);
    expected.IPv6Addr[15] = 1;
    expected.LunCount = 3;
    EXPECT_EQ(bytes_of(targets[0]), bytes_of(expected));
    EXPECT_EQ(targets[1].LunCount, GetParam().native ? 0U : 1U) << "read from what came back";
    EXPECT_EQ(bytes_of(targets[1].Isid), std::string("\x40\0\1\2\3\0", 6));
    EXPECT_EQ(bytes_of(targets[2].Isid), std::string(6, '\0'));
    EXPECT_EQ(bytes_of(targets[3].Isid), std::string("\x40\0\1\2\3\0", 6))
        << "an ISID that fills its field";
}

} // namespace
