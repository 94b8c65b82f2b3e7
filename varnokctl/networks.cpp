#include "varnokctl/networks.h"

#include "varnokctl/fields.h"
#include "varnokctl/wrapping.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <span>

namespace ctl
{
namespace
{

void add_network(place_set &places, std::span<const uint8_t, 4> address)
{
    const std::array<uint8_t, 4> network = {address[0], address[1], address[2], 0};
    const bool link_local = address[0] == 169 && address[1] == 254;
    if (!link_local && address[0] != 0)
        places.insert(ip_address(network) + "/24");
}

void add_network(place_set &places, std::span<const uint8_t, 16> address)
{
    constexpr size_t prefix = 8;
    std::array<uint8_t, 16> network{};
    std::ranges::copy(address.first<prefix>(), network.begin());
    const std::string text = ip_address(network);
    const bool link_local = address[0] == 0xFE && (address[1] & 0xC0) == 0x80;
    if (!link_local && !text.empty())
        places.insert(text + "/64");
}

void add_name(place_set &places, std::span<const uint8_t> field, const output_style &style)
{
    const std::string name = field_text(field, style);
    if (!name.empty())
        places.insert(name);
}

void add_session(place_set &places, const VARNOK_SESS_INFO &session, const output_style &style)
{
    add_network(places, session.InitIPv4Addr);
    add_network(places, session.InitIPv6Addr);
    add_network(places, session.TgtIPv4Addr);
    add_network(places, session.TgtIPv6Addr);
    add_name(places, session.TargetName, style);
}

void add_target(place_set &places, const VARNOK_TGT_INFO &target, const output_style &style)
{
    add_network(places, target.IPv4Addr);
    add_network(places, target.IPv6Addr);
    add_name(places, target.TargetName, style);
}

place_set places_of(const port_entry &port, const output_style &style)
{
    place_set places;
    if (port.portal) {
        add_network(places, port.portal->IPv4Addr);
        add_network(places, port.portal->IPv6Addr);
    }
    for (const session_entry &session : port.sessions)
        add_session(places, session.info, style);
    for (const target_entry &target : port.targets)
        add_target(places, target.info, style);
    return places;
}

} // namespace

port_places::port_places(const inventory &host, const output_style &style) : style_(style)
{
    for (const port_entry &port : host.ports)
        for (const std::string &place : places_of(port, style))
            places_[place].push_back(&port);
}

std::vector<const port_entry *> port_places::others(const port_entry &port,
                                                    const target_entry &target) const
{
    place_set leads_to;
    add_target(leads_to, target.info, style_);
    const session_entry *session = session_of(port, target.info.ScsiTgtNum);
    if (session != nullptr)
        add_session(leads_to, session->info, style_);
    const auto by_number = [](const port_entry *a, const port_entry *b) {
        return a->instance < b->instance;
    };
    std::set<const port_entry *, decltype(by_number)> found;
    for (const std::string &place : leads_to)
        found.insert(places_.at(place).begin(), places_.at(place).end());
    found.erase(&port);
    return {found.begin(), found.end()};
}

std::string port_list(const std::vector<const port_entry *> &ports)
{
    constexpr size_t most_named = 8;
    std::vector<std::string> names;
    for (const port_entry *port : ports) {
        if (names.size() == most_named) {
            names.push_back(fmt::format("{} more", ports.size() - most_named));
            break;
        }
        names.push_back(fmt::to_string(port->instance));
    }
    return (ports.size() == 1 ? "port " : "ports ") + listed(names);
}

} // namespace ctl
