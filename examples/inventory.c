/* Lists the iSCSI ports of this host and the targets that each one sees. */
#include <stdio.h>
#include <stdlib.h>

#include <varnok_mgmt.h>

static void list_targets(uint32_t handle, uint32_t count)
{
    VARNOK_TGT_INFO *targets = calloc(count, sizeof *targets);
    uint32_t status =
        targets ? VARNOK_GetTgtInfo(handle, &count, &targets) : VARNOK_STATUS_NO_MEMORY;

    if (status != VARNOK_STATUS_SUCCESS)
        fprintf(stderr, "  no targets: status 0x%08x\n", (unsigned)status);
    else
        for (uint32_t i = 0; i < count; i++)
            printf("  %.256s, %u LUNs\n", (const char *)targets[i].TargetName,
                   (unsigned)targets[i].LunCount);
    free(targets);
}

int main(void)
{
    uint32_t ports = 0, handle = 0;

    if (VARNOK_LoadLibrary() != VARNOK_STATUS_SUCCESS)
        return EXIT_FAILURE;
    VARNOK_GetPortCount(&ports); /* stays 0 on a host without adapters */
    for (uint32_t i = 0; i < ports; i++) {
        VARNOK_PHY_PORT_INFO info = {.Version = VARNOK_RECORD_VERSION_2};

        if (VARNOK_OpenAdapter(i, &handle) != VARNOK_STATUS_SUCCESS)
            continue;
        if (VARNOK_GetPhyPortInfo(handle, &info) == VARNOK_STATUS_SUCCESS) {
            printf("%.32s, %.32s\n", (const char *)info.HbaName, (const char *)info.ModelName);
            if (info.SessCount != 0) /* one target for each session */
                list_targets(handle, info.SessCount);
        }
        VARNOK_CloseAdapter(handle);
    }
    VARNOK_FreeLibrary();
    return EXIT_SUCCESS;
}
