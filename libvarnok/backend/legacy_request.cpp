// One request to a legacy driver.
#include "backend/legacy_driver.h"
#include "support/varnok_bytes.h"
#include "support/varnok_log.h"

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>

namespace
{

// The driver's status counts before the result of the call.
uint32_t call_driver(const varnok::legacy_driver &driver, const char *func,
                     const varnok::legacy_request &request, int32_t handle,
                     const varnok_priv_db *pdb, void *payload, uint32_t *stat)
{
    varnok_drv_ioctl header;
    varnok::legacy_setup_header(driver, 0, payload, pdb, &header);
    const int result =
        ioctl(handle, static_cast<unsigned long>(driver.ioctl_base) + request.number, &header);
    *stat = header.status;
    if (*stat != 0) {
        LOG_ERROR_AS(func, request.status_line, dec(*stat));
        return 1;
    }
    if (result != 0) {
        LOG_ERROR_AS(func, request.call_line, dec(errno));
        return 1;
    }
    return 0;
}

} // namespace

uint32_t varnok::legacy_setup_header(const legacy_driver &driver, uint16_t subcmd, void *payload,
                                     const varnok_priv_db *pdb, varnok_drv_ioctl *header)
{
    if (header == nullptr)
        return 1;
    *header = {};
    memcpy(header->signature, driver.signature, sizeof header->signature);
    header->addrmode = VARNOK_DRV_IOCTL_ADDRMODE;
    header->version = VARNOK_DRV_IOCTL_VERSION;
    header->subcode = subcmd;
    header->ioctlstructaddr = varnok_ptr_to_64bit(payload);
    if (pdb != nullptr)
        header->hbaselect = static_cast<uint16_t>(pdb->drvr_inst);
    return 0;
}

uint32_t varnok::legacy_hba_count(const legacy_driver &driver, const char *func, int32_t handle,
                                  int32_t *count)
{
    LOG_TRACE_AS(func, ": entered.");
    varnok_drv_hba_cnt payload = {};
    uint32_t stat = 0;
    if (call_driver(driver, func, ask_hba_count, handle, nullptr, &payload, &stat) != 0)
        return 1;
    *count = payload.hba_cnt;
    LOG_TRACE_AS(func, ": exiting.");
    return 0;
}

uint32_t varnok::legacy_hostno(const legacy_driver &driver, const char *func, varnok_priv_db *pdb,
                               int32_t handle, uint32_t *host_no)
{
    LOG_TRACE_AS(func, "(", dec(pdb->drvr_inst), "): entered.");
    varnok_drv_hostno payload = {};
    uint32_t stat = 0;
    if (call_driver(driver, func, ask_hostno, handle, pdb, &payload, &stat) != 0)
        return 1;
    *host_no = payload.host_no;
    LOG_TRACE_AS(func, "(", dec(pdb->drvr_inst), "): exiting.");
    return 0;
}

uint32_t varnok::legacy_query(const legacy_driver &driver, const char *func,
                              const varnok::legacy_request &request, int32_t handle,
                              varnok_priv_db *pdb, void *record, uint32_t *stat)
{
    LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): entered.");
    if (call_driver(driver, func, request, handle, pdb, record, stat) != 0)
        return 1;
    LOG_TRACE_AS(func, "(", dec(handle_of(pdb)), "): exiting.");
    return 0;
}
