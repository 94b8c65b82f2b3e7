// The library's identity, and the drivers' statuses as status codes.
#include "api/mgmt_status.h"
#include "api/varnok_core.h"
#include "support/varnok_log.h"

#include <cstring>

const char varnok_version_description[128] =
    "Molvar Halcyon iSCSI API library version " VARNOK_API_VERSION_TEXT;
const char varnok_api_version[13] = VARNOK_API_VERSION_TEXT;

uint32_t VARNOK_GetVersion(uint8_t *pVersion, uint32_t VersionSize)
{
    LOG_TRACE(": entered.");
    if (pVersion != nullptr && VersionSize >= sizeof varnok_api_version)
        memcpy(pVersion, varnok_api_version, sizeof varnok_api_version);
    LOG_TRACE(": exiting. version=", hex(VARNOK_API_VERSION_NUMBER));
    return VARNOK_API_VERSION_NUMBER;
}

uint32_t varnok_xlate_err(uint32_t stat)
{
    static constexpr uint32_t codes[] = {
        VARNOK_STATUS_SUCCESS,           VARNOK_STATUS_FAILED,
        VARNOK_STATUS_DRIVER_2,          VARNOK_STATUS_DRIVER_3,
        VARNOK_STATUS_INVALID_PARAMETER, VARNOK_STATUS_DRIVER_5,
        VARNOK_STATUS_DRIVER_6,          VARNOK_STATUS_NOT_FOUND,
        VARNOK_STATUS_DRIVER_8,          VARNOK_STATUS_INSUFFICIENT_BUFFER,
        VARNOK_STATUS_NO_MEMORY,         VARNOK_STATUS_DRIVER_FAILED,
        VARNOK_STATUS_DRIVER_12,         VARNOK_STATUS_DRIVER_13,
    };
    // 0 and anything above 13 is no status that a caller could use.
    return stat >= 1 && stat <= 13 ? codes[stat] : VARNOK_STATUS_DRIVER_FAILED;
}
