// The sessions of a port.
#include "heap_buffer.h"
#include "varnok_bytes.h"
#include "varnok_log.h"
#include "varnok_mgmt_internal.h"

#include <cerrno>

namespace
{

using varnok::copy_field;

constexpr varnok::list_texts texts = {"): No sessions present.",
                                      "): API sesion count > apps session count."};

void fill_session(VARNOK_SESS_INFO &session, const varnok_drv_session_info &info)
{
    session.SessionNum = info.sess_num;
    session.SessionUnique = info.sess_unique;
    session.SessionState = static_cast<uint8_t>(info.state);
    copy_field(session.InitiatorName, info.init_iqn);
    session.InitIsIPv4 =
        static_cast<uint16_t>(varnok_is_non_zero(info.init_ipv4addr, sizeof info.init_ipv4addr));
    copy_field(session.InitIPv4Addr, info.init_ipv4addr);
    session.InitIPv4PortNum = info.init_ipv4_port;
    copy_field(session.InitIPv6Addr, info.init_ipv6addr);
    session.InitIPv6PortNum = info.init_ipv6_port;
    copy_field(session.TargetName, info.tgt_iqn);
    session.TgtIsIPv4 =
        static_cast<uint8_t>(varnok_is_non_zero(info.tgt_ipv4addr, sizeof info.tgt_ipv4addr));
    copy_field(session.TgtIPv4Addr, info.tgt_ipv4addr);
    session.TgtIPv4PortNum = info.tgt_ipv4_port;
    copy_field(session.TgtIPv6Addr, info.tgt_ipv6addr);
    session.TgtIPv6PortNum = info.tgt_ipv6_port;
    session.InitialR2T = static_cast<uint8_t>(info.initial_r2t);
    session.ImmediateData = static_cast<uint8_t>(info.imm_data);
    session.DataSequenceInOrder = static_cast<uint8_t>(info.dataseq_inorder);
    session.DataPDUInOrder = static_cast<uint8_t>(info.pdu_inorder);
    session.MaxOutstandingR2T = info.max_r2t;
    session.FirstBurstLength = info.first_burst_len;
    session.ErrorRecoveryLevel = info.erl;
    session.ConnID = info.cid;
}

} // namespace

uint32_t VARNOK_GetSessionInfo(uint32_t Handle, uint32_t *pSessCount, VARNOK_SESS_INFO **pSessInfo)
{
    LOG_TRACE("(", dec(Handle), "): entered.");
    varnok_priv_db *const pdb = varnok::port_of(__func__, Handle);
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    const uint32_t capacity = *pSessCount;
    const varnok::list_check check =
        varnok::check_list(__func__, Handle, pdb->session_cnt, pSessCount, pSessInfo, texts);
    if (check != varnok::list_check::fits)
        return varnok::status_of(check);
    varnok::heap_buffer<varnok_drv_session_info> info;
    if (!info) {
        LOG_ERROR("(", dec(Handle), varnok::operations_of(pdb).session_alloc_failed);
        return VARNOK_STATUS_NO_MEMORY;
    }
    // The count is read again at every turn, and must not outgrow the array.
    for (uint32_t i = 0; i < pdb->session_cnt && i < capacity; ++i) {
        varnok::clear(info.get(), sizeof *info);
        info->sess_num = i;
        uint32_t stat = 0;
        if (varnok::operations_of(pdb).get_sess_info(pdb, info.get(), &stat) != 0 || stat != 0) {
            LOG_ERROR("(", dec(Handle), "): session info ioctl failed, stat=", dec(stat),
                      " errno=", dec(errno));
            return varnok_xlate_err(stat);
        }
        fill_session((*pSessInfo)[i], *info);
    }
    info.release();
    LOG_TRACE("(", dec(Handle), "): exiting, rval=", hex(0));
    return VARNOK_STATUS_SUCCESS;
}
