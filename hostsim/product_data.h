// product_data.h - the vital product data of a LUN: what identifies it, and how it stores.
#pragma once

#include "luns.h"

#include <cstdint>
#include <vector>

namespace hostsim
{

// Empty: the LUN has no such page. The identity is a number that no other disk of the host has.
std::vector<uint8_t> product_data(const lun_description &lun, uint64_t identity, uint8_t page);

} // namespace hostsim
