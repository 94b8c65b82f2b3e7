// The pass-through and LUN discovery: one suite over the four back-ends.
#include "backend/varnok_ntapi.h"
#include "backend/varnok_ryx_ntapi.h"
#include "host_test.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <endian.h>
#include <gmock/gmock.h>
#include <tuple>

namespace
{

using hostsim::exchange;
using hostsim::request;
using testing::EndsWith;
using namespace std::string_literals;

constexpr size_t native_size = 262144;

VARNOK_LUN_INFO untouched_lun()
{
    VARNOK_LUN_INFO lun;
    memset(static_cast<void *>(&lun), 0xEE, sizeof lun);
    return lun;
}

struct ScsiTest : BackEndTest {
    const bool native = GetParam().native;
    uint32_t handle = 0;
    std::vector<std::string> sent; // the command records as the driver received them

    // The second session's target has the LUNs.
    void luns(const std::string &text, size_t keep = 30)
    {
        simulate(R"({"ports":[{"driver":"@","sessions":[{},{"luns":)" + text + "}]}]}");
        handle = load_and_open();
        host->on_request = [=, this](exchange &e) {
            if (e.what == request::scsi_cmd)
                sent.emplace_back(reinterpret_cast<const char *>(e.record.data()), std::min(keep, e.record.size()));
        };
    }

    static VARNOK_SCSI_CMND command(uint8_t direction, std::initializer_list<uint8_t> cdb)
    {
        VARNOK_SCSI_CMND c = {};
        c.ScsiTgtNum = 1;
        c.Direction = direction;
        c.CDBLength = static_cast<uint8_t>(cdb.size());
        memcpy(c.CDB, cdb.begin(), cdb.size());
        c.SenseLength = 96;
        return c;
    }

    uint32_t send(VARNOK_SCSI_CMND &cmd, std::vector<uint8_t> &data) const
    {
        auto length = static_cast<uint32_t>(data.size());
        const uint32_t result = VARNOK_SendScsiCommand(handle, &cmd, &length, data.data());
        EXPECT_EQ(length, data.size());
        return result;
    }

