// The simulated host: what its drivers answer to the library, and to callers that are not the library.
#include "calls.h"
#include "host_test.h"
#include "records/kx_iscsi_vmkmgmt.h"
#include "records/varnok_ioctl.h"
#include "support/varnok_bytes.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

using hostsim::exchange;
using hostsim::request;

std::string from_hex(const char *digits)
{
    std::string bytes(strlen(digits) / 2, '\0');
    varnok_to_array_hex(reinterpret_cast<uint8_t *>(bytes.data()), digits, static_cast<uint32_t>(bytes.size()));
    return bytes;
}

struct place {
    uint32_t target, lun;
};

struct HostsimTest : BackEndTest {
    uint32_t handle = 0;
    uint32_t moved = 0; // by the last SCSI command, as its driver says
    std::string sense;

    void start(const std::string &scenario)
    {
        simulate(scenario);
        handle = load_and_open();
        host->on_answer = [this](exchange &e) {
            const auto *record = reinterpret_cast<const char *>(e.record.data());
            if (e.what != request::scsi_cmd)
                return;
            sense.assign(record + 32, static_cast<uint8_t>(record[30]));
            memcpy(&moved, record + 288, sizeof moved);
        };
    }

    // The CDB has zeros behind its digits.
    uint32_t scsi(place at, uint8_t cdb_length, const char *cdb, std::string &data, uint8_t direction = 1)
    {
        VARNOK_SCSI_CMND c = {0, 0, at.target, at.lun, direction, cdb_length, {}, 252, {}};
        varnok_to_array_hex(c.CDB, cdb, sizeof c.CDB);
        auto length = static_cast<uint32_t>(data.size());
        return VARNOK_SendScsiCommand(handle, &c, &length, reinterpret_cast<uint8_t *>(data.data()));
    }

    template <class Record>
    static uint32_t list(uint32_t (*query)(uint32_t, uint32_t *, Record **), uint32_t port, std::vector<Record> &into)
    {
        auto count = static_cast<uint32_t>(into.size());
        Record *records = into.data();
        return query(port, &count, &records);
    }
};
OVER_ALL_BACK_ENDS(HostsimTest);

TEST_P(HostsimTest, RecordsCarryGivenAndDerivedValues)
{
    start(R"({"ports":[{"driver":"@","repeat":2,"iqn":"iqn.x:a","mac":"00:11:22:33:44:ff","sessions":[{"repeat":300},
        {"state":"0x1FE","cid":"0xFEDCBA98","isid":"00023d0a0b0c","target":{"ipv6addr":"fd00::7","iqn":"iqn.x:t"}}]},
        {"driver":"@","session_cnt":1}]})");
    VARNOK_PHY_PORT_INFO ports[2] = {};
    std::vector<VARNOK_SESS_INFO> listed[2];
    for (uint32_t i = 0; i < 3; ++i)
        EXPECT_EQ(VARNOK_OpenAdapter(i, &handle), 0U);
    for (uint32_t i = 0; i < 2; ++i) {
        EXPECT_EQ(VARNOK_GetPhyPortInfo(i + 1, &ports[i]), 0U);
        EXPECT_EQ(ports[i].SessCount, 301U);
        listed[i].resize(301);
        EXPECT_EQ(list(VARNOK_GetSessionInfo, i + 1, listed[i]), 0U);
    }
    const varnok_priv_db *const port = varnok_get_pdb_from_user_handle(2);
    EXPECT_EQ(bytes_of(ports[0].MAC), from_hex("0011223344ff"));
    EXPECT_EQ(bytes_of(port->ipv6_linklocal), from_hex("fe80000000000000021122fffe3344ff"));
    EXPECT_NE(text_of(ports[0].SerialNum), text_of(ports[1].SerialNum));

    const VARNOK_SESS_INFO &derived = listed[1][299], &given = listed[0][300];
    EXPECT_EQ(text_of(derived.TargetName), "iqn.2004-01.com.example:storage.601");
    EXPECT_EQ(text_of(derived.InitiatorName), "iqn.x:a");
    EXPECT_EQ(bytes_of(derived.InitIPv4Addr), bytes_of(port->ipv4addr));
    EXPECT_EQ(given.SessionState, 0xFE);
    EXPECT_EQ(uint64_t{given.ConnID}, 0xFEDCBA98U);
    EXPECT_EQ(text_of(given.TargetName), "iqn.x:t");
    EXPECT_EQ(given.InitIsIPv4 + given.TgtIsIPv4, 0);

    std::vector<VARNOK_TGT_INFO> seen(301);
    EXPECT_EQ(list(VARNOK_GetTgtInfo, 1, seen), 0U);
    EXPECT_EQ(seen[300].IPv6Addr[15], 7);
    EXPECT_EQ(bytes_of(seen[300].Isid), from_hex("00023d0a0b0c"));
    EXPECT_EQ(list(VARNOK_GetSessionInfo, 3, listed[0]), VARNOK_STATUS_NOT_FOUND);
    EXPECT_EQ(list(VARNOK_GetTgtInfo, 3, seen), VARNOK_STATUS_NOT_FOUND);
}

