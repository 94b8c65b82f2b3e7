// Sends one SCSI command through the library.
#pragma once

#include "varnok_mgmt.h"
#include "varnokctl/failure.h"
#include "varnokctl/lun_address.h"

#include <cstdint>
#include <varnok.hpp>
#include <vector>

namespace ctl
{

struct scsi_request {
    uint32_t port = 0;
    uint32_t target = 0;
    lun_levels lun{};
    std::vector<uint8_t> cdb;
    uint8_t direction = VARNOK_SCSI_NO_DATA;
    std::vector<uint8_t> data; // what goes to the device, or room for what comes from it
};

struct scsi_result {
    bool carried_out = false;
    // From the device. The library does not tell how much came, so zeros may follow it.
    std::vector<uint8_t> data;
    std::vector<uint8_t> sense;
    std::vector<failed_call> failures;
};

scsi_result send(const scsi_request &request);

// Sends to a port that is open.
varnok::result<varnok::scsi_reply> carry_out(const varnok::port &on, const scsi_request &request);

} // namespace ctl
