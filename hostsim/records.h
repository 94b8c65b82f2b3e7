// records.h - the driver records of a port, made when they are asked for: believable values that
// differ from port to port, under those the scenario gives.
#pragma once

#include "scenario.h"
#include "varnok_driver_records.h"

namespace hostsim
{

varnok_drv_pci_info pci_record(const port &p);
varnok_drv_port_info port_record(const port &p);
varnok_drv_session_info session_record(const port &p, const session_description &s,
                                       uint32_t number);
varnok_drv_tgt_info target_record(const port &p, const session_description &s, uint32_t number);

} // namespace hostsim