TEST_P(HostsimTest, ScsiCommandsAnswerDataOrSense)
{
    start(R"({"host":{"check_condition_status":6},"devices":{"tape":{"device_type":1,"serial":"T","designators":[
        {"t10":[77,79,76,86,65,82,32,32,1]}]}},"ports":[{"driver":"@","sessions":[
        {"luns":[{"lun":5,"size":"1 MiB"},{"lun":261,"device_type":1},{"lun":"0x0001000200030004"},
                 {"lun":1,"size":0},{"device_type":161,"size":"1 KiB"}]},
        {"luns":[{"size":"2 TiB"},{"size":2199023255040},{"size":"4 TiB","block_size":4096},
                 {"size":18446744073709551104}]},
        {"luns":[{"size":"1 MiB","physical_block_size":4096,"provisioning":"thin","serial":" S1","designators":[
                     {"naa":"0x60000000000000010000000000000002"},{"eui64":"0x0123456789abCDEF01234567"},
                     {"t10":"MOLVAR  X"},{"scsi_name":"iqn.a:b"}]},
                 {"device":"tape"},{"size":"1 MiB","provisioning":"full","serial":"","designators":[]},
                 {"size":"1 MiB","provisioning":"resource"},{"lun":9,"device":"tape"}]}]}]})");
    constexpr place disk = {0, 5}, tape = {0, 0x4105}, missing = {0, 9};
    constexpr place nested = {0, 0x00020001}; // its third and fourth level differ
    constexpr char cap16[] = "9e1000000000000000000000000c", cap32[] = "9e10000000000000000000000020";
    // What was moved, and its beginning; or sense key, code and qualifier.
    const std::tuple<place, uint8_t, const char *, uint32_t, const char *> cases[] = {
        {disk, 6, "12010000ff", 8, "00000004008083b0"},
        {disk, 6, "00", 0, ""},
        {disk, 6, "12018300ff", 16, "0083000c0103000830"},
        {missing, 6, "00", 0, "052500"},
        {disk, 12, "a0000000000000000008", 8, "00000028"},
        {nested, 6, "00", 0, "052500"},
        {disk, 12, "a00001000000000001", 8, "00000000"},
        {missing, 6, "12000000ff", 36, "7f"},
        {disk, 16, cap16, 12, "00000000000007ff00000200"},
        {tape, 6, "1200000005", 5, "010006121f"},
        {{1, 0}, 16, cap16, 12, "00000000ffffffff00000200"},
        {disk, 10, "25", 8, "000007ff00000200"},
        {{1, 1}, 16, cap16, 12, "00000000fffffffe00000200"},
        {disk, 6, "1201b1", 0, "052400"},
        {{1, 2}, 16, cap16, 12, "000000003fffffff00001000"},
        {disk, 6, "120080", 0, "052400"},
        {{1, 3}, 16, cap16, 12, "007ffffffffffffe00000200"},
        {disk, 16, "9e11", 0, "052400"},
        {{1, 0}, 10, "25", 8, "ffffffff00000200"},
        {tape, 10, "25", 0, "052000"},
        {{1, 1}, 10, "25", 8, "fffffffe00000200"},
        {disk, 5, "88", 0, "052400"},
        {{1, 2}, 10, "25", 8, "3fffffff00001000"},
        {disk, 0, "", 0, "052400"},
        {{1, 3}, 10, "25", 8, "ffffffff00000200"},
        {disk, 6, "ff", 0, "052000"},
        {disk, 10, "2800000007ff000001", 512, "00"},
        {disk, 16, "8800ffffffffffffffff00000001", 0, "052100"},
        {disk, 10, "2800000007ff000002", 0, "052100"},
        {{0, 1}, 10, "25", 0, "023a00"},
        {{0, 1}, 6, "00", 0, "023a00"},
        {{0, 2}, 10, "25", 8, "0000000100000200"},
        {{0, 2}, 6, "1200000001", 1, "a1"},
        {{0, 1}, 6, "1200000001", 1, "00"},
        {{0, 1}, 6, "12010000ff", 7, "00000003008083"},
        {{0, 1}, 6, "1201b000ff", 0, "052400"},
        {disk, 6, "12018000ff", 20, "0080001030303030303030303030303130303030"},
        {disk, 6, "1201b000ff", 64, "00b0003c00000001000000"},
        {disk, 6, "1201b200ff", 0, "052400"},
        {{2, 0}, 6, "12010000ff", 9, "00000005008083b0b2"},
        {{2, 0}, 6, "1201800006", 6, "008000032053"},
        {{2, 0},
         6,
         "12018300ff",
         65,
         "0083003d01030010600000000000000100000000000000020102000c0123456789abcdef012345"
         "67020100094d4f4c5641522020580308000869716e2e613a6200"},
        {{2, 0}, 6, "1201b000ff", 64, "00b0003c00000008000000"},
        {{2, 0}, 6, "1201b200ff", 8, "00b2000400040200"},
        {{2, 0}, 16, cap32, 32, "00000000000007ff000002000003c000"},
        {{2, 1}, 6, "12010000ff", 7, "01000003008083"},
        {{2, 1}, 6, "12018300ff", 17, "0183000d010100094d4f4c564152202001"},
        {{2, 9}, 6, "12018000ff", 5, "0180000154"},
        {{2, 2}, 6, "12010000ff", 7, "0000000300b0b2"},
        {{2, 2}, 6, "12018000ff", 0, "052400"},
        {{2, 2}, 6, "12018300ff", 0, "052400"},
        {{2, 2}, 6, "1201b200ff", 8, "00b2000400000000"},
        {{2, 2}, 16, cap32, 32, "00000000000007ff00000200000000"},
        {{2, 3}, 6, "1201b200ff", 8, "00b2000400000100"},
        {{2, 3}, 16, cap32, 32, "00000000000007ff00000200000080"},
    };
    std::string data;
    for (const auto &[at, cdb_length, cdb, size, digits] : cases) {
        SCOPED_TRACE(cdb);
        data.assign(1024, 'x');
        const std::string answer = from_hex(digits);
        const bool good = size != 0 || answer.empty();
        EXPECT_EQ(scsi(at, cdb_length, cdb, data), good ? 0U : 0x80000006U);
        EXPECT_EQ(moved, size);
        EXPECT_EQ(sense.size(), good ? 0U : 18U);
        EXPECT_EQ(good ? data.substr(0, answer.size()) : sense.substr(2, 1) + sense.substr(12, 2), answer);
    }
    EXPECT_EQ(scsi(missing, 12, "a00000000000000001", data), 0U);
    EXPECT_EQ(data.substr(0, moved),
              from_hex("00000028000000000005000000000000410500000000000000010002000300040001000000000000"
                       "0002000000000000"));
    EXPECT_EQ(scsi(missing, 6, "03000000ff", data), 0U);
    EXPECT_EQ(data.substr(0, moved), from_hex("700005000000000a00000000250000000000"));
    EXPECT_EQ(scsi({3, 0}, 6, "00", data), VARNOK_STATUS_NOT_FOUND);
    data.clear(); // no room for the block
    EXPECT_EQ(scsi(disk, 10, "280000000000000001", data), 0U);
}

