// reading.h - what the readers of a scenario's parts share, and how much a scenario may ask for.
#pragma once

#include "scenario.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace hostsim
{

inline constexpr uint32_t most_ports = 65536; // a legacy driver takes 16 bits
inline constexpr uint32_t most_port_sessions = 65536;
inline constexpr uint32_t most_target_luns = 65536;     // a disk's identity has 16 bits for them
inline constexpr uint64_t most_host_sessions = 1 << 20; // by all copies of all ports
inline constexpr uint64_t most_host_luns = 1 << 20;     // by all copies of all sessions and ports
inline constexpr size_t most_faults = 65536;

inline void limit(uint64_t count, uint64_t most, std::string_view of_what, const place &at)
{
    if (count > most)
        at.fail("more than " + std::to_string(most) + ' ' + std::string(of_what));
}

// A file is not touched before the whole scenario is known to be good.
struct awaited_file {
    const lun_description *lun;
    std::string where;
};

struct named_device {
    lun_description *what = nullptr; // its identity is 0 until it is described
    std::string where;               // it is mentioned first
};

struct reading {
    scenario &into;
    std::string folder;
    uint64_t sessions = 0; // of the ports that are read, with all copies
    uint64_t luns = 0;
    uint64_t port_luns = 0; // of one copy of the port that is being read
    std::vector<awaited_file> files{};
    std::map<std::string, named_device> devices{};

    // The device of this name, which may be described later.
    lun_description &device(const std::string &name, const place &at);
};

// The array of a session's LUNs.
std::unique_ptr<container> open_luns(reading &r, session_description &into);

// The object with the devices.
std::unique_ptr<container> open_devices(reading &r);

void check_devices(const reading &r);
void prepare_files(const reading &r);

} // namespace hostsim
