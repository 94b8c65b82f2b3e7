// luns.h - the LUNs of a target. Copies of a LUN share one description, and targets may share a
// list.
#pragma once

#include "members.h"

#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hostsim
{

// What identifies a LUN in page 83h: type, code set and the bytes themselves.
struct designator {
    uint8_t type = 0;
    uint8_t code_set = 0;
    std::string bytes{};
};
inline constexpr uint8_t naa_designator = 3;

enum class provisioning_type : uint8_t { full, resource, thin }; // the numbers of page B2h

struct lun_description {
    std::optional<uint64_t> given_size;
    uint64_t size = 0; // 0: no medium
    uint32_t block_size = 512;
    std::optional<uint64_t> physical_block_size; // none: block_size
    uint8_t device_type = 0;
    std::string vendor = "MOLVAR";
    std::string product = "HALCYON LUN";
    std::string revision = "1.00";
    std::optional<std::string> file;                    // none: the contents are in memory
    std::optional<std::string> serial;                  // none: made from the identity
    std::optional<std::vector<designator>> designators; // none: one, made from the identity
    std::optional<provisioning_type> provisioning;
    uint64_t identity = 0; // of a device that LUNs refer to; 0: each LUN has its own
};

inline constexpr uint64_t default_disk_size = 100ULL << 30;

provisioning_type to_provisioning(const value &v, const place &at);

inline constexpr size_t longest_serial = 255;

inline constexpr member<lun_description> unit_members[] = {
    {"size", made_by<&lun_description::given_size, to_byte_count>},
    {"block_size", number<&lun_description::block_size, 1>},
    {"physical_block_size", number<&lun_description::physical_block_size, 1>},
    {"device_type", number<&lun_description::device_type>},
    {"vendor", text<&lun_description::vendor, 8>},
    {"product", text<&lun_description::product, 16>},
    {"revision", text<&lun_description::revision, 4>},
    {"file", made_by<&lun_description::file, to_path>},
    {"serial", text<&lun_description::serial, longest_serial>},
    {"provisioning", made_by<&lun_description::provisioning, to_provisioning>},
};

// Where LUNs are in their target's list, and the device behind them.
struct lun_placement {
    uint32_t copies = 1;
    lun_number first; // its first copy's
    std::optional<std::string> device;
};

std::string to_device_name(const value &v, const place &at);

inline constexpr member<lun_placement> lun_members[] = {
    {"repeat", number<&lun_placement::copies, 1, lun_number_max + 1>},
    {"lun", made_by<&lun_placement::first, to_lun>},
    {"device", made_by<&lun_placement::device, to_device_name>},
};

inline bool is_disk(const lun_description &lun) { return lun.device_type == 0; }
inline bool is_disk_with_medium(const lun_description &lun)
{
    return is_disk(lun) && lun.size != 0;
}

// A physical block has 2 to the power of this many logical ones.
inline unsigned physical_block_exponent(const lun_description &lun)
{
    return static_cast<unsigned>(
        std::countr_zero(lun.physical_block_size.value_or(lun.block_size) / lun.block_size));
}

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
