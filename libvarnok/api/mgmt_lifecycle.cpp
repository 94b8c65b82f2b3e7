// Load, free, count, open and close.
#include "varnok_core.h"
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"
#include "varnok_shared_db.h"

using varnok::operations_of;

uint32_t VARNOK_LoadLibrary(void)
{
    varnok_set_debug_level();
    LOG_TRACE(": entered.");
    if (varnok::shared_db_is_set_up()) {
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
    if (!varnok::shared_db_is_set_up()) {
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
    if (!varnok::shared_db_is_set_up()) {
        LOG_ERROR(": error in shared database setup. Exiting.");
        return VARNOK_STATUS_FAILED;
    }
    if (pPortCount == nullptr) {
        LOG_ERROR(": invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    uint32_t count = 0;
    varnok_dlist_start(varnok_priv_database);
    while (varnok::step<varnok_priv_db>(varnok_priv_database) != nullptr)
        ++count;
    *pPortCount = count;
    LOG_TRACE(": exiting. cnt=", dec(count));
    return VARNOK_STATUS_SUCCESS;
}

static uint32_t open_instance(const char *func, uint32_t instance, uint32_t *handle)
{
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_instance(instance);
    if (pdb == nullptr) {
        LOG_ERROR_AS(func, "(", dec(instance), "): pdb not found, exiting");
        return VARNOK_STATUS_NOT_FOUND;
    }
    const varnok::backend_operations &operations = operations_of(pdb);
    uint32_t err = 0;
    if (operations.open(pdb, instance, handle, &err) == 0)
        return VARNOK_STATUS_SUCCESS;
    LOG_ERROR_AS(func, "(", dec(instance), operations.open_failed);
    return err != 0 ? err : VARNOK_STATUS_FAILED;
}

uint32_t VARNOK_OpenAdapter(uint32_t Instance, uint32_t *Handle)
{
    varnok_set_debug_level();
    LOG_TRACE("(", dec(Instance), "): entered.");
    if (Handle == nullptr) {
        LOG_ERROR("(", dec(Instance), "): invalid parameter.");
        return VARNOK_STATUS_INVALID_PARAMETER;
    }
    if (varnok_priv_database == nullptr) {
        LOG_ERROR("(", dec(Instance), "): no adapters found.");
        return VARNOK_STATUS_FAILED;
    }
    const uint32_t rval = open_instance(__func__, Instance, Handle);
    LOG_TRACE("(", dec(Instance), "): exiting, Return Handle=", dec(*Handle), " rval=", hex(rval));
    return rval;
}

uint32_t VARNOK_CloseAdapter(uint32_t Handle)
{
    LOG_TRACE("(", dec(Handle), "): entered.");
    varnok_priv_db *const pdb = varnok::port_of(__func__, Handle);
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    const varnok::backend_operations &operations = operations_of(pdb);
    uint32_t err = 0;
    uint32_t rval = VARNOK_STATUS_SUCCESS;
    if (operations.close(pdb, &err) != 0) {
        // GCOVR_EXCL_START: a native close does not fail as yet
        if (operations.close_failed != nullptr)
            LOG_ERROR("(", dec(Handle), operations.close_failed);
        // GCOVR_EXCL_STOP
        rval = err != 0 ? err : VARNOK_STATUS_FAILED;
    }
    LOG_TRACE("(", dec(Handle), "): exiting, rval=", hex(rval));
    return rval;
}
