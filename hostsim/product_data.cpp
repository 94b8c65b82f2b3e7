#include "product_data.h"

#include "big_endian.h"

#include <cstdio>
#include <string>

namespace hostsim
{
namespace
{

using page_bytes = std::vector<uint8_t>;

void append(page_bytes &to, const std::string &bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// By default the identity is the serial number, and a locally assigned NAA identifier.
void put_serial(const lun_description &lun, uint64_t identity, page_bytes &page)
{
    char serial[17];
    snprintf(serial, sizeof serial, "%016llx", static_cast<unsigned long long>(identity));
    append(page, lun.serial.value_or(serial));
}

void put_designators(const lun_description &lun, uint64_t identity, page_bytes &page)
{
    constexpr uint64_t naa_locally_assigned = 3ULL << 60;
    if (!lun.designators) {
        page.insert(page.end(), {0x01, naa_designator, 0, 8});
        page.resize(page.size() + 8);
        put_number(&page[page.size() - 8], naa_locally_assigned | identity);
        return;
    }
    for (const designator &d : *lun.designators) {
        page.insert(page.end(), {d.code_set, d.type, 0, static_cast<uint8_t>(d.bytes.size())});
        append(page, d.bytes);
    }
}

void put_block_limits(const lun_description &lun, uint64_t, page_bytes &page)
{
    page.resize(64);
    put_number(&page[6], static_cast<uint16_t>(1U << physical_block_exponent(lun)));
}

void put_provisioning(const lun_description &lun, uint64_t, page_bytes &page)
{
    constexpr uint8_t reads_zeros = 0x04;
    page.insert(page.end(),
                {0, lun.provisioning == provisioning_type::thin ? reads_zeros : uint8_t{0},
                 static_cast<uint8_t>(*lun.provisioning), 0});
}

struct page_row {
    uint8_t number;
    bool (*has)(const lun_description &);
    void (*put)(const lun_description &, uint64_t identity, page_bytes &page);
};

void put_page_list(const lun_description &lun, uint64_t, page_bytes &page);

constexpr page_row pages[] = {
    {0x00, [](const lun_description &) { return true; }, put_page_list},
    {0x80, [](const lun_description &lun) { return !lun.serial || !lun.serial->empty(); },
     put_serial},
    {0x83, [](const lun_description &lun) { return !lun.designators || !lun.designators->empty(); },
     put_designators},
    {0xB0, is_disk_with_medium, put_block_limits},
    {0xB2, [](const lun_description &lun) { return lun.provisioning.has_value(); },
     put_provisioning},
};

void put_page_list(const lun_description &lun, uint64_t, page_bytes &page)
{
    for (const page_row &row : pages)
        if (row.has(lun))
            page.push_back(row.number);
}

} // namespace

std::vector<uint8_t> product_data(const lun_description &lun, uint64_t identity, uint8_t page)
{
    for (const page_row &row : pages) {
        if (row.number != page || !row.has(lun))
            continue;
        page_bytes data = {lun.device_type, page, 0, 0};
        row.put(lun, identity, data);
        put_number(&data[2], static_cast<uint16_t>(data.size() - 4));
        return data;
    }
    return {};
}

} // namespace hostsim
