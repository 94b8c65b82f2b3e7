#include "portal_sessions.h"

#include "initiator.h"
#include "records.h"

#include <cstring>
#include <utility>

namespace hostsim
{
namespace
{

constexpr uint32_t logged_in = 1, recovering = 0;

void add_setting(settings &to, std::span<const field> fields, std::string_view name,
                 std::string bytes)
{
    to.push_back({find_field(fields, name), std::move(bytes)});
}

template <class T>
std::string bytes_of(const T &value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

void add_endpoint(settings &to, std::span<const field> fields, const std::string &prefix,
                  const tcp_endpoint &endpoint)
{
    const bool on_ipv4 = !endpoint.ipv4.empty();
    if (!on_ipv4 && endpoint.ipv6.empty())
        return;
    const std::string name = prefix + (on_ipv4 ? "ipv4" : "ipv6");
    add_setting(to, fields, name + "addr", on_ipv4 ? endpoint.ipv4 : endpoint.ipv6);
    add_setting(to, fields, name + "_port", bytes_of(endpoint.tcp_port));
}

// Copies the names, addresses and state of the real session.
void describe_session(session_description &s)
{
    real_target &target = *s.real;
    const bool up = target.log_in() == 0;
    s.session_settings.clear();
    s.target_settings.clear();
    add_setting(s.session_settings, session_fields, "state", bytes_of(up ? logged_in : recovering));
    add_endpoint(s.session_settings, session_fields, "init_", target.own_endpoint());
    add_setting(s.target_settings, target_fields, "iqn", target.name().substr(0, 256));
    add_setting(s.target_settings, target_fields, "isid", target.isid());
    add_endpoint(s.target_settings, target_fields, "", target.target_endpoint());
}

// A known target keeps its connection.
std::shared_ptr<real_target> find_target(const port_description &p, const std::string &name)
{
    for (const session_description &s : p.sessions)
        if (s.real->name() == name)
            return s.real;
    return nullptr;
}

} // namespace

// The first refresh always succeeds: an adapter is there even when its network is not.
int refresh_sessions_from_portal(const port &p)
{
    port_description &described = *p.described;
    const bool first = !std::exchange(described.portal_asked, true);
    const varnok_drv_port_info info = port_record(p);
    const auto *iqn = reinterpret_cast<const char *>(info.iqn);
    portal_login login = {described.portal, {iqn, strnlen(iqn, sizeof info.iqn)}, 0};
    std::vector<std::string> names;
    if (const int failed = discover_targets(login, names))
        return first ? 0 : failed;

    std::vector<session_description> sessions;
    for (const std::string &name : names) {
        session_description s;
        s.first = static_cast<uint32_t>(sessions.size());
        s.real = find_target(described, name);
        if (s.real == nullptr) {
            login.session = static_cast<uint16_t>(s.first + 1);
            s.real = std::make_shared<real_target>(login, name);
        }
        describe_session(s);
        sessions.push_back(std::move(s));
    }
    described.sessions = std::move(sessions);
    described.session_count = static_cast<uint32_t>(names.size());
    return 0;
}

} // namespace hostsim
