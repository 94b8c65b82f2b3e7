// Loading: who may, where, and which drivers are asked in which order.
#include "peltl_core.h"
#include "port_records.h"
#include "varnok_core.h"
#include "varnok_core_ioctl.h"
#include "varnok_log.h"
#include "varnok_ntapi.h"
#include "varnok_ryx_ntapi.h"
#include "varnok_shared_db.h"

#include <cstring>
#include <sys/utsname.h>
#include <unistd.h>

uint8_t varnok_os_type = 0;

namespace
{

constexpr uint8_t os_esxi = 1;
constexpr uint8_t os_other = 2;

using discovery_pass = uint32_t (*)(const char *driver_name, uint32_t *start_inst);

// An adapter family's native driver wins; its legacy driver is asked only when the native one
// failed.
struct family {
    const char *native_name;
    discovery_pass native_pass;
    const char *legacy_name;
    discovery_pass legacy_pass;
};

constexpr family older_family = {KX_ISCSI_DRIVER_NAME, varnok_ryxnt_find_all_instances,
                                 TEPLI_DRIVER_NAME, varnok_find_all_instances};
constexpr family newer_generation = {PELT_DRIVER_NAME, varnoknt_find_all_instances, DXO_DRIVER_NAME,
                                     varnok_find_all_instances_zt};

// 0, or the legacy pass's failure.
uint32_t discover(const family &f, uint32_t &ports)
{
    if (f.native_pass(f.native_name, &ports) == 0)
        return 0;
    return f.legacy_pass(f.legacy_name, &ports);
}

bool any_port() { return varnok_priv_database != nullptr && varnok_priv_database->count > 0; }

uint32_t discover_and_join(const char *func)
{
    uint32_t older_ports = 0;
    uint32_t newer_ports = 0;
    // The older family alone decides what a load without ports returns.
    const uint32_t result = discover(older_family, older_ports);
    discover(newer_generation, newer_ports);
    if (!any_port() || older_ports + newer_ports == 0) {
        LOG_ERROR_AS(func, ": ERROR finding adapters.");
        varnok::drop_all_ports();
        return result;
    }
    int32_t descriptor = 0;
    if (varnok_open_database(&descriptor) != 0) {
        LOG_ERROR_AS(func, ": ERROR setting up database.");
        varnok::drop_all_ports();
        return 1;
    }
    return 0;
}

} // namespace

uint32_t varnok_load_lib(void)
{
    const uid_t uid = geteuid();
    LOG_TRACE(": entered. Got uid=", dec(uid));
    if (uid != 0) {
        LOG_ERROR(":libvarnok: ERROR - libvarnok must be loaded with root privileges.");
        return 1;
    }
    LOG_TRACE(": API Version: ", VARNOK_API_VERSION_TEXT);
    varnok_check_esx();
    LOG_TRACE(": OS_Type=", dec(varnok_os_type));
    if (varnok_os_type != os_esxi) {
        LOG_ERROR(":ERROR - libvarnok supported for ESXi only");
        return 1;
    }
    const uint32_t result = varnok_priv_database != nullptr ? 0 : discover_and_join(__func__);
    LOG_TRACE(": exiting, rval=", dec(result));
    return result;
}

void varnok_check_esx(void)
{
    LOG_TRACE(": entered.");
    utsname name = {};
    if (uname(&name) != 0) {
        LOG_ERROR(": uname() failed.");
        name = {};
    }
    varnok_os_type = strstr(name.sysname, "VMkernel") != nullptr ? os_esxi : os_other;
    LOG_TRACE(": exiting");
}
