// The pass-through and LUN discovery: one suite over the four back-ends.
#include "host_test.h"

#include <cerrno>
#include <cstring>

namespace
{

using hostsim::exchange;
using hostsim::request;

constexpr size_t native_size = 262144;

struct ScsiTest : BackEndTest {
    uint32_t handle = 0;
    std::string last_sent; // the command record as the driver received it

    void one_lun(const char *size = "1 MiB")
    {
        simulate(R"({"ports":[{"driver":"@","sessions":[{"luns":[{"size":")" + std::string(size) + "\"}]}]}]}");
        handle = load_and_open();
        watch();
    }

    void watch()
    {
        host->on_request = [this](exchange &e) {
            if (e.what == request::scsi_cmd)
                last_sent.assign(reinterpret_cast<const char *>(e.record.data()), e.record.size());
        };
    }

    static VARNOK_SCSI_CMND command(uint8_t direction, std::initializer_list<uint8_t> cdb)
    {
        VARNOK_SCSI_CMND c = {};
        c.Direction = direction;
        c.CDBLength = static_cast<uint8_t>(cdb.size());
        memcpy(c.CDB, cdb.begin(), cdb.size());
        c.SenseLength = 96;
        return c;
    }
};
OVER_ALL_BACK_ENDS(ScsiTest);

TEST_P(ScsiTest, EveryFieldOfTheRecord)
{
    const bool native = GetParam().native;
    one_lun();
    uint8_t data[300];
    memset(data, 'd', sizeof data);
    struct {
        uint8_t direction;
        uint8_t sent;
        uint32_t length;
    } const cases[] = {{0, 0, 0}, {1, 1, 300}, {2, 2, 300}, {3, 0, 0}, {255, 0, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.direction));
        auto cmd = command(c.direction, {0, 1, 2, 3, 4, 5});
        memcpy(cmd.CDB, "\0\1\2\3\4\5\6\7\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f", 16);
        cmd.ScsiLunNumExt = 0x11223344;
        cmd.ScsiTgtNum = 0x55667788;
        cmd.ScsiLunNum = 0x99AABBCC;
        cmd.SenseLength = 0x1234;
        memset(cmd.Sense, 's', sizeof cmd.Sense);
        uint32_t length = sizeof data;
        VARNOK_SendScsiCommand(handle, &cmd, c.length == 0 ? nullptr : &length, c.length == 0 ? nullptr : data);
        std::string expected("\x44\x33\x22\x11\x88\x77\x66\x55\xCC\xBB\xAA\x99", 12);
        expected += static_cast<char>(c.sent);
        expected += '\6';
        expected += std::string("\0\1\2\3\4\5\6\7\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f", native ? 6 : 16);
        expected.resize(30, '\0'); // a native driver receives the valid bytes of the CDB
        expected += "\x34\x12";
        expected.resize(288, '\0');
        expected += std::string(reinterpret_cast<const char *>(&c.length), 4);
        EXPECT_EQ(last_sent.substr(0, 292), expected);
        if (native) {
            const std::string sent_data = c.sent == 2 ? std::string(300, 'd') : "";
            EXPECT_EQ(last_sent.substr(292), sent_data + std::string(native_size - sent_data.size(), '\0'));
        } else {
            const uint64_t address = c.length == 0 ? 0 : reinterpret_cast<uintptr_t>(data);
            EXPECT_EQ(last_sent.substr(292),
                      std::string(reinterpret_cast<const char *>(&address), 8) + std::string(20, '\0'));
        }
        EXPECT_EQ(length, sizeof data);
        EXPECT_EQ(cmd.SenseLength, 0x1234);
    }
}

TEST_P(ScsiTest, DataGoesBothWays)
{
    one_lun();
    std::vector<uint8_t> block(512, 'w');
    uint32_t length = 512;
    auto write = command(2, {0x2A, 0, 0, 0, 0, 5, 0, 0, 1, 0});
    EXPECT_EQ(VARNOK_SendScsiCommand(handle, &write, &length, block.data()), 0U);
    std::vector<uint8_t> back(1024, 'x');
    length = 1024;
    auto read = command(1, {0x28, 0, 0, 0, 0, 5, 0, 0, 1, 0});
    EXPECT_EQ(VARNOK_SendScsiCommand(handle, &read, &length, back.data()), 0U);
    EXPECT_TRUE(std::equal(block.begin(), block.end(), back.begin()));
    EXPECT_EQ(back[512], 'x') << "the device sent less than the buffer holds";
    EXPECT_EQ(length, 1024U);
}

