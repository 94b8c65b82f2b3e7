// Unloading: every device closed, the shared database left, all ports forgotten.
#include "api/varnok_core.h"
#include "backend/legacy_adapter.h"
#include "core/port_records.h"
#include "core/varnok_shared_db.h"
#include "support/varnok_log.h"

#include <unistd.h>

uint32_t varnok_unload_lib(void)
{
    LOG_TRACE(": entered.");
    LOG_TRACE(": lib inst=", dec(varnok_library_instance), " going to call cleanup_hbas.");
    varnok_cleanup_hbas();
    if (!varnok::shared_db_is_set_up()) {
        LOG_ERROR(": inst ", dec(varnok_library_instance), " db not opened. exiting.");
        varnok::drop_all_ports();
        return 0;
    }
    LOG_TRACE(": lib inst ", dec(varnok_library_instance), " going to call close_database.");
    const uint32_t result = varnok_close_database(varnok_shm_fildes);
    varnok::drop_all_ports();
    LOG_TRACE(": exiting, rval=", dec(result));
    return result;
}

void varnok_cleanup_hbas(void)
{
    LOG_TRACE(": entered. lib inst=", dec(varnok_library_instance));
    if (varnok_priv_database == nullptr) {
        LOG_ERROR(": api_priv_data not found, exiting");
        return;
    }
    varnok_dlist_start(varnok_priv_database);
    while (varnok_priv_db *pdb = varnok::step<varnok_priv_db>(varnok_priv_database)) {
        varnok_hw_info *const hw = pdb->hw_info;
        const bool holds_descriptor = varnok::device_is_open(hw);
        hw->open_cnt = 0;
        if (holds_descriptor) {
            LOG_TRACE(": closing handle=", dec(hw->oshandle));
            close(static_cast<int>(hw->oshandle));
        }
        hw->oshandle = varnok::no_descriptor;
        hw->apihandle = 0;
        hw->phys_path[0] = 0;
    }
    LOG_TRACE(": lib inst=", dec(varnok_library_instance), " exiting.");
}
