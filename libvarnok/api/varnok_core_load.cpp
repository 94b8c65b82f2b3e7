// Loading: who may, where, and which drivers are asked in which order.
#include "api/mgmt_status.h"
#include "api/varnok_core.h"
#include "backend/families.h"
#include "core/port_records.h"
#include "core/varnok_shared_db.h"
#include "support/varnok_log.h"

#include <cstring>
#include <sys/utsname.h>
#include <unistd.h>

uint8_t varnok_os_type = 0;

namespace
{

constexpr uint8_t os_esxi = 1;
constexpr uint8_t os_other = 2;

// 0 when one of the family's drivers could be asked.
uint32_t discover(const varnok::family &its, uint32_t &ports)
{
    const uint32_t result = its.native.find_all_instances(its.native.driver_name, &ports);
    if (result == 0 || its.legacy == nullptr)
        return result;
    return its.legacy->find_all_instances(its.legacy->driver_name, &ports);
}

bool any_port() { return varnok_priv_database != nullptr && varnok_priv_database->count > 0; }

uint32_t discover_and_join(const char *func)
{
    uint32_t ports = 0;
    // The first family alone decides what a load without ports returns.
    const uint32_t result = discover(varnok::families().front(), ports);
    for (const varnok::family &other : varnok::families().subspan(1)) {
        uint32_t more = 0;
        discover(other, more);
        ports += more;
    }
    if (!any_port() || ports == 0) {
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