// Lengths that the driver makes up never pass a buffer; the sanitizers watch.
TEST_P(ScsiTest, LengthsThatLie)
{
    const bool native = GetParam().native;
    one_lun();
    for (uint16_t sense_len : std::initializer_list<uint16_t>{0, 8, 18, 96, 256, 257, 65535}) {
        for (uint16_t accepted : std::initializer_list<uint16_t>{0, 8, 96, 300, 65535}) {
            host->on_answer = [&](exchange &e) {
                memset(e.record.data() + 32, 'S', 256);
                memcpy(e.record.data() + 30, &sense_len, 2);
                if (native)
                    memset(e.record.data() + 288, 0xFF, 4); // data_len
            };
            auto cmd = command(1, {0, 0, 0, 0, 0, 0});
            cmd.SenseLength = accepted;
            std::vector<uint8_t> data(100, 'x');
            uint32_t length = 100;
            EXPECT_EQ(VARNOK_SendScsiCommand(handle, &cmd, &length, data.data()), 0U);
            std::string expected(std::min<size_t>({sense_len, accepted, 256}), 'S');
            expected.resize(256, '\0');
            EXPECT_EQ(bytes_of(cmd.Sense), expected) << sense_len << " " << accepted;
            EXPECT_EQ(data[99], native ? 0 : 'x');
        }
    }
}

TEST_P(ScsiTest, AFailingCommand)
{
    const bool native = GetParam().native;
    one_lun();
    const char *const failed =
        GetParam().newer ? (native ? "): scsi cmd callback failed, stat=" : "): scsi cmd zt callback failed, stat=")
                         : (native ? "): scsi cmd ryx callback failed, stat=" : "): scsi cmd ioctl failed, stat=");
    struct {
        uint32_t status;
        int err;
        uint32_t result;
    } const cases[] = {{6, 0, 0x80000006}, {0, EIO, 0x8000000B}, {14, 0, 0x8000000B}};
    for (const auto &c : cases) {
        host->on_answer = [&](exchange &e) {
            memset(e.record.data() + 32, 'S', 18);
            e.record[30] = std::byte{18};
            e.record[31] = std::byte{0};
            if (native)
                memset(e.record.data() + 292, 'D', 512);
            e.status = c.status;
            e.transport_errno = c.err;
        };
        auto cmd = command(1, {0x28, 0, 0, 0, 0, 0, 0, 0, 1, 0});
        memset(cmd.Sense, 'x', sizeof cmd.Sense);
        std::vector<uint8_t> data(512, 'x');
        uint32_t length = 512;
        errno = 0;
        const std::string log =
            log_of(4, [&] { EXPECT_EQ(VARNOK_SendScsiCommand(handle, &cmd, &length, data.data()), c.result); });
        const std::string last = "VARNOK_SendScsiCommand(1" + std::string(failed) + std::to_string(c.status) +
                                 " errno=" + std::to_string(c.err) + "\n";
        EXPECT_TRUE(log.ends_with(last)) << log;
        // Nothing of a failing native command comes back.
        const bool came_back = !native && c.status != 0;
        const std::string sense = came_back ? std::string(18, 'S') : std::string(96, '\0');
        EXPECT_EQ(bytes_of(cmd.Sense), sense + std::string(256 - sense.size(), 'x'));
        if (native)
            EXPECT_EQ(data[0], 'x');
    }
}

TEST_P(ScsiTest, Arguments)
{
    one_lun("10 MiB");
    auto cmd = command(1, {0x28, 0, 0, 0, 0, 0, 0, 0x02, 0, 0});
    std::vector<uint8_t> data(native_size + 1);
    uint32_t length = native_size + 1;
    EXPECT_EQ(VARNOK_SendScsiCommand(0, nullptr, nullptr, nullptr), VARNOK_STATUS_FAILED);
    EXPECT_EQ(VARNOK_SendScsiCommand(handle, nullptr, nullptr, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    if (GetParam().native) {
        last_sent.clear();
        EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(VARNOK_SendScsiCommand(handle, &cmd, &length, data.data()), 0x80000004); }),
                  "VARNOK_SendScsiCommand(1): invalid parameter.\n");
        EXPECT_EQ(last_sent, "");
        length = native_size;
    }
    cmd.Direction = 2;
    cmd.CDB[0] = 0x2A;
    EXPECT_EQ(VARNOK_SendScsiCommand(handle, &cmd, &length, data.data()), 0U);
    // A CDB length that is no length.
    cmd.CDBLength = 255;
    length = 512;
    VARNOK_SendScsiCommand(handle, &cmd, &length, data.data());
    EXPECT_EQ(static_cast<uint8_t>(last_sent[13]), 255);
}