    uint32_t list(uint32_t *count, VARNOK_LUN_INFO *records) { return VARNOK_GetLunInfo(handle, 1, count, &records); }
};
OVER_ALL_BACK_ENDS(ScsiTest);

TEST_P(ScsiTest, EveryFieldOfTheRecord)
{
    luns(R"([{"size":"1 MiB"}])", native_size + 292);
    const std::tuple<uint8_t, char, uint32_t> cases[] = {{0, 0, 0}, {1, 1, 300}, {2, 2, 300},
                                                         {2, 2, 0}, {3, 0, 0},   {255, 0, 0}};
    for (const auto &[direction, direction_sent, length] : cases) {
        std::vector<uint8_t> data(length, 'd');
        SCOPED_TRACE(static_cast<int>(direction));
        auto cmd = command(direction, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
        cmd.CDBLength = 6;
        cmd.ScsiLunNumExt = 0x11223344;
        cmd.ScsiTgtNum = 0x55667788;
        cmd.ScsiLunNum = 0x99AABBCC;
        cmd.SenseLength = 0x1234;
        memset(cmd.Sense, 's', sizeof cmd.Sense);
        direction_sent == 0 ? VARNOK_SendScsiCommand(handle, &cmd, nullptr, nullptr) : send(cmd, data);
        std::string expected = "\x44\x33\x22\x11\x88\x77\x66\x55\xCC\xBB\xAA\x99"s + direction_sent + "\6";
        expected += "\0\1\2\3\4\5\6\7\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f"s.substr(0, native ? 6 : 16);
        expected.resize(30, '\0'); // a native driver receives the valid bytes of the CDB
        expected += "\x34\x12";
        expected.resize(288, '\0');
        expected += bytes_of(length);
        if (native)
            expected += std::string(direction_sent == 2 ? length : 0, 'd');
        else
            expected += bytes_of(length == 0 ? 0 : reinterpret_cast<uintptr_t>(data.data()));
        expected.resize(292 + (native ? native_size : 28), '\0');
        EXPECT_EQ(sent.back(), expected);
        EXPECT_EQ(cmd.SenseLength, 0x1234);
    }
}

TEST_P(ScsiTest, DataGoesBothWays)
{
    luns(R"([{"size":"1 MiB"}])");
    std::vector<uint8_t> block(512, 'w'), back(1024, 'x');
    auto write = command(2, {0x2A, 0, 0, 0, 0, 5, 0, 0, 1, 0});
    EXPECT_EQ(send(write, block), 0U);
    auto read = command(1, {0x28, 0, 0, 0, 0, 5, 0, 0, 1, 0});
    EXPECT_EQ(send(read, back), 0U);
    EXPECT_TRUE(std::equal(block.begin(), block.end(), back.begin()));
    EXPECT_EQ(back[512], 'x') << "the device sent less than the buffer holds";
}

// Lengths that the driver makes up never pass a buffer; the sanitizers watch.
TEST_P(ScsiTest, LengthsThatLie)
{
    luns(R"([{"size":"1 MiB"}])");
    for (size_t sense_len : {0U, 8U, 18U, 96U, 256U, 257U, 65535U})
        for (size_t accepted : {0U, 8U, 96U, 300U, 65535U}) {
            host->on_answer = [&](exchange &e) {
                memset(e.record.data() + 32, 'S', 256);
                memcpy(e.record.data() + 30, &sense_len, 2);
                if (native)
                    memset(e.record.data() + 288, 0xFF, 4); // data_len
            };
            auto cmd = command(1, {0, 0, 0, 0, 0, 0});
            cmd.SenseLength = static_cast<uint16_t>(accepted);
            std::vector<uint8_t> data(100, 'x');
            EXPECT_EQ(send(cmd, data), 0U);
            std::string expected(std::min<size_t>({sense_len, accepted, 256}), 'S');
            expected.resize(256, '\0');
            EXPECT_EQ(bytes_of(cmd.Sense), expected) << sense_len << " " << accepted;
            EXPECT_EQ(data[99], native ? 0 : 'x');
        }
}

// The pass-through takes the data that it asked for; the back-end's own call brings everything back.
TEST_P(ScsiTest, TheWholeRecordComesBack)
{
    if (!native)
        return;
    luns("[]");
    host->on_answer = [](exchange &e) { memset(e.record.data(), 'R', e.record.size()); };
    std::string record(native_size + 292, '\0');
    uint32_t status = 1;
    auto *const pdb = varnok_get_pdb_from_user_handle(handle);
    auto *const command = reinterpret_cast<varnok_drv_scsi_cmd_native *>(record.data());
    EXPECT_EQ(GetParam().send_scsi_cmd(pdb, command, &status), 0U);
    EXPECT_EQ(status, 0U);
    EXPECT_TRUE(record == std::string(record.size(), 'R'));
}

TEST_P(ScsiTest, AFailingCommand)
{
    luns(R"([{"size":"1 MiB"}])");
    const std::string what = GetParam().scsi_failed;
    const std::tuple<uint32_t, int, uint32_t> cases[] = {{6, 0, 0x80000006}, {0, EIO, 0x8000000B}, {14, 0, 0x8000000B}};
    for (const auto &[status, err, result] : cases) {
        host->on_answer = [&, status = status, err = err](exchange &e) {
            memset(e.record.data() + 32, 'S', 18);
            memcpy(e.record.data() + 30, "\x12", 2);
            if (native)
                memset(e.record.data() + 292, 'D', 512);
            e.status = status;
            e.transport_errno = err;
        };
        auto cmd = command(1, {0x28, 0, 0, 0, 0, 0, 0, 0, 1, 0});
        memset(cmd.Sense, 'x', sizeof cmd.Sense);
        std::vector<uint8_t> data(512, 'x');
        errno = 0;
        EXPECT_THAT(log_of(4, [&, result = result] { EXPECT_EQ(send(cmd, data), result); }),
                    EndsWith("VARNOK_SendScsiCommand(1): scsi " + what + " failed, stat=" + std::to_string(status) +
                             " errno=" + std::to_string(err) + "\n"));
        // Nothing of a failing native command comes back.
        const std::string sense = !native && status != 0 ? std::string(18, 'S') : std::string(96, '\0');
        EXPECT_EQ(bytes_of(cmd.Sense), sense + std::string(256 - sense.size(), 'x'));
        if (native)
            EXPECT_EQ(data[0], 'x');
    }
}

TEST_P(ScsiTest, Arguments)
{
    luns(R"([{"size":"10 MiB"}])");
    auto cmd = command(2, {0x2A, 0, 0, 0, 0, 0, 0, 0x02, 0, 0});
    std::vector<uint8_t> data(native_size + 1);
    EXPECT_EQ(VARNOK_SendScsiCommand(0, nullptr, nullptr, nullptr), VARNOK_STATUS_FAILED);
    EXPECT_EQ(VARNOK_SendScsiCommand(handle, nullptr, nullptr, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    if (native) {
        EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(send(cmd, data), VARNOK_STATUS_INVALID_PARAMETER); }),
                  "VARNOK_SendScsiCommand(1): invalid parameter.\n");
        EXPECT_EQ(sent.size(), 0U);
        data.pop_back();
    }
    EXPECT_EQ(send(cmd, data), 0U);
    cmd.CDBLength = 255; // which is no length
    data.resize(512);
    send(cmd, data);
    EXPECT_EQ(sent.back()[13], '\xFF');
}

TEST_P(ScsiTest, CapacitiesNumbersAndCommands)
{
    luns(
        R"([{"lun":5,"size":"2 GiB","vendor":"V","product":"P","revision":"1.0"},{"lun":9,"size":"2 TiB"},
             {"lun":10,"size":2199023255040},{"lun":"0x4005000600070008","size":"4 TiB"}])");
    std::vector<VARNOK_LUN_INFO> records(5, untouched_lun());
    records[0].Version = 2;
    uint32_t count = 5;
    ASSERT_EQ(list(&count, records.data()), 0U);
    EXPECT_EQ(count, 5U);
    std::string expected(213, '\xEE');
    expected.replace(0, 25, "\2\0\0\0\5\0\0\0\0\0\0\0\x80\0\0\0\0V       "s);
    expected.replace(33, 16, "P               ").replace(65, 4, "1.0 ");
    EXPECT_EQ(bytes_of(records[0]), expected + "\0\0\0\0"s);
    EXPECT_EQ(records[1].Capacity, 1ULL << 41);
    EXPECT_EQ(records[2].Capacity, (1ULL << 41) - 512);
    EXPECT_EQ(records[3].ScsiLunNum, 0x00064005U);
    EXPECT_EQ(records[3].ScsiLunNumExt, 0x00080007U);
    EXPECT_EQ(records[3].Capacity, 1ULL << 42);
    EXPECT_EQ(records[4].DeviceType, 0xEE);
    // One READ CAPACITY(16) for each of the two LUNs whose 10-byte answer saturates.
    std::string operations;
    for (const std::string &c : sent) {
        EXPECT_EQ(c.substr(4, 4), "\1\0\0\0"s);
        operations += c[14];
    }
    EXPECT_EQ(operations, "\xA0\x12\x25\x12\x25\x9E\x12\x25\x12\x25\x9E");
    EXPECT_EQ(sent[10], "\7\0\x08\0\1\0\0\0\5\x40\6\0\1\x10\x9E\x10\0\0\0\0\0\0\0\0\0\0\0\x20\0\0"s);
    EXPECT_EQ(sent[1].substr(13, 7), "\6\x12\0\0\0\xFF\0"s);
    EXPECT_EQ(sent[2].substr(13, 11), "\x0A\x25\0\0\0\0\0\0\0\0\0"s);
}