TEST_P(HostsimTest, WrittenBlocksAreReadAgain)
{
    const std::string path = testing::TempDir() + "hostsim_" + GetParam().driver + ".img";
    remove(path.c_str());
    start(R"({"ports":[{"driver":"@","sessions":[{"luns":[{"size":18446744073709551104},{"size":"1 TiB","file":")" +
          path + R"("},{"device":"both"}]},{"luns":[{},{"lun":2,"device":"both"}]}]}],"devices":{"both":{}}})");
    // Blocks 7 to 16 lie on both sides of a piece; what is sent is less than the command says.
    for (uint32_t lun : {0U, 1U, 2U}) {
        std::string sent(5000, '\0');
        for (size_t i = 0; i < sent.size(); ++i)
            sent[i] = static_cast<char>(i * 7 + i / 256);
        EXPECT_EQ(scsi({0, lun}, 16, "8a0000000000000000070000000a", sent, 2), 0U);
        EXPECT_EQ(moved, 5000U);
        std::string data(6144, 'x');
        EXPECT_EQ(scsi({0, lun}, 10, "28000000000600000c", data), 0U);
        EXPECT_EQ(data, std::string(512, '\0') + sent + std::string(632, '\0'));
        data.assign(512, 'x'); // the other target has a disk of its own, no disk and the same disk
        scsi({1, lun}, 10, "280000000007000001", data);
        EXPECT_EQ(data, lun == 2 ? sent.substr(0, 512) : std::string(512, lun == 0 ? '\0' : 'x'));
    }
    std::ifstream file(path, std::ios::binary);
    file.seekg(8 * 512);
    EXPECT_EQ(file.get(), (512 * 7 + 2) & 0xFF);
    remove(path.c_str());
}

