// Lists the LUNs of every target that this host sees, with their sizes.
#include <cinttypes>
#include <cstdio>
#include <vector>

#include <varnok_mgmt.h>

// Repeats the query with a longer array until the list fits.
template <class Record, class Query>
std::vector<Record> list(uint32_t count, Query query)
{
    std::vector<Record> records;
    uint32_t status = 0;
    do {
        records.assign(count, Record{});
        for (Record &record : records)
            record.Version = VARNOK_RECORD_VERSION_2;
        Record *array = records.data();
        status = query(&count, &array);
    } while (status == VARNOK_STATUS_INSUFFICIENT_BUFFER && count > records.size());
    records.resize(status == VARNOK_STATUS_SUCCESS ? count : 0);
    return records;
}

static void show_port(uint32_t handle)
{
    VARNOK_PHY_PORT_INFO port = {};
    if (VARNOK_GetPhyPortInfo(handle, &port) != VARNOK_STATUS_SUCCESS) // refreshes SessCount
        return;
    const auto targets =
        list<VARNOK_TGT_INFO>(0, [handle](uint32_t *count, VARNOK_TGT_INFO **array) {
            return VARNOK_GetTgtInfo(handle, count, array);
        });
    for (const VARNOK_TGT_INFO &target : targets) {
        const uint32_t number = target.ScsiTgtNum;
        std::printf("%.256s\n", reinterpret_cast<const char *>(target.TargetName));
        if (target.LunCount == 0)
            continue;
        const auto luns = list<VARNOK_LUN_INFO>(
            target.LunCount, [handle, number](uint32_t *count, VARNOK_LUN_INFO **array) {
                return VARNOK_GetLunInfo(handle, number, count, array);
            });
        // ScsiLunNum includes the address method: flat LUN 300 shows as 16684.
        for (const VARNOK_LUN_INFO &lun : luns)
            std::printf("  LUN %" PRIu32 ": %" PRIu64 " MiB\n", lun.ScsiLunNum, lun.Capacity >> 20);
    }
}

int main()
{
    uint32_t ports = 0;
    if (VARNOK_LoadLibrary() != VARNOK_STATUS_SUCCESS)
        return 1;
    VARNOK_GetPortCount(&ports);
    for (uint32_t instance = 0; instance < ports; ++instance) {
        uint32_t handle = 0;
        if (VARNOK_OpenAdapter(instance, &handle) != VARNOK_STATUS_SUCCESS)
            continue;
        show_port(handle);
        VARNOK_CloseAdapter(handle);
    }
    VARNOK_FreeLibrary();
}