struct LunTest : ScsiTest {
    std::vector<std::string> cdbs;

    void luns(const std::string &text)
    {
        simulate(R"({"ports":[{"driver":"@","sessions":[{},{"luns":)" + text + "}]}]}");
        handle = load_and_open();
        host->on_request = [this](exchange &e) {
            if (e.what == request::scsi_cmd)
                cdbs.emplace_back(reinterpret_cast<const char *>(e.record.data()), 30);
        };
    }

    uint32_t list(uint32_t *count, VARNOK_LUN_INFO *records) { return VARNOK_GetLunInfo(handle, 1, count, &records); }
};
OVER_ALL_BACK_ENDS(LunTest);

TEST_P(LunTest, CapacitiesNumbersAndCommands)
{
    luns(
        R"([{"lun":5,"size":"2 GiB","vendor":"V","product":"P","revision":"1.0"},{"lun":9,"size":"2 TiB"},
             {"lun":10,"size":2199023255040},{"lun":"0x4005000600070008","size":"4 TiB"}])");
    VARNOK_LUN_INFO records[5];
    memset(static_cast<void *>(records), 0xEE, sizeof records);
    records[0].Version = 2;
    uint32_t count = 5;
    ASSERT_EQ(list(&count, records), 0U);
    EXPECT_EQ(count, 5U);
    VARNOK_LUN_INFO expected;
    memset(static_cast<void *>(&expected), 0xEE, sizeof expected);
    expected.Version = 2;
    expected.ScsiLunNum = 5;
    expected.DeviceType = 0;
    expected.Capacity = 1ULL << 31;
    memcpy(expected.VendorName, "V       ", 8);
    memcpy(expected.ProductName, "P               ", 16);
    memcpy(expected.ProductRevision, "1.0 ", 4);
    expected.ScsiLunNumExt = 0;
    EXPECT_EQ(bytes_of(records[0]), bytes_of(expected));
    EXPECT_EQ(records[1].Capacity, 1ULL << 41);
    EXPECT_EQ(records[2].Capacity, (1ULL << 41) - 512);
    EXPECT_EQ(records[3].ScsiLunNum, 0x00064005U);
    EXPECT_EQ(records[3].ScsiLunNumExt, 0x00080007U);
    EXPECT_EQ(records[3].Capacity, 1ULL << 42);
    EXPECT_EQ(records[4].DeviceType, 0xEE);
    // One READ CAPACITY(16) for each of the two LUNs whose 10-byte answer saturates.
    std::string operations;
    for (const std::string &c : cdbs) {
        EXPECT_EQ(c.substr(4, 4), std::string("\1\0\0\0", 4));
        operations += c[14];
    }
    EXPECT_EQ(operations, "\xA0"
                          "\x12\x25"
                          "\x12\x25\x9E"
                          "\x12\x25"
                          "\x12\x25\x9E");
    EXPECT_EQ(cdbs[10].substr(0, 14), std::string("\7\0\x08\0\1\0\0\0\5\x40\6\0\1\x10", 14));
    EXPECT_EQ(cdbs[10].substr(14), std::string("\x9E\x10\0\0\0\0\0\0\0\0\0\0\0\x20\0\0", 16));
    EXPECT_EQ(cdbs[1].substr(13, 7), std::string("\6\x12\0\0\0\xFF\0", 7));
    EXPECT_EQ(cdbs[2].substr(13, 11), std::string("\x0A\x25\0\0\0\0\0\0\0\0\0", 11));
}

TEST_P(LunTest, ShortEntriesLieCloser)
{
    luns(R"([{"lun":1,"repeat":3}])");
    std::vector<uint8_t> bytes(3 * 213, 0xEE);
    uint32_t version = 1;
    memcpy(bytes.data(), &version, 4);
    uint32_t count = 3;
    ASSERT_EQ(list(&count, reinterpret_cast<VARNOK_LUN_INFO *>(bytes.data())), 0U);
    for (uint32_t k = 0; k < 3; ++k) {
        EXPECT_EQ(bytes[213 * k + 4], k + 1);
        EXPECT_EQ(bytes[213 * k + 212], 0xEE);
    }
    EXPECT_EQ(bytes[213], 0xEE);
}

