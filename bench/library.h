// library.h - one build of the library, opened at run time: two of them stand side by side.
#pragma once

#include "platform.h"
#include "support/varnok_dlist.h"
#include "varnok_mgmt.h"

namespace bench
{

struct library {
    decltype(&VARNOK_GetVersion) version;
    decltype(&VARNOK_LoadLibrary) load;
    decltype(&VARNOK_FreeLibrary) free;
    decltype(&VARNOK_GetPortCount) port_count;
    decltype(&VARNOK_OpenAdapter) open;
    decltype(&VARNOK_CloseAdapter) close;
    decltype(&VARNOK_GetPhyPortInfo) phy_port;
    decltype(&VARNOK_GetIscsiPortal) portal;
    decltype(&VARNOK_GetSessionInfo) sessions;
    decltype(&VARNOK_GetTgtInfo) targets;
    decltype(&VARNOK_SendScsiCommand) scsi;
    decltype(&VARNOK_GetLunInfo) luns;

    // The library's own discovery, without the rest of a load.
    uint32_t (*discover[4])(const char *driver_name, uint32_t *start_inst);
    varnok_Dlist **ports;
    varnok_Dlist **functions;
    void (*forget_ports)();
    void (*forget_functions)();
};

const library &with_log();
const library &without_log();

} // namespace bench
