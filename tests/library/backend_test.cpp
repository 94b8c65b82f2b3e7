// What the back-ends send to their drivers, and what discovery makes of the answers: one suite over
// all four.
#include "backend/peltl_core.h"
#include "backend/varnok_charnode.h"
#include "backend/varnok_core_ioctl.h"
#include "backend/varnok_ntapi.h"
#include "backend/varnok_ryx_ntapi.h"
#include "byte_map.h"
#include "host_test.h"

#include <cerrno>
#include <cstring>

namespace
{

using hostsim::exchange;
using hostsim::request;

struct sent {
    uint64_t code;
    std::string header, record;
};

class DriverTest : public BackEndTest
{
  protected:
    // What the drivers receive from now on.
    std::vector<sent> &watch()
    {
        host->on_request = [this](exchange &e) {
            const auto text = [](std::span<std::byte> s) {
                return std::string(reinterpret_cast<const char *>(s.data()), s.size());
            };
            seen_.push_back({e.code, text(e.header), text(e.record)});
        };
        return seen_;
    }

    uint32_t discover(uint32_t &counter) { return GetParam().find(GetParam().driver, &counter); }

    static void forget_ports()
    {
        varnok_free_all_pdb_mem();
        varnok_free_all_hw_info_mem();
    }

    static std::vector<uint32_t> hosts()
    {
        std::vector<uint32_t> numbers;
        for (uint32_t i = 0; const varnok_priv_db *pdb = varnok_get_pdb_from_user_instance(i); ++i)
            numbers.push_back(pdb->host_no);
        return numbers;
    }