TEST_P(LunTest, Counts)
{
    luns(R"([{"repeat":3}])");
    VARNOK_LUN_INFO records[3] = {};
    uint32_t count = 0;
    EXPECT_EQ(list(&count, records), VARNOK_STATUS_INVALID_PARAMETER);
    count = 2;
    EXPECT_EQ(list(&count, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(cdbs.size(), 0U);
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(list(&count, records), VARNOK_STATUS_INSUFFICIENT_BUFFER); }),
              "VARNOK_GetLunInfo(1): invalid Lun Count value.\n");
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(cdbs.size(), 1U);
    VARNOK_LUN_INFO *array = records;
    const std::string log =
        log_of(4, [&] { EXPECT_EQ(VARNOK_GetLunInfo(9, 1, &count, &array), VARNOK_STATUS_FAILED); });
    EXPECT_TRUE(log.ends_with("VARNOK_GetLunInfo(9): send scsi report luns cmd failed, rval=80000001h\n")) << log;
}

// List lengths at the buffer's end and beyond it, and not a multiple of an entry.
TEST_P(LunTest, ListLengthsThatLie)
{
    luns(R"([{"repeat":2}])");
    struct {
        uint32_t length;
        uint32_t capacity;
        uint32_t result;
        uint32_t listed;
    } const cases[] = {
        {0, 1, 0, 0},
        {7, 1, 0, 0},
        {15, 1, 0, 1},
        {16376, 2047, 0, 2047},
        {16384, 2047, 0x80000009, 0},
        {16384, 2048, 0, 2047},
        {0xFFFFFFFF, 1, 0x80000009, 0},
        {0xFFFFFFFF, 0xFFFFFFFF, 0, 2047},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        host->on_answer = [&](exchange &e) {
            if (e.what != request::scsi_cmd || e.record[14] != std::byte{0xA0})
                return;
            uint8_t *list = reinterpret_cast<uint8_t *>(e.record.data() + 292);
            if (!GetParam().native)
                memcpy(&list, e.record.data() + 292, sizeof list);
            for (uint32_t i = 0; i < 4; ++i)
                list[i] = static_cast<uint8_t>(c.length >> (24 - 8 * i));
        };
        std::vector<VARNOK_LUN_INFO> records(2048);
        for (VARNOK_LUN_INFO &r : records)
            r.DeviceType = 0xEE;
        records[0].Version = 2;
        uint32_t count = c.capacity;
        EXPECT_EQ(list(&count, records.data()), c.result);
        EXPECT_EQ(count, c.result == 0 ? c.capacity : c.length / 8);
        uint32_t listed = 0;
        while (listed < 2048 && records[listed].DeviceType != 0xEE)
            ++listed;
        EXPECT_EQ(listed, c.listed);
    }
}

TEST_P(LunTest, AFailingLunEndsTheCall)
{
    luns(R"([{"lun":10,"size":"1 MiB"},{"lun":11,"size":"8 TiB"}])");
    struct {
        int operation;
        const char *text;
    } const cases[] = {
        {0x12, "VARNOK_GetLunInfo(1): send scsi inquiry cmd failed for lun=Bh, rval=80000002h\n"},
        {0x25, "VARNOK_GetLunInfo(1): scsi read capacity cmd failed for lun=Bh, rval=80000002h\n"},
        {0x9E, "VARNOK_GetLunInfo(1): scsi read capacity cmd failed for lun=Bh, rval=80000002h\n"},
    };
    for (const auto &c : cases) {
        host->on_answer = [&](exchange &e) {
            if (e.what == request::scsi_cmd && e.record[14] == std::byte(c.operation) && e.record[8] == std::byte{11})
                e.status = 2;
        };
        VARNOK_LUN_INFO records[2] = {};
        uint32_t count = 2;
        const std::string log = log_of(4, [&] { EXPECT_EQ(list(&count, records), VARNOK_STATUS_DRIVER_2); });
        EXPECT_TRUE(log.ends_with(c.text)) << log;
        EXPECT_EQ(log.find("): trying read capacity(16) cmd for lun=Bh\n") != std::string::npos, c.operation == 0x9E);
        EXPECT_EQ(records[0].Capacity, 1U << 20);
        EXPECT_EQ(records[1].Capacity, 0U);
    }
}

} // namespace
