// scenario.h - a scenario after reading. Copies of a port, a session or a LUN share one
// description.
#pragma once

#include "drivers.h"
#include "faults.h"
#include "hostsim.h"
#include "luns.h"
#include "members.h"
#include "record_fields.h"
#include "values.h"

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

inline constexpr uint32_t most_copies = 65536; // of one description

struct session_description {
    uint32_t first = 0; // its first copy's session number
    uint32_t copies = 1;
    bool logged_in = true; // else its record has only names and what is given
    settings session_settings;
    settings target_settings;
    std::shared_ptr<const lun_list> luns = no_luns(); // never null
    std::shared_ptr<real_target> real;                // null, or answers instead of the LUNs
};

inline constexpr member<session_description> session_members[] = {
    {"repeat", number<&session_description::copies, 1, most_copies>},
    {"logged_in", made_by<&session_description::logged_in, to_bool>},
};

struct port_description {
    driver_id driver{};
    uint32_t copies = 1;
    std::optional<uint32_t> host_no; // its first copy's
    bool absent = false;
    settings pci_settings;
    settings port_settings;
    std::string portal; // a real one whose targets are the sessions, or empty
    bool portal_asked = false;
    std::vector<session_description> sessions;
    uint32_t session_count = 0;

    const session_description *find_session(uint32_t number) const; // null: no such session
};

inline constexpr member<port_description> port_members[] = {
    {"driver", made_by<&port_description::driver, to_driver>, required},
    {"repeat", number<&port_description::copies, 1, most_copies>},
    {"host_no", number<&port_description::host_no>},
    {"absent", made_by<&port_description::absent, to_bool>},
    {"portal", made_by<&port_description::portal, to_portal>},
};

struct port {
    port_description *described;
    uint32_t index;    // among all ports
    uint32_t instance; // among its driver's ports
    uint32_t board;    // two ports of a driver make a board
    uint32_t host_no;
    uint64_t first_target; // among the targets of the whole host
};

struct driver_ports {
    bool present = false;
    int32_t answering = 0; // ports that are not absent
    std::vector<const port *> by_instance;
    std::unordered_map<uint32_t, const port *> by_host_no;
};

struct scenario {
    std::string sysname = "VMkernel";
    uint32_t euid = 0;
    uint32_t check_condition_status = 0;
    std::deque<port_description> descriptions; // deques keep pointers to their elements valid
    std::deque<lun_description> lun_descriptions;
    std::deque<lun_description> devices; // that LUNs refer to
    std::deque<port> ports;
    uint32_t boards = 0;
    std::array<driver_ports, drivers.size()> by_driver;
    std::vector<fault> faults;

    driver_ports &of(driver_id d) { return by_driver[static_cast<size_t>(d)]; }
    const driver_ports &of(driver_id d) const { return by_driver[static_cast<size_t>(d)]; }
};

inline constexpr member<scenario> host_members[] = {
    {"sysname", text<&scenario::sysname, 64>},
    {"euid", number<&scenario::euid>},
    {"check_condition_status", number<&scenario::check_condition_status>},
};

// Throws scenario_error. Relative file names start from the folder base.
scenario read_scenario(std::string_view text, const std::string &base);

} // namespace hostsim
