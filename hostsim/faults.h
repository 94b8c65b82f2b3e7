// faults.h - requests that fail because the scenario says so.
#pragma once

#include "hostsim.h"
#include "members.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace hostsim
{

struct fault {
    driver_id driver{};
    request what{};
    std::optional<uint32_t> instance;
    std::optional<uint32_t> target;
    std::optional<lun_number> lun;
    std::string cdb; // its first bytes; empty: any command
    uint32_t nth = 1;
    uint32_t times = 1; // 0: for ever
    std::optional<uint32_t> status;
    std::optional<int> error;
    std::optional<sense_code> sense;
    uint64_t seen = 0; // matching requests so far
};

std::string to_cdb_start(const value &v, const place &at);

inline constexpr member<fault> fault_members[] = {
    {"driver", made_by<&fault::driver, to_driver>, required},
    {"request", made_by<&fault::what, to_request>, required},
    {"instance", number<&fault::instance>},
    {"target", number<&fault::target>},
    {"lun", made_by<&fault::lun, to_lun>},
    {"cdb", made_by<&fault::cdb, to_cdb_start>},
    {"nth", number<&fault::nth, 1>},
    {"times", number<&fault::times>},
    {"status", number<&fault::status, 1>},
    {"errno", made_by<&fault::error, to_error_number>},
    {"sense", made_by<&fault::sense, to_sense>},
};

std::unique_ptr<container> open_fault(fault &into);

// What a request is about. Only a SCSI command has a LUN and a CDB.
struct fault_subject {
    std::optional<uint32_t> instance{};
    std::optional<uint32_t> target{};
    uint64_t lun = 0; // as in lun_number
    std::span<const uint8_t> cdb{};
};

// Returns the first fault that fires, or null. Every matching fault counts the request.
const fault *next_fault(std::vector<fault> &faults, driver_id driver, request what,
                        const fault_subject &subject);

// Makes a request with a record fail. Returns the driver's status.
uint32_t apply_fault(const fault &f, exchange &e, uint32_t check_condition_status);

} // namespace hostsim
