// What the exported functions ask of their arguments.
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

varnok_priv_db *varnok::port_of(const char *func, uint32_t handle)
{
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_handle(handle);
    if (pdb == nullptr)
        LOG_ERROR_AS(func, "(", dec(handle), "): get pdb failed.");
    return pdb;
}

varnok::list_check varnok::check_count(const char *func, uint32_t handle, uint32_t entries,
                                       uint32_t *count, const list_texts &texts)
{
    if (entries == 0) {
        LOG_ERROR_AS(func, "(", dec(handle), texts.empty);
        *count = 0;
        return list_check::empty;
    }
    if (entries > *count) {
        LOG_ERROR_AS(func, "(", dec(handle), texts.too_short);
        *count = entries;
        return list_check::too_short;
    }
    return list_check::fits;
}

varnok::list_check varnok::check_array(const char *func, uint32_t handle, const void *array)
{
    if (array != nullptr)
        return list_check::fits;
    LOG_ERROR_AS(func, "(", dec(handle), "): invalid parameter.");
    return list_check::no_array;
}

uint32_t varnok::status_of(list_check check)
{
    switch (check) {
    case list_check::too_short:
        return VARNOK_STATUS_INSUFFICIENT_BUFFER;
    case list_check::no_array:
        return VARNOK_STATUS_INVALID_PARAMETER;
    case list_check::empty:
    case list_check::fits:
        break;
    }
    return VARNOK_STATUS_SUCCESS;
}
