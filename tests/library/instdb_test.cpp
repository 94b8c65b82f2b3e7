// The instance database, the device rules and the byte utilities.
#include "backend/peltl_core.h"
#include "backend/varnok_core_ioctl.h"
#include "core/varnok_device_rules.h"
#include "host_test.h"
#include "support/varnok_bytes.h"

#include <cstring>
#include <tuple>

namespace
{

struct InstdbTest : HostTest {
    // A port with its physical function, known by the number.
    static varnok_priv_db *add(uint32_t number)
    {
        varnok_priv_db *pdb = nullptr;
        varnok_hw_info *hw = nullptr;
        EXPECT_EQ(varnok_alloc_pdb_mem(&pdb), 0U);
        EXPECT_EQ(varnok_alloc_hw_info_mem(&hw), 0U);
        pdb->host_no = number;
        pdb->hw_info = hw;
        hw->apihandle = number;
        hw->pci_bus = static_cast<uint16_t>(number);
        return pdb;
    }
};

TEST_F(InstdbTest, NothingIsFoundWithoutADatabase)
{
    varnok_priv_db record = {};
    varnok_drv_pci_info pci = {};
    uint32_t instance = 77;
    const auto look = [&] {
        EXPECT_EQ(varnok_get_pdb_from_user_instance(0), nullptr);
        EXPECT_EQ(varnok_get_pdb_from_user_handle(0), nullptr);
        EXPECT_EQ(varnok_get_vn_pdb_from_user_handle(1, 0), nullptr);
        EXPECT_EQ(varnok_get_instance_from_pdb(&record, &instance), 1U);
        EXPECT_EQ(varnok_get_parent_port(&pci), nullptr);
        EXPECT_EQ(varnok_get_hw_info_inst_zt(&pci), nullptr);
        varnok_free_pdb_element(&record);
        varnok_free_all_hw_info_mem();
    };
    in_silence_and_aloud(look);
    const std::string log = log_of(4, look);
    EXPECT_EQ(instance, 77U);
    std::string expected;
    for (const char *name : {"pdb_from_user_instance", "pdb_from_user_handle", "vn_pdb_from_user_handle",
                             "instance_from_pdb", "parent_port"})
        expected += std::string("varnok_get_") + name + ": no memory allocated for api_priv_data\n";
    EXPECT_EQ(log, expected + "varnok_get_hw_info_inst_zt: api_phy_info is NOT initialized. Exiting.\n"
                              "varnok_free_pdb_element: no memory allocated for api_priv_data.\n"
                              "varnok_free_all_hw_info_mem: no memory allocated for api_phy_info.\n");
}

TEST_F(InstdbTest, LookupsFindTheFirstMatchAndMoveTheCursor)
{
    varnok_priv_db *const ports[] = {add(5), add(6), add(7)};
    uint32_t instance = 0;
    EXPECT_EQ(varnok_get_pdb_from_user_instance(2), ports[2]);
    EXPECT_EQ(varnok_get_pdb_from_user_instance(3), nullptr);
    EXPECT_EQ(varnok_priv_database->marker, varnok_priv_database->head);
    EXPECT_EQ(varnok_get_pdb_from_user_instance(UINT32_MAX), nullptr);
    EXPECT_EQ(varnok_get_instance_from_pdb(ports[1], &instance), 0U);
    EXPECT_EQ(instance, 1U);
    EXPECT_EQ(varnok_priv_database->marker->data, ports[1]);
    varnok_priv_db stranger = {};
    EXPECT_EQ(varnok_get_instance_from_pdb(&stranger, &instance), 0U);
    EXPECT_EQ(instance, 3U);
    EXPECT_EQ(varnok_get_instance_from_pdb(nullptr, &instance), 0U);
    ports[0]->hw_info->apihandle = 0;
    ports[1]->hw_info->apihandle = 7;
    ports[1]->npiv_index = 9;
    EXPECT_EQ(varnok_get_pdb_from_user_handle(0), nullptr);
    EXPECT_EQ(varnok_get_pdb_from_user_handle(7), ports[1]);
    EXPECT_EQ(varnok_get_vn_pdb_from_user_handle(7, 0), ports[2]);
    EXPECT_EQ(varnok_get_vn_pdb_from_user_handle(7, 1), nullptr);
    varnok_drv_pci_info pci = {};
    pci.bus_num = 6;
    EXPECT_EQ(varnok_get_hw_info_inst(&pci), ports[1]->hw_info);
    EXPECT_EQ(varnok_get_parent_port_zt(&pci), ports[1]);
    for (uint16_t tepli_pci_info::*number :
         {&tepli_pci_info::function_num, &tepli_pci_info::device_num, &tepli_pci_info::domain_num}) {
        pci.*number = 1;
        EXPECT_EQ(varnok_get_parent_port(&pci), nullptr);
        pci.*number = 0;
    }
    const std::string name = "varnok_get_pdb_from_user_handle(9): ";
    EXPECT_EQ(log_of(2, [] { varnok_get_pdb_from_user_handle(9); }), name + "entered.\n" + name + "exiting.\n");
}

TEST_F(InstdbTest, ADroppedLastPortSendsTheNextToTheFront)
{
    add(1);
    add(2);
    varnok_priv_db *const dropped = add(3);
    varnok_free_hw_info_element(dropped->hw_info);
    varnok_free_pdb_element(dropped);
    EXPECT_EQ(varnok_priv_database->marker, varnok_priv_database->head);
    add(4);
    add(5);
    varnok_free_pdb_element(dropped); // a record that is not there removes nothing
    std::vector<uint32_t> order;
    while (const varnok_priv_db *pdb = varnok_get_pdb_from_user_instance(static_cast<uint32_t>(order.size())))
        order.push_back(pdb->host_no);
    EXPECT_EQ(order, (std::vector<uint32_t>{4, 5, 1, 2}));
    varnok_free_pdb_element(varnok_get_pdb_from_user_instance(1));
    EXPECT_EQ(static_cast<varnok_priv_db *>(varnok_dlist_mark(varnok_priv_database))->host_no, 1U);
}

TEST_F(InstdbTest, AFailedAllocationDiscardsTheList)
{
    const std::tuple<long, bool, std::string> cases[] = {
        {1, false, ": not enough memory for api_priv_data.\n"},
        {1, true, ": not enough memory for api_priv_data instance.\nvarnok_alloc_pdb_mem: failed.\n"},
        {2, true, ": varnok_dlist_insert failed.\nvarnok_alloc_pdb_mem: failed.\n"},
    };
    // A log line allocates too: the failing run and the line are measured apart.
    for (const auto &[nth, existing, text] : cases) {
        if (existing)
            add(1);
        varnok_priv_db *pdb = nullptr;
        platform::fail_allocation(nth);
        EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(varnok_alloc_pdb_mem(&pdb), 1U); }), "varnok_alloc_pdb_mem" + text);
        EXPECT_EQ(pdb, nullptr);
        EXPECT_EQ(varnok_priv_database, nullptr);
    }
    // A driver that claims ports without end does not get all memory.
    varnok_free_all_hw_info_mem();
    varnok_hw_info *hw = nullptr;
    for (int i = 0; i < 65536; ++i)
        ASSERT_EQ(varnok_alloc_hw_info_mem(&hw), 0U);
    EXPECT_EQ(log_of(4, [&] { EXPECT_EQ(varnok_alloc_hw_info_mem(&hw), 1U); }),
              "varnok_alloc_hw_info_mem: not enough memory for api_phy_info instance.\n"
              "varnok_alloc_hw_info_mem: failed.\n");
    EXPECT_EQ(varnok_phy_info, nullptr);
}