TEST_P(HostsimTest, FaultsComeWhenTheyAreDue)
{
    start(R"({"ports":[{"driver":"@","repeat":2,"sessions":[{}]}],"faults":[
        {"driver":"@","request":"port_info","instance":1,"nth":3,"times":2,"status":6},
        {"driver":"@","request":"sess_info","times":0,"errno":"EIO"},
        {"driver":"@","request":"tgt_info","errno":"EACCES","status":3},
        {"driver":"@","request":"scsi_cmd","sense":"06/29/00"}]})");
    uint32_t second = 0;
    EXPECT_EQ(VARNOK_OpenAdapter(1, &second), 0U);
    std::vector<VARNOK_SESS_INFO> session(1);
    for (uint32_t result : {0U, 0x80000006U, 0x80000006U, 0U}) { // the load asked first
        VARNOK_PHY_PORT_INFO port = {};
        EXPECT_EQ(VARNOK_GetPhyPortInfo(second, &port), result);
        EXPECT_EQ(VARNOK_GetPhyPortInfo(handle, &port), 0U);
        errno = 0;
        EXPECT_EQ(list(VARNOK_GetSessionInfo, handle, session), VARNOK_STATUS_DRIVER_FAILED);
        EXPECT_EQ(errno, EIO);
    }
    std::vector<VARNOK_TGT_INFO> target(1);
    EXPECT_EQ(list(VARNOK_GetTgtInfo, handle, target), VARNOK_STATUS_DRIVER_3);
    EXPECT_EQ(errno, EACCES);
    std::string none;
    EXPECT_EQ(scsi({0, 0}, 6, "00", none), 0U);
    EXPECT_EQ(sense, from_hex("700006000000000a00000000290000000000"));
    EXPECT_EQ(scsi({0, 0}, 6, "00", none), 0U);
    EXPECT_EQ(sense, "");
}