  private:
    std::vector<sent> seen_;
};
OVER_ALL_BACK_ENDS(DriverTest);

// The record as the library sends it: zeros but for what selects an instance, a session or a target.
std::string record_sent(bool native, uint32_t number, uint32_t selector)
{
    const size_t sizes[] = {0, 8, native ? 16U : 8U, 64, 768, 1024, 384};
    std::string record(sizes[number], '\0');
    if (number == 5 || (native && number == 2))
        record.replace(0, 4, bytes_of(selector));
    if (number == 6)
        record.replace(4, 4, bytes_of(selector));
    return record;
}

TEST_P(DriverTest, EveryByteThatIsSentInOrder)
{
    simulate(R"({"ports":[{"driver":"@","host_no":11},{"driver":"@","host_no":66,"sessions":[{},{}]}]})");
    auto &seen = watch();
    const uint32_t handle = load_and_open(1);
    VARNOK_PHY_PORT_INFO port = {};
    VARNOK_SESS_INFO sessions[2], *session = sessions;
    VARNOK_TGT_INFO targets[2], *target = targets;
    uint32_t count = 2;
    EXPECT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
    EXPECT_EQ(VARNOK_GetSessionInfo(handle, &count, &session), 0U);
    EXPECT_EQ(VARNOK_GetTgtInfo(handle, &count, &target), 0U);
    const bool native = GetParam().native;
    const struct {
        uint32_t number, instance, selector;
    } expected[] = {{1, 0, 0}, {2, 0, 0}, {4, 0, 0}, {3, 0, 0}, {2, 1, 1}, {4, 1, 0}, {3, 1, 0}, // discovery
                    {4, 1, 0}, {5, 1, 0}, {5, 1, 1}, {6, 1, 0}, {8, 1, 0}, {6, 1, 1}, {8, 1, 0}};
    ASSERT_EQ(seen.size(), std::size(expected));
    for (size_t i = 0; i < seen.size(); ++i) {
        SCOPED_TRACE(i);
        const auto &[number, instance, selector] = expected[i];
        if (native) {
            EXPECT_EQ(seen[i].code, number == 8 ? 22 : 15 + number);
            if (number > 2)
                EXPECT_EQ(seen[i].header.substr(0, 8), (instance == 0 ? '\x0B' : '\x42') + std::string(7, '\0'));
        } else {
            EXPECT_EQ(seen[i].code, (GetParam().newer ? 0xC0406400 : 0xC0407400) + number);
            std::string header = GetParam().newer ? "DXO" : "TEPLI";
            header.resize(64, '\0');
            header[8] = 2;
            header[10] = 1;
            header[18] = static_cast<char>(instance);
            EXPECT_EQ(seen[i].header, header.replace(20, 8, seen[i].header.substr(20, 8)));
        }
        if (number != 8)
            EXPECT_EQ(seen[i].record, record_sent(native, number, selector));
    }
}

TEST_P(DriverTest, DiscoveryKeepsDropsAndSkips)
{
    struct {
        std::string ports; // "#" is the driver; hosts 32, 33, 34, …
        const char *first_fails;
        std::vector<uint32_t> legacy, native;
    } const cases[] = {
        {"", "", {}, {}},
        {R"({#},{#,"absent":true},{#})", "", {34, 32}, {32, 34}},
        {R"({#},{#},{#,"device_id":"0x1234"},{#})", "", {35, 32, 33}, {35, 32, 33}},
        {"{#},{#}", R"("request":"pci_info","status":9)", {33}, {33}},
        {"{#},{#}", R"("request":"pci_info","errno":"EIO")", {33}, {33}},
        {"{#},{#}", R"("request":"port_info","status":5)", {32, 33}, {33}},
        {"{#},{#}", R"("request":"port_info","errno":"EIO")", {32, 33}, {32, 33}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ports + c.first_fails);
        std::string scenario = R"({"drivers":["@"],"ports":[)" + c.ports + "]";
        if (*c.first_fails != '\0')
            scenario += std::string(R"(,"faults":[{#,)") + c.first_fails + "}]";
        for (size_t at = 0; (at = scenario.find('#')) != std::string::npos;)
            scenario.replace(at, 1, R"("driver":"@")");
        for (const uint32_t mask : {0U, 6U}) {
            simulate(scenario + "}");
            uint32_t counter = 5;
            log_of(mask, [&] { EXPECT_EQ(discover(counter), 0U); });
            const std::vector<uint32_t> &kept = GetParam().native ? c.native : c.legacy;
            EXPECT_EQ(hosts(), kept);
            EXPECT_EQ(counter, kept.size() + (GetParam().native ? 0 : 5));
            forget_ports();
            expect_nothing_held();
        }
    }
}

// What discovery makes of drivers' records whose every byte is known. To, from, size, size of the source.
std::string port_from(const std::string &info, varnok_hw_info *hw_info)
{
    using db = varnok_priv_db;
    db port = {};
    port.host_no = 77;
    port.hw_info = hw_info;
    return moved(bytes_of(port), info,
                 {{offsetof(db, iqn), 369, 264},
                  {offsetof(db, ipv4addr), 634, 64},
                  {offsetof(db, vlan_id), 712, 2},
                  {offsetof(db, state), 698, 4, 2},
                  {offsetof(db, port_sup_speed), 700, 4, 2},
                  {offsetof(db, port_speed), 702, 4, 2},
                  {offsetof(db, session_cnt), 704, 8},
                  {offsetof(db, hba_name), 720, 32}});
}

std::string function_from(const back_end &b, const std::string &pci, const std::string &info)
{
    using hwi = varnok_hw_info;
    hwi hw = {};
    hw.driver_loaded = 1;
    hw.native_driver = b.native;
    hw.phy_port_number = static_cast<uint8_t>(b.newer ? (pci[14] & 3) + 1 : pci[18]);
    if (!b.native)
        snprintf(reinterpret_cast<char *>(hw.phys_path), 256, "/dev/char/vmkdriver/%s", b.driver);
    const std::string with_pci =
        moved(bytes_of(hw), pci, {{offsetof(hwi, vendor_id), 0, 18}, {offsetof(hwi, pcie_speed), 20, 12}});
    return moved(with_pci, info,
                 {{offsetof(hwi, manufacturer), 0, 336},
                  {offsetof(hwi, fw_version), 337, 32},
                  {offsetof(hwi, mfw_version), 716, 4}});
}

// A legacy driver that fills the port data and then fails the request leaves none of it; a native one is skipped.
TEST_P(DriverTest, RecordsAreTakenOver)
{
    const std::string info = pattern(768, 1);
    const uint16_t ids[] = {0x1E2B, 0x7A24, 0x1E2B, 0x0136};
    const std::string pci = pattern(64, 2).replace(0, sizeof ids, bytes_of(ids));
    simulate(R"({"ports":[{"driver":"@","host_no":77},{"driver":"@"}]})");
    for (const uint32_t status : {0U, 5U}) {
        host->on_answer = [&](exchange &e) {
            if (e.what == request::port_info || e.what == request::pci_info)
                memcpy(e.record.data(), e.what == request::pci_info ? pci.data() : info.data(), e.record.size());
            if (e.what == request::port_info)
                e.status = status;
        };
        uint32_t counter = 0;
        ASSERT_EQ(discover(counter), 0U);
        ASSERT_EQ(counter, status != 0 && GetParam().native ? 0U : 2U);
        if (const varnok_priv_db *const pdb = varnok_get_pdb_from_user_instance(0)) {
            const std::string given = status == 0 ? info : std::string(768, '\0');
            EXPECT_EQ(bytes_of(*pdb), port_from(given, pdb->hw_info));
            EXPECT_EQ(bytes_of(*pdb->hw_info), function_from(GetParam(), pci, given));
        }
        forget_ports();
    }
}

TEST_P(DriverTest, NewerGenerationPortsAreNumberedByFunction)
{
    struct {
        int function;
        const char *subsystem;
        uint8_t newer;
    } const cases[] = {{6, "0x0136", 3}, {7, "0x0136", 4}, {6, "0x0001", 1}, {7, "0x0001", 2}, {258, "0x0001", 1}};
    for (const auto &c : cases) {
        simulate(R"({"ports":[{"driver":"@","device_id":"0x7a24","vendor_id":"0x1e2b","port_num":9,
            "subvendor_id":"0x1e2b","subsystem_id":")" +
                 std::string(c.subsystem) + R"(","function_num":)" + std::to_string(c.function) + "}]}");
        uint32_t counter = 0;
        ASSERT_EQ(discover(counter), 0U);
        EXPECT_EQ(varnok_get_pdb_from_user_instance(0)->hw_info->phy_port_number, GetParam().newer ? c.newer : 9);
        forget_ports();
    }
}

