// The targets of a port, each with the number of LUNs that it reports.
#include "heap_buffer.h"
#include "scsi_commands.h"
#include "varnok_bytes.h"
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

#include <cerrno>

namespace
{

using varnok::copy_field;

constexpr varnok::list_texts texts = {"): No targets present.",
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
    target.LunCount = varnok::lun_list_count(lun_list);
}

} // namespace

uint32_t VARNOK_GetTgtInfo(uint32_t Handle, uint32_t *pTgtCount, VARNOK_TGT_INFO **pTgtInfo)
{
    LOG_TRACE("(", dec(Handle), "): entered.");
    varnok_priv_db *const pdb = varnok::port_of(__func__, Handle);
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    const uint32_t capacity = *pTgtCount;
    const varnok::list_check check =
        varnok::check_list(__func__, Handle, pdb->session_cnt, pTgtCount, pTgtInfo, texts);
    if (check != varnok::list_check::fits)
        return varnok::status_of(check);
    uint32_t list_size = varnok::lun_list_size;
    varnok::heap_buffer<uint8_t> lun_list(list_size);
    if (!lun_list) {
        LOG_ERROR("(", dec(Handle), "): pdata alloc failed.");
        return VARNOK_STATUS_NO_MEMORY;
    }
    varnok::heap_buffer<varnok_drv_tgt_info> info;
    if (!info) {
        LOG_ERROR("(", dec(Handle), varnok::operations_of(pdb).target_alloc_failed);
        return VARNOK_STATUS_NO_MEMORY;
    }
    // The count is read again at every turn, and must not outgrow the array.
    for (uint32_t i = 0; i < pdb->session_cnt && i < capacity; ++i) {
        varnok::clear(info.get(), sizeof *info);
        info->scsi_tgt_num = i;
        uint32_t stat = 0;
        if (varnok::operations_of(pdb).get_tgt_info(pdb, info.get(), &stat) != 0 || stat != 0) {
            LOG_ERROR("(", dec(Handle), "): tgt info failed, stat=", dec(stat),
                      " errno=", dec(errno));
            return varnok_xlate_err(stat);
        }
        memset(lun_list.get(), 0, list_size);
        VARNOK_SCSI_CMND command = varnok::report_luns_command(i);
        const uint32_t rval = VARNOK_SendScsiCommand(Handle, &command, &list_size, lun_list.get());
        // A target that does not answer is listed all the same.
        if (rval != 0)
            LOG_ERROR("(", dec(Handle), "): send scsi cmd failed, rval=", hex(rval));
        fill_target((*pTgtInfo)[i], i, *info, lun_list.get());
    }
    lun_list.release();
    info.release();
    LOG_TRACE("(", dec(Handle), "): exiting, rval=", hex(0));
    return VARNOK_STATUS_SUCCESS;
}