TEST_P(ScsiTest, ShortEntriesLieCloser)
{
    luns(R"([{"lun":1,"repeat":3}])");
    std::vector<uint8_t> bytes(3 * 213, 0xEE);
    memcpy(bytes.data(), "\1\0\0", 4);
    uint32_t count = 3;
    ASSERT_EQ(list(&count, reinterpret_cast<VARNOK_LUN_INFO *>(bytes.data())), 0U);
    for (uint32_t k = 0; k < 3; ++k) {
        EXPECT_EQ(bytes[213 * k + 4], k + 1);
        EXPECT_EQ(bytes[213 * k + 212], 0xEE);
    }
    EXPECT_EQ(bytes[213], 0xEE);
}

TEST_P(ScsiTest, LunCounts)
{
    luns(R"([{"repeat":3}])");
    VARNOK_LUN_INFO records[3] = {}, *array = records;
    uint32_t count = 0;
    EXPECT_EQ(list(&count, records), VARNOK_STATUS_INVALID_PARAMETER);
    count = 2;
    EXPECT_EQ(list(&count, nullptr), VARNOK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(list(&count, records), VARNOK_STATUS_INSUFFICIENT_BUFFER); }),
              "VARNOK_GetLunInfo(1): invalid Lun Count value.\n");
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(sent.size(), 1U);
    EXPECT_THAT(log_of(4, [&] { EXPECT_EQ(VARNOK_GetLunInfo(9, 1, &count, &array), VARNOK_STATUS_FAILED); }),
                EndsWith("VARNOK_GetLunInfo(9): send scsi report luns cmd failed, rval=80000001h\n"));
}

