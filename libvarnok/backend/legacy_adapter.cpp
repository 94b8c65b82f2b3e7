#include "backend/legacy_adapter.h"

#include "support/descriptor.h"
#include "support/varnok_log.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace
{

uint32_t open_port(const char *func, varnok_priv_db *pdb, uint32_t *papi_handle, uint32_t *pret_err)
{
    uint32_t instance = 0;
    if (varnok_get_instance_from_pdb(pdb, &instance) != 0) {
        LOG_ERROR_AS(func, ": get instance failed");
        return 1;
    }
    varnok_hw_info *const hw = pdb->hw_info;
    if (hw->open_cnt == 0) {
        const int fd =
            varnok::above_standard(open(reinterpret_cast<const char *>(hw->phys_path), O_RDWR));
        if (fd < 0) {
            *pret_err = static_cast<uint32_t>(errno);
            LOG_ERROR_AS(func, "(", dec(instance), "): error opening adapter=", dec(*pret_err),
                         ", fd=", dec(fd));
            return 1;
        }
        LOG_ERROR_AS(func, "(", dec(instance), "): opened adapter instance.");
        hw->oshandle = static_cast<uint32_t>(fd);
        hw->apihandle = instance + 1;
    }
    hw->open_cnt = hw->open_cnt + 1;
    *papi_handle = hw->apihandle;
    return 0;
}

uint32_t close_port(varnok_hw_info *hw, uint32_t *perr)
{
    if (hw->open_cnt == 0)
        return 0;
    if (hw->open_cnt == 1) {
        if (close(static_cast<int>(hw->oshandle)) != 0) {
            *perr = static_cast<uint32_t>(errno);
            return 1;
        }
        hw->oshandle = varnok::no_descriptor;
        hw->apihandle = 0;
    }
    hw->open_cnt = hw->open_cnt - 1;
    return 0;
}

} // namespace

uint32_t varnok_open_adapter(varnok_priv_db *pdb, uint32_t *papi_handle, uint32_t *pret_err)
{
    LOG_TRACE(": entered.");
    const uint32_t result = open_port(__func__, pdb, papi_handle, pret_err);
    LOG_TRACE(": exiting, rval=", dec(result));
    return result;
}

uint32_t varnok_close_adapter(varnok_priv_db *pdb, uint32_t *perr)
{
    LOG_TRACE("(", dec(pdb->hw_info->apihandle), "): entered.");
    const uint32_t result = close_port(pdb->hw_info, perr);
    LOG_TRACE("(", dec(pdb->hw_info->apihandle), "): exiting, rval=", dec(result));
    return result;
}
