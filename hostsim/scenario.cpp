#include "scenario.h"

#include "disk.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <numeric>
#include <utility>

namespace hostsim
{
namespace
{

constexpr uint32_t most_ports = 65536; // a legacy driver takes 16 bits
constexpr uint32_t most_sessions = 65536;
constexpr uint32_t most_luns = 65536; // a disk's identity has 16 bits for them
constexpr uint32_t first_host_no = 32;
constexpr uint64_t default_disk_size = 100ull << 30;

// The schema of a captured host's document.
constexpr std::array<std::string_view, 1> capture_schemas = {"varnok/1"};

// ---- LUNs -------------------------------------------------------------------------------------

void check_lun(lun_description &d, const place &at, const std::string &folder)
{
    d.size = d.given_size.value_or(is_disk(d) ? default_disk_size : 0);
    if (d.size % d.block_size != 0)
        place{&at, "size"}.fail("not a multiple of the block size " + std::to_string(d.block_size));
    if (d.first.raw && d.copies != 1)
        place{&at, "repeat"}.fail("not for a LUN that is given as its bytes");
    if (!d.first.raw && d.first.number + d.copies - 1 > lun_number_max)
        at.fail("its LUNs go beyond " + std::to_string(lun_number_max));
    if (!d.file)
        return;
    d.file = std::filesystem::path(folder) / *d.file;
    const std::string error = prepare_file(*d.file, d.size);
    if (!error.empty())
        place{&at, "file"}.fail(error);
}

void add_luns(session_description &into, lun_description d)
{
    const auto description = static_cast<uint32_t>(into.lun_descriptions.size());
    into.luns.push_back({d.first.wire, description});
    for (uint32_t k = 1; k < d.copies; ++k)
        into.luns.push_back({numbered_lun(d.first.number + k).wire, description});
    into.lun_descriptions.push_back(std::move(d));
}

void sort_luns(session_description &s)
{
    s.luns_by_wire.resize(s.luns.size());
    std::iota(s.luns_by_wire.begin(), s.luns_by_wire.end(), 0);
    std::ranges::sort(s.luns_by_wire, {}, [&](uint32_t k) { return s.luns[k].wire; });
}

void read_luns(const json &array, const place &at, const std::string &folder,
               session_description &into)
{
    uint32_t next_number = 0;
    into.luns.clear();
    into.lun_descriptions.clear();
    each_element(array, at, [&](const json &value, const place &here) {
        lun_description d;
        d.first = numbered_lun(next_number);
        read_members(d, value, here, lun_members);
        check_lun(d, here, folder);
        if (!d.first.raw)
            next_number = d.first.number + d.copies;
        add_luns(into, std::move(d));
        if (into.luns.size() > most_luns)
            at.fail("more than " + std::to_string(most_luns) + " LUNs");
    });

    sort_luns(into);
    const auto wire = [&](uint32_t k) { return into.luns[k].wire; };
    if (std::ranges::adjacent_find(into.luns_by_wire, {}, wire) != into.luns_by_wire.end())
        at.fail("a LUN is there twice");
}

// One disk with every default.
void add_default_lun(session_description &into)
{
    lun_description d;
    d.size = default_disk_size;
    add_luns(into, std::move(d));
    sort_luns(into);
}

// ---- Sessions ---------------------------------------------------------------------------------

void read_target(const json &object, const place &at, session_description &into)
{
    each_member(object, at, [&](std::string_view name, const json &value, const place &here) {
        if (!read_field(target_fields, into.target_settings, name, value, here))
            here.fail("unknown field");
    });
}

void read_session(const json &object, const place &at, const std::string &folder,
                  port_description &into)
{
    session_description s;
    s.first = into.session_count;
    add_default_lun(s);
    read_members(s, object, at, session_members,
                 [&](std::string_view name, const json &value, const place &here) {
                     if (name == "luns")
                         read_luns(value, here, folder, s);
                     else if (name == "target")
                         read_target(value, here, s);
                     else
                         return read_field(session_fields, s.session_settings, name, value, here);
                     return true;
                 });

    into.session_count += s.copies;
    if (into.session_count > most_sessions)
        at.fail("more than " + std::to_string(most_sessions) + " sessions on a port");
    into.sessions.push_back(std::move(s));
}

// ---- Ports ------------------------------------------------------------------------------------

// Adds the copies of a port, each with its own identity.
void add_ports(scenario &s, const place &at, port_description &described)
{
    driver_ports &same = s.of(described.driver);
    same.present = true;

    for (uint32_t k = 0; k < described.copies; ++k) {
        if (s.ports.size() == most_ports)
            at.fail("more than " + std::to_string(most_ports) + " ports");
        port p{};
        p.described = &described;
        p.index = static_cast<uint32_t>(s.ports.size());
        p.instance = static_cast<uint32_t>(same.by_instance.size());
        p.host_no = described.host_no ? *described.host_no + k : first_host_no + p.index;
        if (!s.ports.empty()) {
            const port &last = s.ports.back();
            p.first_target = last.first_target + last.described->session_count;
        }
        p.board = p.instance % 2 == 1 ? same.by_instance.back()->board : s.boards++;

        const port *made = &s.ports.emplace_back(p);
        same.by_instance.push_back(made);
        same.answering += described.absent ? 0 : 1;
        if (!same.by_host_no.emplace(p.host_no, made).second)
            place{&at, "host_no"}.fail("host number " + std::to_string(p.host_no) +
                                       " is another port's of the driver");
    }
}

void read_port(const json &object, const place &at, const std::string &folder, scenario &into)
{
    port_description &p = into.descriptions.emplace_back();
    read_members(p, object, at, port_members,
                 [&](std::string_view name, const json &value, const place &here) {
                     if (name != "sessions")
                         return read_field(pci_fields, p.pci_settings, name, value, here) ||
                                read_field(port_fields, p.port_settings, name, value, here);
                     each_element(value, here, [&](const json &session, const place &there) {
                         read_session(session, there, folder, p);
                     });
                     return true;
                 });
    if (!p.portal.empty() && (p.copies != 1 || !p.sessions.empty()))
        place{&at, "portal"}.fail("its targets are the only sessions of one port");
    add_ports(into, at, p);
}

// ---- The whole --------------------------------------------------------------------------------

void read_top_member(std::string_view name, const json &value, const place &at,
                     const std::string &folder, scenario &into)
{
    if (name == "host")
        read_members(into, value, at, host_members);
    else if (name == "drivers")
        each_element(value, at, [&](const json &driver, const place &here) {
            into.of(to_driver(driver, here)).present = true;
        });
    else if (name == "ports")
        each_element(value, at, [&](const json &object, const place &here) {
            read_port(object, here, folder, into);
        });
    else if (name == "faults")
        each_element(value, at, [&](const json &object, const place &here) {
            into.faults.push_back(read_fault(object, here));
        });
    else if (name == "schema")
        to_choice(value, at, capture_schemas);
    else if (name != "command" && name != "complete" && name != "failures") // of a captured host
        at.fail("unknown field");
}

// The ports may follow the faults, so this check comes last.
void check_fault_instances(const scenario &s)
{
    for (size_t i = 0; i < s.faults.size(); ++i) {
        const fault &f = s.faults[i];
        const place at{nullptr, "faults", i};
        if (f.instance && *f.instance >= s.of(f.driver).by_instance.size())
            place{&at, "instance"}.fail("the driver has no such port");
    }
}

} // namespace

const session_description *port_description::find_session(uint32_t number) const
{
    if (number >= session_count)
        return nullptr;
    auto after =
        std::upper_bound(sessions.begin(), sessions.end(), number,
                         [](uint32_t n, const session_description &s) { return n < s.first; });
    return &*std::prev(after);
}

scenario read_scenario(std::string_view text, const std::string &base)
{
    scenario s;
    parse_document(text, [&](const json &document) {
        each_member(document, place{},
                    [&](std::string_view name, const json &value, const place &at) {
                        read_top_member(name, value, at, base, s);
                    });
    });
    check_fault_instances(s);
    return s;
}

} // namespace hostsim
