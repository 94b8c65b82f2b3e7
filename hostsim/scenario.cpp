#include "scenario.h"

#include "disk.h"
#include "members.h"
#include "requests.h"
#include "scenario_json.h"
#include "values.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <numeric>
#include <utility>

namespace hostsim
{
namespace
{

constexpr uint32_t most_copies = 65536; // of one description
constexpr uint32_t most_ports = 65536;  // a legacy driver takes 16 bits
constexpr uint32_t most_sessions = 65536;
constexpr uint32_t most_luns = 65536; // a disk's identity has 16 bits for them
constexpr uint32_t first_host_no = 32;

constexpr std::array<std::string_view, 1> capture_schemas = {"varnok/1"};

driver_id to_driver(const json &value, const place &at)
{
    return drivers[to_choice(value, at, driver_names)].id;
}

request to_request(const json &value, const place &at)
{
    return requests[to_choice(value, at, request_names)].what;
}

// Descriptions with what only their reading needs. The folder is the scenario's.
struct lun_draft : lun_description {
    uint32_t copies = 1;
    lun_number first{};
    std::optional<uint64_t> given_size{};
    std::optional<std::string> given_file{};
};

struct session_draft : session_description {
    const std::string &folder;
    uint32_t next_lun = 0;
};

struct port_draft : port_description {
    const std::string &folder;
    uint32_t copies = 1;
    std::optional<uint32_t> host_no{};
};

// ---- LUNs -------------------------------------------------------------------------------------

constexpr member<lun_draft> lun_members[] = {
    {"repeat", number<&lun_draft::copies, 1, lun_number_max + 1>},
    {"lun", made_by<&lun_draft::first, to_lun>},
    {"size", made_by<&lun_draft::given_size, to_byte_count>},
    {"block_size", number<&lun_draft::block_size, 1>},
    {"device_type", number<&lun_draft::device_type>},
    {"vendor", text<&lun_draft::vendor, 8>},
    {"product", text<&lun_draft::product, 16>},
    {"revision", text<&lun_draft::revision, 4>},
    {"file", text<&lun_draft::given_file>},
};

void check_lun(lun_draft &d, const place &at, const std::string &folder)
{
    d.size = d.given_size.value_or(is_disk(d) ? 100ull << 30 : 0);
    if (d.size % d.block_size != 0)
        place{&at, "size"}.fail("not a multiple of the block size " + std::to_string(d.block_size));
    if (d.first.raw && d.copies != 1)
        place{&at, "repeat"}.fail("not for a LUN that is given as its bytes");
    if (!d.first.raw && d.first.number + d.copies - 1 > lun_number_max)
        at.fail("its LUNs go beyond " + std::to_string(lun_number_max));
    if (!d.given_file)
        return;
    d.file = std::filesystem::path(folder) / *d.given_file;
    const std::string error = prepare_file(d.file, d.size);
    if (!error.empty())
        place{&at, "file"}.fail(error);
}

void read_lun(session_draft &into, const json &object, const place &at)
{
    lun_draft d;
    d.first = {lun_wire(into.next_lun), false, into.next_lun};
    read_members(d, object, at, lun_members);
    check_lun(d, at, into.folder);

    const auto description = static_cast<uint32_t>(into.lun_descriptions.size());
    if (d.first.raw) {
        into.luns.push_back({d.first.wire, description});
    } else {
        for (uint32_t k = 0; k < d.copies; ++k)
            into.luns.push_back({lun_wire(d.first.number + k), description});
        into.next_lun = d.first.number + d.copies;
    }
    into.lun_descriptions.push_back(std::move(d));
}

void sort_luns(session_description &s)
{
    s.luns_by_wire.resize(s.luns.size());
    std::iota(s.luns_by_wire.begin(), s.luns_by_wire.end(), 0);
    std::ranges::sort(s.luns_by_wire, {}, [&](uint32_t k) { return s.luns[k].wire; });
}

void read_luns(session_draft &into, const json &array, const place &at)
{
    into.luns.clear();
    into.lun_descriptions.clear();
    into.next_lun = 0;
    each_element(array, at, [&](const json &value, const place &here) {
        read_lun(into, value, here);
        if (into.luns.size() > most_luns)
            at.fail("more than " + std::to_string(most_luns) + " LUNs");
    });

    sort_luns(into);
    const auto wire = [&](uint32_t k) { return into.luns[k].wire; };
    if (std::ranges::adjacent_find(into.luns_by_wire, {}, wire) != into.luns_by_wire.end())
        at.fail("a LUN is there twice");
}

// ---- Sessions ---------------------------------------------------------------------------------

void read_target(session_draft &into, const json &object, const place &at)
{
    read_members(into, object, at, {}, {{target_fields, into.target_settings}});
}

constexpr member<session_draft> session_members[] = {
    {"repeat", number<&session_draft::copies, 1, most_copies>},
    {"luns", read_luns},
    {"target", read_target},
};

void read_session(port_draft &into, const json &object, const place &at)
{
    session_draft s{{}, into.folder};
    s.first = into.session_count;
    read_luns(s, json::array({json::object()}), at);
    read_members(s, object, at, session_members, {{session_fields, s.session_settings}});

    into.session_count += s.copies;
    if (into.session_count > most_sessions)
        at.fail("more than " + std::to_string(most_sessions) + " sessions on a port");
    into.sessions.push_back(std::move(s));
}

// ---- Ports ------------------------------------------------------------------------------------

constexpr member<port_draft> port_members[] = {
    {"driver", made_by<&port_draft::driver, to_driver>, required},
    {"repeat", number<&port_draft::copies, 1, most_copies>},
    {"host_no", number<&port_draft::host_no>},
    {"absent", made_by<&port_draft::absent, to_bool>},
    {"portal", made_by<&port_draft::portal, to_portal>},
    {"sessions", array_of<read_session>},
};

// Adds the copies of a port, each with its own identity.
void add_ports(scenario &s, const place &at, port_draft draft)
{
    const uint32_t copies = draft.copies;
    const std::optional<uint32_t> host_no = draft.host_no;
    port_description &described = s.descriptions.emplace_back(std::move(draft));
    driver_ports &same = s.of(described.driver);
    same.present = true;

    for (uint32_t k = 0; k < copies; ++k) {
        if (s.ports.size() == most_ports)
            at.fail("more than " + std::to_string(most_ports) + " ports");
        port p{};
        p.described = &described;
        p.index = static_cast<uint32_t>(s.ports.size());
        p.instance = static_cast<uint32_t>(same.by_instance.size());
        p.host_no = host_no ? *host_no + k : first_host_no + p.index;
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

void read_port(scenario &into, const json &object, const place &at)
{
    port_draft p{{}, into.folder};
    read_members(p, object, at, port_members,
                 {{pci_fields, p.pci_settings}, {port_fields, p.port_settings}});
    if (!p.portal.empty() && (p.copies != 1 || !p.sessions.empty()))
        place{&at, "portal"}.fail("its targets are the only sessions of one port");
    add_ports(into, at, std::move(p));
}

// ---- Faults -----------------------------------------------------------------------------------

constexpr member<fault> fault_members[] = {
    {"driver", made_by<&fault::driver, to_driver>, required},
    {"request", made_by<&fault::what, to_request>, required},
    {"instance", number<&fault::instance>},
    {"nth", number<&fault::nth, 1>},
    {"times", number<&fault::times>},
    {"status", number<&fault::status, 1>},
    {"errno", made_by<&fault::error, to_error_number>},
    {"sense", made_by<&fault::sense, to_sense>},
};

void read_fault(scenario &into, const json &object, const place &at)
{
    fault f;
    read_members(f, object, at, fault_members);

    const asked_of whom = facts(f.what).whom;
    if (whom == (is_native(f.driver) ? asked_of::legacy_driver : asked_of::native_driver))
        place{&at, "request"}.fail("not made to this driver");
    if (f.instance && whom != asked_of::one_port)
        place{&at, "instance"}.fail("the request is not made to a port");
    if (f.sense && f.what != request::scsi_cmd)
        place{&at, "sense"}.fail("only for scsi_cmd");
    if (f.status && f.what == request::open)
        place{&at, "status"}.fail("not for open");
    if (!f.status && !f.error && !f.sense && f.what != request::open)
        at.fail("nothing fails: status, errno or sense is missing");
    into.faults.push_back(f);
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

// ---- The whole --------------------------------------------------------------------------------

constexpr member<scenario> host_members[] = {
    {"sysname", text<&scenario::sysname, 64>},
    {"euid", number<&scenario::euid>},
    {"check_condition_status", number<&scenario::check_condition_status>},
};

void read_host(scenario &into, const json &object, const place &at)
{
    read_members(into, object, at, host_members);
}

void read_present_driver(scenario &into, const json &value, const place &at)
{
    into.of(to_driver(value, at)).present = true;
}

void check_schema(scenario &, const json &value, const place &at)
{
    to_choice(value, at, capture_schemas);
}

// The last four are in the document of a captured host.
constexpr member<scenario> scenario_members[] = {
    {"host", read_host},
    {"drivers", array_of<read_present_driver>},
    {"ports", array_of<read_port>},
    {"faults", array_of<read_fault>},
    {"schema", check_schema},
    {"command", ignored},
    {"complete", ignored},
    {"failures", ignored},
};

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
    s.folder = base;
    read_members(s, parse_document(text), place{}, scenario_members);
    check_fault_instances(s);
    return s;
}

} // namespace hostsim
