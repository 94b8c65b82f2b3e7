// scenario.h - a scenario after reading. Copies of a port, a session or a LUN share one
// description.
#pragma once

#include "drivers.h"
#include "hostsim.h"
#include "record_fields.h"

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace hostsim
{

class real_target;

struct lun_description {
    uint64_t size = 0; // 0: no medium
    uint32_t block_size = 512;
    uint8_t device_type = 0;
    std::string vendor = "MOLVAR";
    std::string product = "HALCYON LUN";
    std::string revision = "1.00";
    std::string file; // empty: the contents are in memory
};

inline bool is_disk(const lun_description &lun) { return lun.device_type == 0; }

struct lun_entry {
    uint64_t wire; // the eight bytes of the LUN as a big-endian number
    uint32_t description;
};

struct session_description {
    uint32_t first = 0; // its first copy's session number
    uint32_t copies = 1;
    settings session_settings;
    settings target_settings;
    std::vector<lun_description> lun_descriptions;
    std::vector<lun_entry> luns;        // in the scenario's order
    std::vector<uint32_t> luns_by_wire; // indexes into luns, by ascending wire
    std::shared_ptr<real_target> real;  // null, or answers instead of the LUNs
};

struct port_description {
    driver_id driver{};
    bool absent = false;
    settings pci_settings;
    settings port_settings;
    std::string portal; // a real one whose targets are the sessions, or empty
    bool portal_asked = false;
    std::vector<session_description> sessions;
    uint32_t session_count = 0;

    const session_description *find_session(uint32_t number) const; // null: no such session
};

struct port {
    port_description *described;
    uint32_t index;    // among all ports
    uint32_t instance; // among its driver's ports
    uint32_t board;    // two ports of a driver make a board
    uint32_t host_no;
    uint64_t first_target; // among the targets of the whole host
};

struct sense_code {
    uint8_t key = 0;
    uint8_t asc = 0;
    uint8_t ascq = 0;
};

struct fault {
    driver_id driver{};
    request what{};
    std::optional<uint32_t> instance;
    uint32_t nth = 1;
    uint32_t times = 1; // 0: for ever
    std::optional<uint32_t> status;
    std::optional<int> error;
    std::optional<sense_code> sense;
    uint64_t seen = 0; // matching requests so far
};

struct driver_ports {
    bool present = false;
    int32_t answering = 0; // ports that are not absent
    std::vector<const port *> by_instance;
    std::unordered_map<uint32_t, const port *> by_host_no;
};

struct scenario {
    std::string folder; // relative file names start from there
    std::string sysname = "VMkernel";
    uint32_t euid = 0;
    uint32_t check_condition_status = 0;
    std::deque<port_description> descriptions; // deques keep pointers to their elements valid
    std::deque<port> ports;
    uint32_t boards = 0;
    std::array<driver_ports, drivers.size()> by_driver;
    std::vector<fault> faults;

    driver_ports &of(driver_id d) { return by_driver[static_cast<size_t>(d)]; }
    const driver_ports &of(driver_id d) const { return by_driver[static_cast<size_t>(d)]; }
};

// Throws scenario_error.
scenario read_scenario(std::string_view text, const std::string &base);

} // namespace hostsim
