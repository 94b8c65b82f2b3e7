// Load, free, count, open and close.
#include "api/exported_call.h"
#include "api/varnok_core.h"
#include "core/varnok_shared_db.h"
#include "support/varnok_log.h"

using namespace varnok;

uint32_t VARNOK_LoadLibrary(void)
{
    varnok_set_debug_level();
    LOG_TRACE(": entered.");
    if (shared_db_is_set_up()) {
        LOG_ERROR(": already loaded.");
        return VARNOK_STATUS_SUCCESS;
    }
    const uint32_t rval = varnok_load_lib();
    if (rval != 0) {
        LOG_ERROR(": load failed. rval=", dec(rval));
        return VARNOK_STATUS_FAILED;
    }
    if (varnok_priv_database == nullptr) {
        LOG_ERROR(": no adapters found.");
        return VARNOK_STATUS_SUCCESS;
    }
    if (!shared_db_is_set_up()) {
        LOG_ERROR(": shared db setup failed.");
        return VARNOK_STATUS_FAILED;
    }
    LOG_TRACE(": exiting.");
    return VARNOK_STATUS_SUCCESS;
}

uint32_t VARNOK_FreeLibrary(void)
{
    LOG_TRACE(": entered.");
    const uint32_t rval = varnok_unload_lib();
    // GCOVR_EXCL_START: no unload fails as yet
    if (rval != 0) {
        LOG_ERROR(": unload failed. rval=", dec(rval));
        return VARNOK_STATUS_FAILED;
    }
    // GCOVR_EXCL_STOP
    LOG_TRACE(": exiting.");
    return VARNOK_STATUS_SUCCESS;
}

uint32_t VARNOK_GetPortCount(uint32_t *pPortCount)
{
    LOG_TRACE(": entered.");
    if (varnok_priv_database == nullptr) {
        LOG_ERROR(": no adapters found.");
        return VARNOK_STATUS_FAILED;
    }
    if (!shared_db_is_set_up()) {
        LOG_ERROR(": error in shared database setup. Exiting.");
        return VARNOK_STATUS_FAILED;
    }
    if (pPortCount == nullptr) {
        LOG_ERROR(": invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    uint32_t count = 0;
    varnok_dlist_start(varnok_priv_database);
    while (step<varnok_priv_db>(varnok_priv_database) != nullptr)
        ++count;
    *pPortCount = count;
    LOG_TRACE(": exiting. cnt=", dec(count));
    return VARNOK_STATUS_SUCCESS;
}

static uint32_t open_instance(const exported_call &call, uint32_t instance, uint32_t *handle)
{
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_instance(instance);
    if (pdb == nullptr)
        return call.fails(VARNOK_STATUS_NOT_FOUND, "): pdb not found, exiting");
    const backend &backend = backend_of(pdb);
    uint32_t err = 0;
    if (backend.open(pdb, instance, handle, &err) == 0)
        return VARNOK_STATUS_SUCCESS;
    return call.fails(err != 0 ? err : VARNOK_STATUS_FAILED, backend.open_failed);
}

uint32_t VARNOK_OpenAdapter(uint32_t Instance, uint32_t *Handle)
{
    varnok_set_debug_level();
    const exported_call call(__func__, Instance, "): entered.");
    if (Handle == nullptr)
        return call.fails(VARNOK_STATUS_INVALID_PARAMETER, "): invalid parameter.");
    if (varnok_priv_database == nullptr)
        return call.fails(VARNOK_STATUS_FAILED, "): no adapters found.");
    const uint32_t rval = open_instance(call, Instance, Handle);
    call.trace("): exiting, Return Handle=", dec(*Handle), " rval=", hex(rval));
    return rval;
}

static uint32_t close_port(const exported_call &call, varnok_priv_db *pdb)
{
    const backend &backend = backend_of(pdb);
    uint32_t err = 0;
    if (backend.close(pdb, &err) == 0)
        return VARNOK_STATUS_SUCCESS;
    // GCOVR_EXCL_START: a native close does not fail as yet
    if (backend.close_failed != nullptr)
        call.error(backend.close_failed);
    // GCOVR_EXCL_STOP
    return err != 0 ? err : VARNOK_STATUS_FAILED;
}

uint32_t VARNOK_CloseAdapter(uint32_t Handle)
{
    const exported_call call(__func__, Handle, "): entered.");
    varnok_priv_db *const pdb = call.port();
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    return call.returns(close_port(call, pdb));
}
