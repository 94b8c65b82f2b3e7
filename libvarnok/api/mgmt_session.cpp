// The sessions of a port.
#include "api/caller_array.h"
#include "api/exported_call.h"
#include "support/heap_buffer.h"
#include "support/varnok_bytes.h"

using namespace varnok;

namespace
{

constexpr list_texts texts = {"): No sessions present.",
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

using session_array = caller_array<VARNOK_SESS_INFO>;

uint32_t list_sessions(const exported_call &call, varnok_priv_db *pdb,
                       const session_array &sessions)
{
    const heap_buffer<varnok_drv_session_info> info;
    if (!info)
        return call.fails(VARNOK_STATUS_NO_MEMORY, backend_of(pdb).session_alloc_failed);
    // The count is read again at every turn, and must not outgrow the array.
    for (uint32_t i = 0; i < pdb->session_cnt && i < sessions.capacity(); ++i) {
        clear(info.get(), sizeof *info);
        info->sess_num = i;
        uint32_t stat = 0;
        if (backend_of(pdb).get_sess_info(pdb, info.get(), &stat) != 0 || stat != 0)
            return call.request_fails("): session info ioctl failed, stat=", stat);
        sessions.write(i, [&](VARNOK_SESS_INFO &session) { fill_session(session, *info); });
    }
    return VARNOK_STATUS_SUCCESS;
}

} // namespace

uint32_t VARNOK_GetSessionInfo(uint32_t Handle, uint32_t *pSessCount, VARNOK_SESS_INFO **pSessInfo)
{
    const exported_call call(__func__, Handle, "): entered.");
    varnok_priv_db *const pdb = call.port();
    if (pdb == nullptr)
        return VARNOK_STATUS_FAILED;
    const uint32_t capacity = *pSessCount;
    const list_verdict list = call.check_list(pdb->session_cnt, pSessCount, pSessInfo, texts);
    if (!list.fits)
        return list.status;
    return call.ends(list_sessions(call, pdb, {*pSessInfo, capacity}));
}
