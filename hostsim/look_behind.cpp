// look_behind.cpp - the sessions of a port that stands on a real portal.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "live.h"
#include "machine.h"
#include "records.h"

namespace hostsim
{
namespace
{

constexpr uint32_t logged_in = 1, recovering = 0;
constexpr uint32_t status_failed = 1;

void give(settings &to, std::span<const field> fields, std::string_view name, std::string bytes)
{
    to.push_back({find_field(fields, name), std::move(bytes)});
}

std::string number(uint32_t value, size_t size)
{
    return std::string(reinterpret_cast<const char *>(&value), size);
}

void give_address(settings &to, std::span<const field> fields, const std::string &prefix,
                  const live_address &address)
{
    if (address.ipv4.empty() && address.ipv6.empty())
        return;
    const std::string family = address.ipv4.empty() ? "ipv6" : "ipv4";
    give(to, fields, prefix + family + "addr", address.ipv4.empty() ? address.ipv6 : address.ipv4);
    give(to, fields, prefix + family + "_port", number(address.port, 2));
}

// What the library sees of a session: the real one's names, addresses and state.
void describe(session_description &s)
{
    live_target &live = *s.live;
    const bool up = live.log_in() == 0;
    s.session.clear();
    s.target.clear();
    give(s.session, session_fields, "state", number(up ? logged_in : recovering, 4));
    give_address(s.session, session_fields, "init_", live.own_address());
    give(s.target, target_fields, "iqn", live.name().substr(0, 256));
    give(s.target, target_fields, "isid", live.isid());
    give_address(s.target, target_fields, "", live.target_address());
}

} // namespace

// The first request, which makes the port known, succeeds whatever the portal does: an adapter is
// there without its network.
int look_behind(const port &p)
{
    const bool first = !std::exchange(p.described->portal_asked, true);
    const varnok_drv_port_info info = port_record(p);
    const auto *iqn = reinterpret_cast<const char *>(info.iqn);
    live_login login = {p.described->portal, {iqn, strnlen(iqn, sizeof info.iqn)}, 0};
    std::vector<std::string> names;
    if (const int failed = discover_targets(login, names))
        return first ? 0 : failed;

    std::vector<session_description> sessions;
    for (const std::string &name : names) {
        session_description s;
        s.first = static_cast<uint32_t>(sessions.size());
        for (const session_description &known : p.described->sessions)
            if (known.live->name() == name)
                s.live = known.live;
        if (!s.live) {
            login.session = static_cast<uint16_t>(s.first + 1);
            s.live = std::make_shared<live_target>(login, name);
        }
        describe(s);
        sessions.push_back(std::move(s));
    }
    p.described->sessions = std::move(sessions);
    p.described->session_count = static_cast<uint32_t>(names.size());
    return 0;
}

uint32_t machine::answer_live(exchange &e, live_target &target, uint64_t lun,
                              const scsi_command &command)
{
    constexpr uint8_t good = 0, check_condition = 2;
    const live_reply reply = target.run(lun, command);
    e.transport_errno = reply.error;
    if (reply.error != 0)
        return 0;
    poke(e.record, static_cast<uint32_t>(reply.moved),
         offsetof(varnok_drv_scsi_cmd_ioctl, data_len));
    store_sense(e, reply.sense);
    if (reply.scsi_status == check_condition)
        return described.check_condition_status;
    return reply.scsi_status == good ? 0 : status_failed;
}

} // namespace hostsim
