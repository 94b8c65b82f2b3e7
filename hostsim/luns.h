// luns.h - the LUNs of a target. Copies of a LUN share one description, and targets may share a
// list.
#pragma once

#include "members.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hostsim
{

struct lun_description {
    uint32_t copies = 1;
    lun_number first; // its first copy's
    std::optional<uint64_t> given_size;
    uint64_t size = 0; // 0: no medium
    uint32_t block_size = 512;
    uint8_t device_type = 0;
    std::string vendor = "MOLVAR";
    std::string product = "HALCYON LUN";
    std::string revision = "1.00";
    std::optional<std::string> file; // none: the contents are in memory
};

inline constexpr member<lun_description> lun_members[] = {
    {"repeat", number<&lun_description::copies, 1, lun_number_max + 1>},
    {"lun", made_by<&lun_description::first, to_lun>},
    {"size", made_by<&lun_description::given_size, to_byte_count>},
    {"block_size", number<&lun_description::block_size, 1>},
    {"device_type", number<&lun_description::device_type>},
    {"vendor", text<&lun_description::vendor, 8>},
    {"product", text<&lun_description::product, 16>},
    {"revision", text<&lun_description::revision, 4>},
    {"file", made_by<&lun_description::file, to_path>},
};

inline bool is_disk(const lun_description &lun) { return lun.device_type == 0; }

struct lun_entry {
    uint64_t wire; // as in lun_number
    const lun_description *what;
};

struct lun_list {
    std::vector<lun_entry> entries;  // in the scenario's order
    std::vector<uint32_t> by_wire{}; // indexes into entries, by ascending wire
};

std::shared_ptr<const lun_list> no_luns();
std::shared_ptr<const lun_list> default_luns(); // one disk with every default

} // namespace hostsim