TEST_F(InstdbTest, QuadPortAdapters)
{
    const std::tuple<uint16_t, uint16_t, uint16_t, uint16_t, uint32_t> cases[] = {
        {0x1E2B, 0x7A24, 0x1E2B, 0x0136, 0}, {0x1E2B, 0x7A2C, 0x1D05, 0x6181, 0}, {0x1E2B, 0x7A24, 0x1E2B, 1, 1},
        {0x1E2B, 0x7A24, 0x1D05, 0x6181, 1}, {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 1}, {0x1E2C, 0x7A24, 0x1E2B, 0x0136, 1},
    };
    varnok_hw_info hw = {};
    for (const auto &[vendor, device, ssvendor, ssdevice, result] : cases) {
        hw.vendor_id = vendor;
        hw.device_id = device;
        hw.ssvendor_id = ssvendor;
        hw.ssdevice_id = ssdevice;
        EXPECT_EQ(varnok_is_quad_port_zt(&hw), result) << ssdevice;
    }
}

TEST_F(InstdbTest, ByteUtilities)
{
    // The bytes are those of a destination of five 0xEE.
    const std::tuple<const char *, uint32_t, const char *> cases[] = {
        {"0x0A1b", 4, "\x0A\x1B\x00\x00\xEE"}, {"abc", 4, "\xAB\x00\x00\x00\xEE"},
        {"A1B2C3", 2, "\xA1\xB2\xEE\xEE\xEE"}, {"1gg1FF", 3, "\x01\x00\xFF\xEE\xEE"},
        {"0X", 2, "\x00\x00\xEE\xEE\xEE"},     {nullptr, 3, "\x00\x00\x00\xEE\xEE"},
        {"0", 1, "\x00\xEE\xEE\xEE\xEE"},      {"FF", 0, "\xEE\xEE\xEE\xEE\xEE"},
    };
    for (const auto &[text, size, expected] : cases) {
        std::string bytes(5, '\xEE');
        varnok_to_array_hex(reinterpret_cast<uint8_t *>(bytes.data()), text, size);
        EXPECT_EQ(bytes, std::string(expected, 5));
    }
    uint8_t reversed[3] = {};
    varnok_revcpy(reversed, reinterpret_cast<const uint8_t *>("\1\2\3"), 3);
    EXPECT_EQ(memcmp(reversed, "\3\2\1", 3), 0);
    EXPECT_EQ(varnok_is_non_zero(reinterpret_cast<const uint8_t *>("\0\0\1\0"), 4), 1U);
    EXPECT_EQ(varnok_is_non_zero(reinterpret_cast<const uint8_t *>("\0\0\1\0"), 2), 0U);
    EXPECT_EQ(varnok_64bit_to_ptr(varnok_ptr_to_64bit(reversed)), reversed);
}

} // namespace
