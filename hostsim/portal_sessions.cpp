#include "portal_sessions.h"

#include "initiator.h"
#include "messages.h"
#include "records.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace hostsim
{
namespace
{

constexpr uint32_t logged_in = 1, recovering = 0;

std::string initiator_name(const port &p)
{
    const varnok_drv_port_info info = port_record(p);
    return {reinterpret_cast<const char *>(info.iqn),
            strnlen(reinterpret_cast<const char *>(info.iqn), sizeof info.iqn)};
}

// A known target keeps its connection.
std::shared_ptr<real_target> find_target(const port_description &p, const std::string &name)
{
    const auto known = std::ranges::lower_bound(
        p.sessions, name, {}, [](const session_description &s) { return s.real->name(); });
    return known != p.sessions.end() && known->real->name() == name ? known->real : nullptr;
}

template <size_t N>
void put_text(uint8_t (&to)[N], const std::string &text)
{
    std::memcpy(to, text.data(), std::min(N, text.size()));
}

// The record has room for an address of each kind.
template <class Record>
void put_endpoint(const tcp_endpoint &from, Record &r, size_t ipv4_port, size_t ipv4,
                  size_t ipv6_port, size_t ipv6)
{
    const bool on_ipv4 = !from.ipv4.empty();
    const std::string &address = on_ipv4 ? from.ipv4 : from.ipv6;
    auto *const bytes = reinterpret_cast<uint8_t *>(&r);
    std::ranges::copy(address, bytes + (on_ipv4 ? ipv4 : ipv6));
    std::memcpy(bytes + (on_ipv4 ? ipv4_port : ipv6_port), &from.tcp_port, sizeof from.tcp_port);
}

} // namespace

// The first refresh always succeeds: an adapter is there even when its network is not.
int refresh_sessions_from_portal(const port &p)
{
    port_description &described = *p.described;
    const bool first = !std::exchange(described.portal_asked, true);
    const std::string port_text = "port " + std::to_string(p.index);
    const portal_access access = {described.portal, initiator_name(p), port_text};
    const auto began = iscsi::clock::now();
    const iscsi::deadline until = began + 2 * longest_wait();
    offered_targets offered;
    if (const int failed = discover_targets(access, began + longest_wait(), offered))
        return first ? 0 : failed;
    const std::vector<std::string> &names = offered.names;

    std::vector<session_description> sessions;
    size_t unreached = 0;
    for (const std::string &name : names) {
        session_description s;
        s.first = static_cast<uint32_t>(sessions.size());
        s.real = find_target(described, name);
        if (s.real == nullptr)
            s.real = std::make_shared<real_target>(access, name);
        const progress line(port_text + ": logging in to target " + std::to_string(s.first) +
                            " of " + std::to_string(names.size()));
        if (!s.real->begin_query(s.first, offered.address, until) && iscsi::clock::now() >= until)
            ++unreached;
        sessions.push_back(std::move(s));
    }
    if (unreached != 0)
        complain_once(port_text + ": the time is up, and " + std::to_string(unreached) +
                      " targets were not logged in to");
    described.sessions = std::move(sessions);
    described.session_count = static_cast<uint32_t>(names.size());
    return 0;
}

varnok_drv_session_info real_session_record(const port &p, const real_target &target,
                                            uint32_t number)
{
#define AT(field) offsetof(varnok_drv_session_info, field)
    varnok_drv_session_info r{};
    r.sess_num = number;
    r.state = recovering;
    put_text(r.init_iqn, initiator_name(p));
    put_text(r.tgt_iqn, target.name());
    const iscsi::session *const session = target.session();
    if (session == nullptr)
        return r;

    const iscsi::parameters &agreed = session->agreed();
    char isid[sizeof r.isid + 1] = "";
    for (size_t i = 0; i < target.isid().size(); ++i)
        snprintf(isid + 2 * i, sizeof isid - 2 * i, "%02x", unsigned{target.isid()[i]});
    put_text(r.isid, isid);
    put_endpoint(target.own_endpoint(), r, AT(init_ipv4_port), AT(init_ipv4addr),
                 AT(init_ipv6_port), AT(init_ipv6addr));
    put_endpoint(target.target_endpoint(), r, AT(tgt_ipv4_port), AT(tgt_ipv4addr),
                 AT(tgt_ipv6_port), AT(tgt_ipv6addr));
    r.sess_unique = session->tsih();
    r.state = logged_in;
    r.initial_r2t = agreed.initial_r2t;
    r.max_r2t = agreed.max_outstanding_r2t;
    r.imm_data = agreed.immediate_data;
    r.first_burst_len = agreed.first_burst_length;
    r.max_burst_len = agreed.max_burst_length;
    r.time2wait = agreed.time2wait;
    r.time2retain = agreed.time2retain;
    r.pdu_inorder = agreed.data_pdu_in_order;
    r.dataseq_inorder = agreed.data_sequence_in_order;
    r.erl = agreed.error_recovery_level;
    r.tgt_prtl_grp = agreed.portal_group;
    r.num_active_conn = 1;
    r.max_conns = agreed.max_connections;
    return r;
#undef AT
}

} // namespace hostsim
