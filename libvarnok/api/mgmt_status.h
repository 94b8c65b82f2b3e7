// mgmt_status.h - the drivers' statuses as status codes, and the library's version.
#pragma once

#include "include/varnok_mgmt.h"
#include "records/varnok_export.h"

#include <cstdint>

extern "C" {

VARNOK_PRIVATE extern const char varnok_api_version[13];

// A driver's status as a status code: 1 to 13 as 0x80000000 plus the status, any other as a failed
// driver.
VARNOK_PRIVATE uint32_t varnok_xlate_err(uint32_t stat);
}