using CallerTest = HostTest;

TEST_F(CallerTest, OnlyKnownOnesAreAnswered)
{
    vmk_MgmtUserHandle handle = 0;
    const auto error = [](int result) { return result == -1 ? errno : 0; };
    EXPECT_EQ(error(vmk_MgmtUserInit(&kx_iscsi_sig, 701, &handle)), ENOSYS);
    simulate(R"({"drivers":["rovani","tepli"],"faults":[
        {"driver":"tepli","request":"open","nth":2,"errno":"EBUSY"},
        {"driver":"rovani","request":"init","nth":2,"status":5}]})");
    namespace calls = hostsim::calls;
    const int fd = open("/dev/char/vmkdriver/tepli", O_RDWR);
    EXPECT_EQ(hostsim::open_devices(), 1);
    EXPECT_EQ(error(open("/dev/char/vmkdriver/tepli", O_RDWR)), EBUSY);
    EXPECT_EQ(error(open("/dev/char/vmkdriver/dxo", O_RDWR)), ENOENT);
    std::pair<int32_t, int32_t> count = {-1, -1};
    varnok_drv_ioctl header = {{'T', 'E', 'P', 'L', 'I'}, 2, 2, 0, 0, 0, reinterpret_cast<uintptr_t>(&count), {}};
    EXPECT_EQ(error(ioctl(fd, TEPLI_IOCTL_BASE + 1, &header)), EINVAL);
    header.version = 1;
    EXPECT_EQ(error(ioctl(fd, 0xC0406401, &header)), ENOTTY);
    // A call that fails leaves everything as it was sent.
    host->on_answer = [](exchange &e) { e.transport_errno = ENODEV; };
    EXPECT_EQ(error(ioctl(fd, TEPLI_IOCTL_BASE + 1, &header)), ENODEV);
    EXPECT_EQ(count, std::make_pair(-1, -1));
    // A duplicate reaches the device without the first one, until it is closed or becomes another file's.
    const int copies[] = {fcntl(fd, F_DUPFD, 100), fcntl(fd, F_DUPFD_CLOEXEC, 100), calls::dup(fd),
                          calls::dup2(fd, 110), calls::dup3(fd, 111, O_CLOEXEC)};
    EXPECT_EQ(calls::dup2(fd, fd), fd);
    EXPECT_EQ(error(calls::dup2(112, 112)), EBADF);
    EXPECT_EQ(close(fd), 0);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(hostsim::open_devices(), 5 - i);
        EXPECT_EQ(error(ioctl(copies[i], TEPLI_IOCTL_BASE + 1, &header)), ENODEV);
        EXPECT_EQ(i == 0 ? calls::dup2(STDERR_FILENO, copies[i]) : close(copies[i]), i == 0 ? copies[i] : 0);
    }
    EXPECT_EQ(close(copies[0]), 0);
    EXPECT_EQ(hostsim::open_devices(), 0);

    vmk_uint32 &size = kx_iscsi_sig.callbacks[6].parmSizes[0];
    --size;
    EXPECT_EQ(vmk_MgmtUserInit(&kx_iscsi_sig, 701, &handle), -1);
    ++size;
    EXPECT_EQ(vmk_MgmtUserInit(&kx_iscsi_sig, 701, &handle), 0);
    EXPECT_EQ(vmk_MgmtUserInit(&kx_iscsi_sig, 701, &handle), 5) << "the fault";
    EXPECT_EQ(vmk_MgmtUserCallbackInvokeInt(handle + 99, 0, 16, 1, &count), -1);
    EXPECT_EQ(error(vmk_MgmtUserCallbackInvokeInt(handle, 0, 16, 1, &count)), ENODEV);
    EXPECT_EQ(count, std::make_pair(-1, -1));
    host->on_answer = nullptr;
    EXPECT_EQ(vmk_MgmtUserCallbackInvokeInt(handle, 0, 16, 1, &count), 0);
    EXPECT_EQ(count, std::make_pair(0, 0));
}

} // namespace