TEST_P(DriverTest, ADriverThatCannotBeAsked)
{
    const std::string find = GetParam().name("find_all_instances");
    const std::string node = std::string("/dev/char/vmkdriver/") + GetParam().driver;
    struct {
        const char *scenario;
        std::string legacy;
        std::string native;
    } const cases[] = {
        {R"({"drivers":[]})", "varnok_charnode_exist: file open failed.\n" + find + ": not found: " + node + "\n",
         find + ": vmk init failed. rc="},
        {R"({"drivers":["@"],"faults":[{"driver":"@","request":"hba_cnt","status":4}]})",
         GetParam().name("get_hba_count") + ": Get HBA Count ioctl failed, ioctl_status=4\n" + find +
             ": hba count failed.\n",
         find + ": get hba count failed.\n"},
        {GetParam().native ? R"({"drivers":["@"],"faults":[{"driver":"@","request":"init","errno":"EIO"}]})"
                           : R"({"drivers":["@"],"faults":[{"driver":"@","request":"open","nth":2,"errno":"EACCES"}]})",
         find + ": char device open error.\n", find + ": vmk init failed. rc="},
    };
    for (const auto &c : cases) {
        simulate(c.scenario);
        uint32_t counter = 9;
        const std::string log = log_of(4, [&] { EXPECT_EQ(discover(counter), 1U); });
        if (GetParam().native)
            EXPECT_EQ(log.substr(0, c.native.size()), c.native);
        else
            EXPECT_EQ(log, c.legacy);
        EXPECT_EQ(counter, 9U);
        expect_nothing_held();
    }
    // A count whose call fails: no port for a native driver, a failure for a legacy one.
    simulate(R"({"ports":[{"driver":"@"}],"faults":[{"driver":"@","request":"hba_cnt","errno":"EIO"}]})");
    uint32_t counter = 9;
    EXPECT_EQ(discover(counter), GetParam().native ? 0U : 1U);
    EXPECT_EQ(counter, GetParam().native ? 0U : 9U);
}

