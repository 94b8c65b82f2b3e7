// The names that the SCSI standards give to their numbers.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ctl
{

std::string sense_key_name(uint8_t key);                      // "illegal request"
std::string sense_code_name(uint8_t code, uint8_t qualifier); // empty when unknown
std::string operation_name(std::span<const uint8_t> cdb);     // "Inquiry"

// Of a designator: what it names, how it was made and what its bytes are.
std::string association_name(uint8_t association);
std::string designator_type_name(uint8_t type);
std::string code_set_name(uint8_t code_set);

} // namespace ctl