// List lengths at the buffer's end and beyond it, and not a multiple of an entry: length, capacity, result, listed.
TEST_P(ScsiTest, LunListLengthsThatLie)
{
    luns(R"([{"repeat":2}])");
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t> cases[] = {
        {0, 1, 0, 0},
        {7, 1, 0, 0},
        {15, 1, 0, 1},
        {16376, 2047, 0, 2047},
        {16384, 2047, 0x80000009, 0},
        {16384, 2048, 0, 2047},
        {0xFFFFFFFF, 1, 0x80000009, 0},
        {0xFFFFFFFF, 0xFFFFFFFF, 0, 2047},
    };
    for (const auto &[length, capacity, result, listed] : cases) {
        SCOPED_TRACE(length);
        host->on_answer = [&, length = length](exchange &e) {
            std::byte *data = e.record.data() + 292;
            if (!native)
                memcpy(&data, e.record.data() + 292, sizeof data);
            const uint32_t big_endian = htobe32(length);
            if (e.record[14] == std::byte{0xA0})
                memcpy(data, &big_endian, 4);
        };
        std::vector<VARNOK_LUN_INFO> records(2048, untouched_lun());
        records[0].Version = 2;
        uint32_t count = capacity;
        EXPECT_EQ(list(&count, records.data()), result);
        EXPECT_EQ(count, result == 0 ? capacity : length / 8);
        const auto untouched = [](const VARNOK_LUN_INFO &r) { return r.DeviceType == 0xEE; };
        EXPECT_EQ(std::find_if(records.begin(), records.end(), untouched) - records.begin(), listed);
    }
}

TEST_P(ScsiTest, AFailingLunEndsTheCall)
{
    luns(R"([{"lun":10,"size":"1 MiB"},{"lun":11,"size":"8 TiB"}])");
    for (const int operation : {0x12, 0x25, 0x9E}) {
        host->on_answer = [&](exchange &e) {
            if (e.what == request::scsi_cmd && e.record[14] == std::byte(operation) && e.record[8] == std::byte{11})
                e.status = 2;
        };
        VARNOK_LUN_INFO records[2] = {};
        uint32_t count = 2;
        const std::string log = log_of(4, [&] { EXPECT_EQ(list(&count, records), VARNOK_STATUS_DRIVER_2); });
        EXPECT_THAT(log, EndsWith("VARNOK_GetLunInfo(1): "s +
                                  (operation == 0x12 ? "send scsi inquiry" : "scsi read capacity") +
                                  " cmd failed for lun=Bh, rval=80000002h\n"));
        EXPECT_EQ(log.find("): trying read capacity(16) cmd for lun=Bh\n") != std::string::npos, operation == 0x9E);
        EXPECT_EQ(records[0].Capacity, 1U << 20);
        EXPECT_EQ(records[1].Capacity, 0U);
    }
}

} // namespace
