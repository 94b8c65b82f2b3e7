// scsi_request.h - the driver's request that carries a SCSI command.
#pragma once

#include "faults.h"
#include "hostsim.h"
#include "scenario.h"
#include "scsi_target.h"

namespace hostsim
{

// The target, the LUN and the CDB of the request.
fault_subject subject_of_scsi(const exchange &e);

// Carries out the command and returns the driver's status.
uint32_t answer_scsi(exchange &e, const port &p, disk_contents &disks,
                     uint32_t check_condition_status);

void store_sense(const exchange &e, const sense_code &sense);

} // namespace hostsim
