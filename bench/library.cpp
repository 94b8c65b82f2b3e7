#include "library.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

namespace
{

using bench::library;

template <class Function>
void find(void *object, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(dlsym(object, name));
    if (function != nullptr)
        return;
    fprintf(stderr, "varnok_bench: %s\n", dlerror());
    abort();
}

library open_library(const char *path)
{
    void *const object = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    library l = {};
    find(object, "VARNOK_GetVersion", l.version);
    find(object, "VARNOK_LoadLibrary", l.load);
    find(object, "VARNOK_FreeLibrary", l.free);
    find(object, "VARNOK_GetPortCount", l.port_count);
    find(object, "VARNOK_OpenAdapter", l.open);
    find(object, "VARNOK_CloseAdapter", l.close);
    find(object, "VARNOK_GetPhyPortInfo", l.phy_port);
    find(object, "VARNOK_GetIscsiPortal", l.portal);
    find(object, "VARNOK_GetSessionInfo", l.sessions);
    find(object, "VARNOK_GetTgtInfo", l.targets);
    find(object, "VARNOK_SendScsiCommand", l.scsi);
    find(object, "VARNOK_GetLunInfo", l.luns);
    find(object, "varnok_ryxnt_find_all_instances", l.discover[0]);
    find(object, "varnok_find_all_instances", l.discover[1]);
    find(object, "varnoknt_find_all_instances", l.discover[2]);
    find(object, "varnok_find_all_instances_zt", l.discover[3]);
    find(object, "varnok_priv_database", l.ports);
    find(object, "varnok_phy_info", l.functions);
    find(object, "varnok_free_all_pdb_mem", l.forget_ports);
    find(object, "varnok_free_all_hw_info_mem", l.forget_functions);
    return l;
}

} // namespace

const library &bench::with_log()
{
    static const library l = open_library(LIBRARY);
    return l;
}

const library &bench::without_log()
{
    static const library l = open_library(LIBRARY_WITHOUT_LOG);
    return l;
}
