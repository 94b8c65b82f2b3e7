// The targets of a port, each with the number of LUNs that it reports.
#include "api/caller_array.h"
#include "api/exported_call.h"
#include "api/scsi_commands.h"
#include "support/heap_buffer.h"
#include "support/varnok_bytes.h"

using namespace varnok;

namespace
{

constexpr list_texts texts = {"): No targets present.",
                              "): API tgt count greater than apps tgt count."};

void fill_target(VARNOK_TGT_INFO &target, uint32_t number, const varnok_drv_tgt_info &info,
                 const uint8_t *lun_list)
{
    // The driver's text may fill its field.
    char isid[sizeof info.isid + 1] = {};
    memcpy(isid, info.isid, sizeof info.isid);

    target.ScsiTgtNum = number;
    copy_field(target.TargetName, info.iqn);
    copy_field(target.MAC, info.mac);
    varnok_to_array_hex(target.Isid, isid, sizeof target.Isid);
    target.IPv4Port = info.ipv4_port;
    copy_field(target.IPv4Addr, info.ipv4addr);
    target.IPv6Port = info.ipv6_port;
    copy_field(target.IPv6Addr, info.ipv6addr);
    target.LunCount = lun_list_count(lun_list);
}

// Asks the target itself. One that does not answer is listed all the same.
void count_luns(const exported_call &call, uint32_t handle, uint32_t target, uint8_t *list)
{
    uint32_t size = lun_list_size;
    clear(list, size);
    VARNOK_SCSI_CMND command = report_luns_command(target);
    const uint32_t rval = VARNOK_SendScsiCommand(handle, &command, &size, list);
    if (rval != 0)
        call.error("): send scsi cmd failed, rval=", hex(rval));
}

using target_array = caller_array<VARNOK_TGT_INFO>;

uint32_t list_targets(const exported_call &call, uint32_t handle, varnok_priv_db *pdb,
                      const target_array &targets)
{
    const heap_buffer<uint8_t> lun_list(lun_list_size);
    if (!lun_list)
        return call.fails(VARNOK_STATUS_NO_MEMORY, "): pdata alloc failed.");
    const heap_buffer<varnok_drv_tgt_info> info;
    if (!info)
        return call.fails(VARNOK_STATUS_NO_MEMORY, backend_of(pdb).target_alloc_failed);
    // The count is read again at every turn, and must not outgrow the array.
    for (uint32_t i = 0; i < pdb->session_cnt && i < targets.capacity(); ++i) {
        clear(info.get(), sizeof *info);
        info->scsi_tgt_num = i;
        uint32_t stat = 0;
        if (backend_of(pdb).get_tgt_info(pdb, info.get(), &stat) != 0 || stat != 0)
            return call.request_fails("): tgt info failed, stat=", stat);
        count_luns(call, handle, i, lun_list.get());
        targets.write(
            i, [&](VARNOK_TGT_INFO &target) { fill_target(target, i, *info, lun_list.get()); });
    }
    return VARNOK_STATUS_SUCCESS;
}

} // namespace

uint32_t VARNOK_GetTgtInfo(uint32_t Handle, uint32_t *pTgtCount, VARNOK_TGT_INFO **pTgtInfo)
{
    const exported_call call(__func__, Handle, "): entered.");
    varnok_priv_db *const pdb = call.port();
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    const uint32_t capacity = *pTgtCount;
    const list_verdict list = call.check_list(pdb->session_cnt, pTgtCount, pTgtInfo, texts);
    if (!list.fits)
        return list.status;
    return call.ends(list_targets(call, Handle, pdb, {*pTgtInfo, capacity}));
}
