// hostsim_test.cpp - the simulated host, met as the library meets it: by system and management
// calls.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/utsname.h>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "hostsim.h"
#include "kx_iscsi_vmkmgmt.h"
#include "pelt_vmkmgmt.h"
#include "varnok_ioctl.h"

namespace
{

using bytes = std::vector<uint8_t>;

using answer = std::tuple<int, int, uint32_t>; // result, errno, driver status
constexpr answer good = {0, 0, 0};

bytes from_hex(std::string_view text)
{
    bytes all;
    for (size_t i = 0; i + 1 < text.size(); i += text[i] == ' ' ? 1 : 2)
        if (text[i] != ' ')
            all.push_back(
                static_cast<uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    return all;
}

struct signature {
    std::array<vmk_MgmtCallbackInfo, 7> callbacks{};
    vmk_MgmtApiSignature all{0x01000000, {"rovani"}, {"Molvar"}, 7, callbacks.data()};
    signature()
    {
        constexpr uint32_t sizes[7] = {8, 16, 72, 776, 1032, 392, 262444};
        for (uint32_t i = 0; i < 7; i++)
            callbacks[i] = {VMK_MGMT_CALLBACK_KERNEL,  nullptr,    1,     1,
                            {VMK_MGMT_PARMTYPE_INOUT}, {sizes[i]}, 16 + i};
    }
    signature(const signature &) = delete;
};

// A host with ports of one older driver, native ("rovani") or legacy ("tepli"), in either
// transport.
class rig
{
  public:
    rig(bool is_native, std::string json, const std::string &base = ".") : native(is_native)
    {
        std::replace(json.begin(), json.end(), '\'', '"');
        for (size_t at; (at = json.find('@')) != std::string::npos;)
            json.replace(at, 1, native ? "\"driver\":\"rovani\"" : "\"driver\":\"tepli\"");
        model = hostsim::host::from_text(json, base);
        hostsim::install(model.get());
        if (native)
            vmk_MgmtUserInit(&sig.all, 701, &handle);
        else
            fd = open("/dev/char/vmkdriver/tepli", O_RDWR);
    }
    ~rig()
    {
        if (fd >= 0)
            close(fd);
        hostsim::install(nullptr);
    }
    rig(const rig &) = delete;

    // number: as in the ioctl request codes. The ports' host numbers must be 32 and on.
    answer ask(uint32_t number, uint32_t instance, void *record, size_t size)
    {
        const bool has_envelope = native && number > 2; // else the record is its own
        bytes envelope(8 + size);
        varnok_drv_ioctl header = {
            {'T', 'E', 'P', 'L', 'I'},           2, 1, 0, 0, static_cast<uint16_t>(instance),
            reinterpret_cast<uintptr_t>(record), {}};
        uint32_t status = 0;
        int result = 0;
        const uint32_t host_no = 32 + instance;
        std::memcpy(envelope.data(), &host_no, 4);
        std::memcpy(envelope.data() + 8, record, size);
        errno = 0;
        if (native) {
            result = vmk_MgmtUserCallbackInvokeInt(handle, 0, (number == 8 ? 14 : 15) + number, 1,
                                                   has_envelope ? envelope.data() : record);
            const void *at = static_cast<uint8_t *>(record) + size - 4;
            std::memcpy(&status, has_envelope ? envelope.data() + 4 : at, 4);
        } else {
            result = ioctl(fd, TEPLI_IOCTL_BASE + number, &header);
            status = header.status;
        }
        if (has_envelope)
            std::memcpy(record, envelope.data() + 8, size);
        return {result, errno, status};
    }
    template <typename R>
    answer ask(uint32_t number, uint32_t instance, R &record)
    {
        return ask(number, instance, &record, sizeof record);
    }

    // Data moves in or out of data; sense receives what came.
    answer scsi(uint32_t lun, const bytes &cdb, uint8_t direction, bytes &data, bytes &sense,
                uint32_t target = 0)
    {
        auto record = std::make_unique<varnok_drv_scsi_cmd_native>();
        record->tgt = target;
        record->lun = lun;
        record->direction = direction;
        record->cdb_len = static_cast<uint8_t>(cdb.size());
        std::copy(cdb.begin(), cdb.end(), record->cdb);
        record->sense_len = 252;
        record->data_len = static_cast<uint32_t>(data.size());
        const uint64_t address = reinterpret_cast<uintptr_t>(data.data());
        if (native)
            std::copy(data.begin(), data.end(), record->data_buffer);
        else
            std::memcpy(record->data_buffer, &address, sizeof address);
        answer a =
            ask(8, 0, record.get(), native ? sizeof *record : sizeof(varnok_drv_scsi_cmd_ioctl));
        if (native)
            std::copy_n(record->data_buffer, data.size(), data.begin());
        EXPECT_LE(record->data_len, data.size());
        data.resize(record->data_len);
        sense.assign(record->sense, record->sense + record->sense_len);
        return a;
    }

    const bool native;
    std::unique_ptr<hostsim::host> model;
    signature sig;
    vmk_MgmtUserHandle handle = 0;
    int fd = -1;
};

// What is wrong with a scenario; empty: nothing.
std::string error_of(std::string text)
{
    std::replace(text.begin(), text.end(), '\'', '"');
    try {
        hostsim::host::from_text(text);
    } catch (const hostsim::scenario_error &e) {
        return e.what();
    }
    return {};
}

class on_both : public testing::TestWithParam<bool>
{
};
INSTANTIATE_TEST_SUITE_P(transports, on_both, testing::Values(true, false), [](const auto &info) {
    return std::string(info.param ? "native" : "legacy");
});

TEST(scenario, errors_name_their_place)
{
    enum level { host, port, session, lun, fault };
    const struct {
        const char *before, *after, *place;
    } levels[] = {{"{", "}", ""},
                  {"{'ports':[{},{", "}]}", "ports[1]"},
                  {"{'ports':[{'sessions':[{", "}]}]}", "ports[0].sessions[0]"},
                  {"{'ports':[{'sessions':[{'luns':[{", "}]}]}]}", "ports[0].sessions[0].luns[0]"},
                  {"{'faults':[{'driver':'pelt',", "}]}", "faults[0]"}};
    const struct {
        level where;
        const char *text, *error;
    } cases[] = {
        {host, "'x':1", "x: unknown field"},
        {host, "'ports':{}", "ports: not an array"},
        {host, "'ports':[{'driver':'pelt','host_no':33},{'driver':'pelt'}]",
         "ports[1].host_no: host number 33 is another port's of the driver"},
        {port, "", ": driver is missing"},
        {port, "'driver':'foo'", ".driver: not one of rovani, tepli, pelt, dxo"},
        {port, "'modelname':'x'", ".modelname: unknown field"},
        {port, "'mac':'aa:bb:cc:dd:ee'", ".mac: not a MAC address"},
        {port, "'mtu':4294967296", ".mtu: not a number from 0 to 4294967295"},
        {port, "'vlan_priority':'0x100'", ".vlan_priority: not a number from 0 to 255"},
        {port, "'driver_name':'12345678901234567'", ".driver_name: longer than 16 bytes"},
        {port, "'ipv4addr':'1.2.3'", ".ipv4addr: not an IPv4 address"},
        {session, "'target':{'ip':1}", ".target.ip: unknown field"},
        {session, "'luns':[{},{'lun':0}]", ".luns: a LUN is there twice"},
        {lun, "'size':1000", ".size: not a multiple of the block size 512"},
        {lun, "'size':'16 EiB'", ".size: more bytes than 64 bits count"},
        {lun, "'file':'no/such/folder'", ".file: No such file or directory"},
        {fault, "'request':'open'", ".request: not made to this driver"},
        {fault, "'request':'hostno','errno':'EFOO'", ".errno: not an error such as \"EIO\""},
        {fault, "'request':'hostno'", ": nothing fails: status, errno or sense is missing"},
    };
    for (const auto &c : cases) {
        const auto &l = levels[c.where];
        std::string text = std::string(l.before) + c.text + l.after;
        if (c.where == port) // the first port is not the wrong one
            text.insert(text.find("{}") + 1, "'driver':'pelt'");
        EXPECT_EQ(error_of(text), std::string(l.place) + c.error) << text;
    }
    EXPECT_EQ(error_of("{\n 'ports': [}").substr(0, 33), "parse error at line 2, column 12:");
}

TEST_P(on_both, records_carry_given_and_derived_values)
{
    rig r(GetParam(), "{'ports':[{@,'repeat':2,'iqn':'iqn.x:a','mac':'00:11:22:33:44:ff',"
                      "'sessions':[{'repeat':300},"
                      "{'state':'0x1FF','target':{'ipv6addr':'fd00::7','iqn':'iqn.x:t'}}]}]}");
    varnok_drv_port_info port{}, other{};
    EXPECT_EQ(r.ask(4, 0, port), good);
    EXPECT_EQ(r.ask(4, 1, other), good);
    EXPECT_EQ(uint32_t{port.session_cnt}, 301u);
    EXPECT_EQ(bytes(port.mac, port.mac + 6), from_hex("00 11 22 33 44 ff"));
    EXPECT_EQ(bytes(port.ipv6_linklocal + 8, port.ipv6_linklocal + 16),
              from_hex("02 11 22 ff fe 33 44 ff"));
    EXPECT_NE(bytes(port.serial_num, port.serial_num + 32),
              bytes(other.serial_num, other.serial_num + 32));

    varnok_drv_session_info session{};
    session.sess_num = 299;
    EXPECT_EQ(r.ask(5, 1, session), good);
    EXPECT_STREQ(reinterpret_cast<char *>(session.tgt_iqn), "iqn.2004-01.com.example:storage.601");
    EXPECT_STREQ(reinterpret_cast<char *>(session.init_iqn), "iqn.x:a");
    EXPECT_EQ(std::memcmp(session.init_ipv4addr, other.ipv4addr, 4), 0);

    varnok_drv_tgt_info target{};
    session.sess_num = target.scsi_tgt_num = 300;
    EXPECT_EQ(r.ask(5, 0, session), good);
    EXPECT_EQ(r.ask(6, 0, target), good);
    EXPECT_EQ(uint32_t{session.state}, 0x1FFu);
    EXPECT_STREQ(reinterpret_cast<char *>(session.tgt_iqn), "iqn.x:t");
    EXPECT_EQ(bytes(session.init_ipv4addr, session.init_ipv4addr + 4), bytes(4));
    EXPECT_EQ(bytes(session.tgt_ipv4addr, session.tgt_ipv4addr + 4), bytes(4));
    EXPECT_EQ(target.ipv6addr[15], 7);
    EXPECT_STREQ(reinterpret_cast<char *>(target.isid), reinterpret_cast<char *>(session.isid));

    session.sess_num = target.scsi_tgt_num = 301;
    EXPECT_EQ(std::get<2>(r.ask(5, 0, session)), 7u);
    EXPECT_EQ(std::get<2>(r.ask(6, 0, target)), 7u);
    EXPECT_EQ(std::get<2>(r.ask(4, 2, port)), 7u);
}

TEST_P(on_both, an_absent_instance_has_no_host_number)
{
    rig r(GetParam(), "{'ports':[{@,'absent':true},{@}]}");
    std::array<uint32_t, 2> count{};
    EXPECT_EQ(r.ask(1, 0, count), good);
    EXPECT_EQ(count[0], r.native ? 2u : 1u);
    for (uint32_t instance : {0u, 1u}) {
        std::array<uint32_t, 4> host_no = {instance};
        EXPECT_EQ(r.ask(2, instance, host_no), (answer{0, 0, instance == 0 ? 7u : 0u}));
        EXPECT_EQ(host_no[r.native ? 2 : 0], instance == 0 ? 0u : 33u);
    }
}

TEST_P(on_both, scsi_commands_answer_data_or_sense)
{
    rig r(
        GetParam(),
        "{'host':{'check_condition_status':6},'ports':[{@,'sessions':[{'luns':["
        "{'lun':5,'size':'1 MiB'},{'lun':261,'device_type':1},{'lun':'0x0001000200030004'}]}]}]}");
    constexpr uint32_t disk = 5, tape = 0x4105, nested = 0x00020001, missing = 9;
    const struct {
        uint32_t lun;
        const char *cdb, *data; // the beginning of the data; empty: none moves
        size_t moved;
        const char *sense; // key, code, qualifier; empty: good
    } cases[] = {
        {disk, "00 00 00 00 00 00", "", 0, ""},
        {missing, "00 00 00 00 00 00", "", 0, "05 25 00"},
        {missing, "12 00 00 00 ff 00", "7f", 36, ""},
        {missing, "03 00 00 00 ff 00", "70 00 05 00 00 00 00 0a 00 00 00 00 25 00", 18, ""},
        {tape, "12 00 00 00 05 00", "01 00 06 12 1f", 5, ""},
        {disk, "12 01 00 00 ff 00", "00 00 00 03 00 80 83", 7, ""},
        {disk, "12 01 83 00 ff 00", "00 83 00 0c 01 03 00 08 30", 16, ""},
        {disk, "12 01 b0 00 ff 00", "", 0, "05 24 00"},
        {disk, "12 00 80 00 ff 00", "", 0, "05 24 00"},
        {missing, "a0 00 00 00 00 00 00 00 01 00 00 00",
         "00 00 00 18 00 00 00 00 00 01 00 02 00 03 00 04 00 05 00 00 00 00 00 00 41 05", 32, ""},
        {disk, "a0 00 00 00 00 00 00 00 00 08 00 00", "00 00 00 18 00 00 00 00", 8, ""},
        {disk, "a0 00 01 00 00 00 00 00 01 00 00 00", "00 00 00 00 00 00 00 00", 8, ""},
        {disk, "25 00 00 00 00 00 00 00 00 00", "00 00 07 ff 00 00 02 00", 8, ""},
        {disk, "9e 10 00 00 00 00 00 00 00 00 00 00 00 0c 00 00",
         "00 00 00 00 00 00 07 ff 00 00 02 00", 12, ""},
        {disk, "9e 11 00 00 00 00 00 00 00 00 00 00 00 20 00 00", "", 0, "05 24 00"},
        {tape, "25 00 00 00 00 00 00 00 00 00", "", 0, "05 20 00"},
        {disk, "28 00 00 00 07 ff 00 00 01 00", "00", 512, ""},
        {disk, "28 00 00 00 07 ff 00 00 02 00", "", 0, "05 21 00"},
        {disk, "88 00 ff ff ff ff ff ff ff ff 00 00 00 01 00 00", "", 0, "05 21 00"},
        {disk, "88 00 00 00 00", "", 0, "05 24 00"},
        {disk, "ff 00 00 00 00 00", "", 0, "05 20 00"},
        {disk, "", "", 0, "05 24 00"},
        {nested, "00 00 00 00 00 00", "", 0, "05 25 00"}, // its third and fourth level differ
    };
    for (const auto &c : cases) {
        bytes data(1024, 0xEE), sense;
        answer a = r.scsi(c.lun, from_hex(c.cdb), 1, data, sense);
        const bytes start = from_hex(c.data), code = from_hex(c.sense);
        EXPECT_EQ(a, (answer{0, 0, code.empty() ? 0u : 6u})) << c.cdb;
        EXPECT_EQ(data.size(), c.moved) << c.cdb;
        data.resize(start.size());
        EXPECT_EQ(data, start) << c.cdb;
        ASSERT_EQ(sense.size(), code.empty() ? 0u : 18u) << c.cdb;
        if (!code.empty()) {
            EXPECT_EQ((bytes{sense[2], sense[12], sense[13]}), code) << c.cdb;
        }
    }
    bytes none, sense;
    EXPECT_EQ(r.scsi(disk, from_hex("28 00 00 00 00 00 00 00 01 00"), 1, none, sense), good);
    EXPECT_EQ(r.scsi(disk, bytes(6), 0, none, sense, 1), (answer{0, 0, 7}));
}

TEST_P(on_both, large_disks_report_their_last_block)
{
    const struct {
        const char *size, *block_size, *capacity_10, *capacity_16;
    } cases[] = {
        {"'2 TiB'", "512", "ff ff ff ff 00 00 02 00", "00 00 00 00 ff ff ff ff 00 00 02 00"},
        {"2199023255040", "512", "ff ff ff fe 00 00 02 00", "00 00 00 00 ff ff ff fe 00 00 02 00"},
        {"'4 TiB'", "4096", "3f ff ff ff 00 00 10 00", "00 00 00 00 3f ff ff ff 00 00 10 00"},
        {"18446744073709551104", "512", "ff ff ff ff 00 00 02 00",
         "00 7f ff ff ff ff ff fe 00 00 02 00"},
    };
    for (const auto &c : cases) {
        rig r(GetParam(), std::string("{'ports':[{@,'sessions':[{'luns':[{'size':") + c.size +
                              ",'block_size':" + c.block_size + "}]}]}]}");
        bytes small(32), large(12), sense;
        r.scsi(0, from_hex("25 00 00 00 00 00 00 00 00 00"), 1, small, sense);
        r.scsi(0, from_hex("9e 10 00 00 00 00 00 00 00 00 00 00 00 20 00 00"), 1, large, sense);
        EXPECT_EQ(small, from_hex(c.capacity_10));
        EXPECT_EQ(large, from_hex(c.capacity_16));
    }
}

TEST_P(on_both, written_blocks_are_read_again)
{
    const std::string folder = testing::TempDir();
    std::remove((folder + "hostsim_disk.img").c_str());
    rig r(GetParam(),
          "{'ports':[{@,'sessions':[{'luns':[{'size':18446744073709551104},"
          "{'size':'1 TiB','file':'hostsim_disk.img'}]},{}]}]}",
          folder);
    for (uint32_t lun : {0u, 1u}) { // blocks 7 to 16 lie on both sides of a piece
        bytes sent(5120), sense;
        for (size_t i = 0; i < sent.size(); i++)
            sent[i] = static_cast<uint8_t>(i * 7 + i / 256);
        bytes data = sent;
        data.resize(5000); // less than the command says
        EXPECT_EQ(r.scsi(lun, from_hex("8a 00 00 00 00 00 00 00 00 07 00 00 00 0a 00 00"), 2, data,
                         sense),
                  good);
        EXPECT_EQ(data.size(), 5000u);
        bytes expected(6144);
        std::copy_n(sent.begin(), 5000, expected.begin() + 512);
        data.assign(6144, 0xEE);
        EXPECT_EQ(r.scsi(lun, from_hex("28 00 00 00 00 06 00 00 0c 00"), 1, data, sense), good);
        EXPECT_EQ(data, expected);
        data.assign(512, 0xEE); // the other target's disk is another
        r.scsi(lun, from_hex("28 00 00 00 00 07 00 00 01 00"), 1, data, sense, 1);
        EXPECT_EQ(data, lun == 0 ? bytes(512) : bytes());
    }
    std::ifstream file(folder + "hostsim_disk.img", std::ios::binary);
    file.seekg(8 * 512);
    EXPECT_EQ(file.get(), (512 * 7 + 2) & 0xFF);
}

TEST_P(on_both, faults_come_when_they_are_due)
{
    rig r(GetParam(), "{'ports':[{@,'repeat':2,'sessions':[{}]}],'faults':["
                      "{@,'request':'port_info','instance':1,'nth':2,'times':2,'status':6},"
                      "{@,'request':'pci_info','times':0,'errno':'EIO'},"
                      "{@,'request':'tgt_info','errno':'EACCES','status':3},"
                      "{@,'request':'scsi_cmd','sense':'06/29/00'}]}");
    varnok_drv_port_info port{};
    for (uint32_t status : {0u, 6u, 6u, 0u}) {
        EXPECT_EQ(std::get<2>(r.ask(4, 1, port)), status);
        EXPECT_EQ(r.ask(4, 0, port), good);
    }
    varnok_drv_pci_info pci{};
    EXPECT_EQ(r.ask(3, 0, pci), (answer{-1, EIO, 0}));
    EXPECT_EQ(r.ask(3, 1, pci), (answer{-1, EIO, 0}));
    EXPECT_EQ(uint16_t{pci.vendor_id}, 0);
    varnok_drv_tgt_info target{};
    EXPECT_EQ(r.ask(6, 0, target), (answer{-1, EACCES, 3}));
    bytes data(4), sense;
    EXPECT_EQ(r.scsi(0, bytes(6), 0, data, sense), good);
    ASSERT_EQ(sense.size(), 18u);
    EXPECT_EQ((bytes{sense[2], sense[12]}), (bytes{0x06, 0x29}));
    r.scsi(0, bytes(6), 0, data, sense);
    EXPECT_TRUE(sense.empty());
}

TEST_P(on_both, observers_see_and_change_an_exchange)
{
    rig r(GetParam(), "{'ports':[{@,'sessions':[{}]}]}");
    size_t header_size = 0, record_size = 0;
    r.model->on_request = [&](hostsim::exchange &e) {
        EXPECT_EQ(e.what, hostsim::request::sess_info);
        EXPECT_EQ(e.code, r.native ? 20u : 0xC0407405u);
        header_size = e.header.size();
        record_size = e.record.size();
        EXPECT_EQ(e.record[12], std::byte{0});
    };
    int error = 0;
    r.model->on_answer = [&](hostsim::exchange &e) {
        EXPECT_EQ(e.record[12], std::byte{'i'});
        e.record[597] = std::byte{9};
        e.transport_errno = error;
    };
    varnok_drv_session_info session{};
    EXPECT_EQ(r.ask(5, 0, session), good);
    EXPECT_EQ(uint32_t{session.state}, 9u);
    EXPECT_EQ(record_size, 1024u);
    EXPECT_EQ(header_size, r.native ? 1032u : 64u);

    error = ENODEV; // a call that fails leaves the record as it was sent
    session = {};
    EXPECT_EQ(r.ask(5, 0, session), (answer{-1, ENODEV, 0}));
    EXPECT_EQ(uint32_t{session.state}, 0u);
    EXPECT_EQ(session.init_iqn[0], 0);
}

TEST(drivers, only_known_callers_are_answered)
{
    signature s;
    vmk_MgmtUserHandle handle = 0;
    EXPECT_EQ(vmk_MgmtUserInit(&s.all, 701, &handle), -1);
    EXPECT_EQ(errno, ENOSYS);
    struct utsname name;
    ASSERT_EQ(uname(&name), 0);
    EXPECT_STREQ(name.sysname, "Linux");

    rig legacy(false, "{'host':{'euid':7},'drivers':['rovani'],'ports':[{@}],'faults':["
                      "{'driver':'tepli','request':'open','nth':2,'errno':'EBUSY'},"
                      "{'driver':'rovani','request':'init','nth':2,'status':5}]}");
    EXPECT_EQ(geteuid(), 7u);
    ASSERT_EQ(uname(&name), 0);
    EXPECT_STREQ(name.sysname, "VMkernel");
    EXPECT_EQ(hostsim::open_devices(), 1);
    EXPECT_EQ(open("/dev/char/vmkdriver/tepli", O_RDWR), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(open("/dev/char/vmkdriver/dxo", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    varnok_drv_ioctl header{};
    EXPECT_EQ(ioctl(legacy.fd, TEPLI_IOCTL_BASE + 4, &header), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ioctl(legacy.fd, 0xC0406404, &header), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(close(std::exchange(legacy.fd, -1)), 0);
    EXPECT_EQ(hostsim::open_devices(), 0);

    s.callbacks[6].parmSizes[0]--;
    EXPECT_NE(vmk_MgmtUserInit(&s.all, 701, &handle), 0);
    s.callbacks[6].parmSizes[0]++;
    EXPECT_EQ(vmk_MgmtUserInit(&s.all, 701, &handle), 0);
    EXPECT_EQ(vmk_MgmtUserInit(&s.all, 701, &handle), 5); // the fault
    std::array<int32_t, 2> count = {-1, -1};
    EXPECT_EQ(vmk_MgmtUserCallbackInvokeInt(handle, 0, 16, 1, count.data()), 0);
    EXPECT_EQ(count[0], 0);
    EXPECT_EQ(vmk_MgmtUserCallbackInvokeInt(handle + 99, 0, 16, 1, count.data()), -1);
}

} // namespace
