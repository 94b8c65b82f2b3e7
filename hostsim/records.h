// records.h - makes the driver records of a port: the values that the scenario gives, and
// believable ones for the rest, which differ from port to port.
#pragma once

#include "records/varnok_driver_records.h"
#include "scenario.h"

namespace hostsim
{

varnok_drv_pci_info pci_record(const port &p);
varnok_drv_port_info port_record(const port &p);
varnok_drv_session_info session_record(const port &p, const session_description &s,
                                       uint32_t number);
varnok_drv_tgt_info target_record(const port &p, const session_description &s, uint32_t number);

} // namespace hostsim
