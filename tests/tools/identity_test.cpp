// What a capture keeps of a LUN's identity and what a list shows, whatever the device tells.
#include "host_test.h"
#include "records/varnok_driver_records.h"
#include "varnokctl/capture.h"
#include "varnokctl/inventory.h"

#include <cstring>
#include <map>

namespace
{

using pages = std::map<uint8_t, std::string>;
using texts = std::vector<std::string>;

std::string page(uint8_t number, const std::string &body, size_t length = SIZE_MAX)
{
    if (length == SIZE_MAX)
        length = body.size();
    return std::string(1, '\0') + static_cast<char>(number) + static_cast<char>(length >> 8) +
           static_cast<char>(length & 0xFF) + body;
}

std::string designator(char second, const std::string &value, size_t length = SIZE_MAX)
{
    return std::string("\x01") + second + std::string(1, '\0') +
           static_cast<char>(length == SIZE_MAX ? value.size() : length) + value;
}

class Identity : public HostTest
{
  protected:
    // The one LUN's, when its device answers with these pages.
    ctl::lun_identity told(const pages &given)
    {
        simulate(R"({"ports": [{"driver": "dxo", "sessions": [{"luns": [{"provisioning": "full"}]}]}]})");
        host->on_answer = [&](const hostsim::exchange &e) {
            varnok_drv_scsi_cmd_ioctl command;
            if (e.what != hostsim::request::scsi_cmd)
                return;
            memcpy(&command, e.record.data(), sizeof command);
            const auto answer = given.find(command.cdb[2]);
            if (command.cdb[0] != 0x12 || command.cdb[1] != 1 || answer == given.end())
                return;
            const size_t room = size_t{command.cdb[3]} << 8 | command.cdb[4];
            auto *data = reinterpret_cast<char *>(static_cast<uintptr_t>(command.data_addr));
            memset(data, 0, room);
            memcpy(data, answer->second.data(), std::min(answer->second.size(), room));
        };
        ctl::inventory_request ask;
        ask.needs = ctl::need_all_designators;
        ctl::inventory seen = ctl::read_host(ask);
        EXPECT_TRUE(seen.failures.empty());
        EXPECT_NO_THROW(hostsim::host::from_text(ctl::capture_document(seen, false)));
        return seen.ports.at(0).targets.at(0).luns.at(0).identity.value();
    }
};

TEST_F(Identity, IsOnlyWhatTheRulesAllow)
{
    const std::string list = page(0, "\x80\x83\xB2"), eight(8, 'n'), nul(1, '\0');
    const std::string naa = designator(3, eight), naa_kept = "3" + eight;
    const std::pair<std::string, texts> cases[] = {
        {page(0x83, naa), {naa_kept}},
        {page(0x83, naa + naa.substr(0, 3)), {naa_kept}},
        {page(0x83, naa + designator(3, eight, 9)), {naa_kept}},
        {page(0x83, naa + naa, 12), {naa_kept}},
        {page(0x83, naa, 60000), {naa_kept}},
        {page(0x82, naa), {}},
        {page(0x83, ""), {}},
        {page(0x83, designator(0x13, eight) + designator(0x23, eight) + naa), {naa_kept}},
        {page(0x83, designator(0, eight) + designator(4, eight) + designator(3, "") + designator(3, eight + "x")), {}},
        {page(0x83, designator(1, "1234567") + designator(1, "12345678")), {"112345678"}},
        {page(0x83, designator(2, eight + "1234") + designator(2, eight + "12345")), {"2" + eight + "1234"}},
        {page(0x83, designator(8, nul) + designator(8, "a" + nul + "b") + designator(8, "ab" + nul + nul)), {"8ab"}},
        {page(0x83, designator(8, std::string(252, 'x')) + designator(8, std::string(251, 'x') + nul)),
         {"8" + std::string(251, 'x')}},
    };
    for (const auto &[page_83, expected] : cases) {
        const ctl::lun_identity identity = told({{0, list}, {0x83, page_83}});
        texts kept;
        for (const auto &[type, bytes] : identity.designators)
            kept.push_back(std::to_string(static_cast<int>(type)) + std::string(bytes.begin(), bytes.end()));
        EXPECT_EQ(kept, expected) << testing::PrintToString(page_83);
        EXPECT_EQ(identity.serial.size(), 16U);
    }
    // Many names without their NUL bytes: they would not all fit a page of names with them.
    std::string names;
    while (names.size() + 8 <= 65535)
        names += designator(8, "name");
    EXPECT_EQ(told({{0, list}, {0x83, page(0x83, names)}}).designators.size(), 65535U / 12);
    // Serial numbers as long as a page, and pages that are not what was asked for.
    EXPECT_EQ(told({{0, list}, {0x80, page(0x80, std::string(60000, 's'))}}).serial.size(), 60000U);
    EXPECT_EQ(told({{0, list}, {0x80, page(0x83, "s")}}).serial.size(), 0U);
    EXPECT_EQ(told({{0, page(0x12, "\x80")}}).serial.size(), 0U);
    EXPECT_EQ(told({{0, list}, {0xB2, page(0xB2, "\x01\x02")}}).provisioning, std::nullopt);
    EXPECT_EQ(told({{0, list}, {0xB2, page(0xB2, "\x01\x02\x07")}}).provisioning, 7);
}

ctl::lun_designator bytes_of(ctl::designator_type type, const std::string &bytes)
{
    return {type, {bytes.begin(), bytes.end()}};
}

TEST(Wwid, IsChosenAndWrittenAsMultipathToolsDo)
{
    using enum ctl::designator_type;
    const std::string nul(1, '\0');
    const auto rest = std::string(7, '\xAB');
    const std::string digits = "ababababababab";
    // Each is better than all before it.
    const std::pair<ctl::lun_designator, std::string> ranked[] = {
        {bytes_of(naa, "\x10" + rest), ""},
        {bytes_of(scsi_name, "other"), ""},
        {bytes_of(naa, "\x31" + rest), "331" + digits},
        {bytes_of(t10, "VENDOR    a  \x1B_ b\xE9\\" + nul + "z "), "1VENDOR_a_\\x1B__b\\xE9\\x5C\\x00z"},
        {bytes_of(scsi_name, "iqn.x: \x07"), "8iqn.x: \\x07"},
        {bytes_of(eui64, "\x60" + rest), "260" + digits},
        {bytes_of(naa, "\x2F" + rest), "32f" + digits},
        {bytes_of(naa, "\x51" + rest), "351" + digits},
        {bytes_of(naa, "\x60" + rest + rest + "\x01"), "360" + digits + digits + "01"},
    };
    ctl::lun_identity identity;
    for (const auto &[designator, expected] : ranked) {
        for (const size_t place : {size_t{0}, identity.designators.size()}) {
            ctl::lun_identity with = identity;
            with.designators.insert(with.designators.begin() + static_cast<ptrdiff_t>(place), designator);
            EXPECT_EQ(ctl::wwid(with), expected);
            ctl::keep_the_best(with);
            EXPECT_EQ(ctl::wwid(with), expected);
        }
        identity.designators.push_back(designator);
    }
    for (const auto &[name, expected] : {std::pair("naa.5AbC", "35abc"), {"eui.0F\x1B", "20f\\x1B"}})
        EXPECT_EQ(ctl::wwid({.designators = {bytes_of(scsi_name, name)}}), expected);
    identity.serial.resize(256);
    ctl::keep_the_best(identity);
    EXPECT_EQ(identity.designators.size(), 4U);
    EXPECT_TRUE(identity.serial.empty());
}

} // namespace