TEST_P(DriverTest, CountsThatLie)
{
    struct {
        int32_t count;
        size_t kept;
        size_t legacy_asked;
    } const cases[] = {{-1, 0, 0}, {INT32_MIN, 0, 0}, {1, 1, 1}, {100, 2, 65536}};
    for (const auto &c : cases) {
        simulate(R"({"ports":[{"driver":"@","repeat":2}]})");
        size_t asked = 0;
        host->on_answer = [&](exchange &e) {
            if (e.what == request::hba_cnt)
                memcpy(e.record.data(), &c.count, sizeof c.count);
            asked += e.what == request::hostno;
        };
        uint32_t counter = 0;
        EXPECT_EQ(discover(counter), 0U);
        EXPECT_EQ(counter, c.kept);
        EXPECT_EQ(asked, GetParam().native ? static_cast<size_t>(std::max(c.count, 0)) : c.legacy_asked);
        forget_ports();
    }
}

// Two ports of one number: a native driver answers for the first of them, the library keeps both.
TEST_P(DriverTest, HostNumbersThatRepeat)
{
    simulate(R"({"ports":[{"driver":"@","host_no":7},{"driver":"@","host_no":8}]})");
    host->on_answer = [](exchange &e) {
        const uint32_t number = 7;
        if (e.what == request::hostno)
            memcpy(e.record.data() + (GetParam().native ? 8 : 0), &number, sizeof number);
    };
    EXPECT_EQ(load_and_open(1), 2U);
    EXPECT_EQ(load_and_open(0), 1U);
    EXPECT_EQ(hosts(), (std::vector<uint32_t>{7, 7}));
    EXPECT_EQ(varnok_get_pdb_from_user_handle(2), varnok_get_pdb_from_user_instance(1));
    VARNOK_PHY_PORT_INFO port = {};
    EXPECT_EQ(VARNOK_GetPhyPortInfo(2, &port), 0U);
}

TEST(Twins, NativeSignatures)
{
    const uint32_t sizes[] = {8, 16, 72, 776, 1032, 392, 262444};
    const std::pair<const vmk_MgmtApiSignature *, const char *> both[] = {{&pelt_sig, "pelt"},
                                                                          {&kx_iscsi_sig, "rovani"}};
    for (const auto &[signature, name] : both) {
        EXPECT_EQ(signature->version, 0x01000000U);
        EXPECT_STREQ(signature->name.string, name);
        EXPECT_STREQ(signature->vendor.string, "Molvar");
        ASSERT_EQ(signature->numCallbacks, 7U);
        for (uint32_t i = 0; i < 7; ++i) {
            vmk_MgmtCallbackInfo expected = {};
            expected.location = VMK_MGMT_CALLBACK_KERNEL;
            expected.synchronous = 1;
            expected.numParms = 1;
            expected.parmTypes[0] = VMK_MGMT_PARMTYPE_INOUT;
            expected.parmSizes[0] = sizes[i];
            expected.callbackId = 16 + i;
            EXPECT_EQ(bytes_of(signature->callbacks[i]), bytes_of(expected)) << i;
        }
    }
    EXPECT_EQ(pelt_sig.callbacks, pelt_callbacks);
    EXPECT_EQ(kx_iscsi_sig.callbacks, kx_iscsi_callbacks);
}

using CharnodeTest = HostTest;

TEST_F(CharnodeTest, OnlyACharacterDeviceWillDo)
{
    const std::pair<const char *, const char *> cases[] = {{nullptr, ": invalid char node file.\n"},
                                                           {"/", ": file not char node.\n"},
                                                           {"/etc/passwd", ": file not char node.\n"},
                                                           {"/nonexistent", ": file open failed.\n"}};
    for (const auto &c : cases)
        EXPECT_EQ(log_of(6, [&] { EXPECT_EQ(varnok_charnode_exist(c.first), 1); }),
                  std::string("varnok_charnode_exist") + c.second);
    EXPECT_EQ(log_of(6, [] { EXPECT_EQ(varnok_charnode_exist("/dev/null"), 0); }), "varnok_charnode_exist: exiting.\n");
    varnok_drv_ioctl header;
    EXPECT_EQ(varnok_setup_ioctl_struct(0, nullptr, nullptr, nullptr), 1U);
    EXPECT_EQ(varnok_setup_ioctl_struct_zt(0xABCD, &header, nullptr, &header), 0U);
    EXPECT_EQ(header.subcode, 0xABCD);
    EXPECT_EQ(header.ioctlstructaddr, reinterpret_cast<uintptr_t>(&header));
}

} // namespace
