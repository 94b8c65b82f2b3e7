// The LUNs of a captured host. One that several targets present is written once, as a device.
#pragma once

#include "varnokctl/json.h"
#include "varnokctl/model.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace ctl
{

// A text when it needs no escapes, else its bytes. It ends at its first NUL byte.
json text_or_bytes(std::span<const uint8_t> field);

json lun_number_of(const lun_levels &lun);

// The number that a capture gives the first LUN that the target counts but does not list. It stands
// behind those that are listed. Nothing when there is none.
std::optional<uint32_t> first_unlisted(const target_entry &target);

json exact_number(uint64_t value, const char *large_format);

class captured_luns
{
  public:
    explicit captured_luns(const inventory &host);

    const json &devices() const { return devices_; } // an object, by their names

    // A scenario holds each LUN once. LUNs that the target counts but does not list follow.
    json array_of(const target_entry &target) const;

  private:
    json devices_ = json::object();
    std::map<std::string, std::string> names_; // of the devices, by what they are
};

} // namespace ctl
