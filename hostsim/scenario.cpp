#include "scenario.h"

#include <algorithm>
#include <filesystem>
#include <numeric>

#include "disk.h"
#include "requests.h"
#include "values.h"

namespace hostsim
{
namespace
{

constexpr uint32_t most_copies = 65536; // of one description
constexpr uint32_t most_ports = 65536;  // a legacy driver is told 16 bits
constexpr uint32_t most_sessions = 65536;
constexpr uint32_t most_luns = 65536; // a disk's identity keeps 16 bits for them
constexpr uint32_t first_host_no = 32;

// A captured host says besides which command made the document, and what failed.
constexpr std::array<std::string_view, 1> capture_schemas = {"varnok/1"};

// Takes the value when fields has the key.
bool read_field(std::span<const field> fields, settings &into, std::string_view key,
                const json &value, const place &at)
{
    const field *f = find_field(fields, key);
    if (f)
        into.push_back({f, to_field(value, at, *f)});
    return f != nullptr;
}

driver_id read_driver(const json &value, const place &at)
{
    return static_cast<driver_id>(to_choice(value, at, driver_names));
}

void read_lun(const json &object, const place &at, const std::string &base, uint32_t &next_number,
              session_description &into)
{
    lun_description d;
    std::optional<uint64_t> size;
    uint32_t copies = 1;
    lun_number first{lun_wire(next_number), false, next_number};

    each_member(object, at, [&](const std::string &key, const json &value, const place &here) {
        if (key == "repeat")
            copies = to_u32(value, here, 1, lun_number_max + 1);
        else if (key == "lun")
            first = to_lun(value, here);
        else if (key == "size")
            size = to_byte_count(value, here);
        else if (key == "block_size")
            d.block_size = to_u32(value, here, 1);
        else if (key == "device_type")
            d.device_type = static_cast<uint8_t>(to_u32(value, here, 0, UINT8_MAX));
        else if (key == "vendor")
            d.vendor = to_text(value, here, 8);
        else if (key == "product")
            d.product = to_text(value, here, 16);
        else if (key == "revision")
            d.revision = to_text(value, here, 4);
        else if (key == "file")
            d.file = std::filesystem::path(base) / to_text(value, here, SIZE_MAX);
        else
            here.fail("unknown field");
    });

    d.size = size.value_or(is_disk(d) ? 100ull << 30 : 0);
    if (d.size % d.block_size != 0)
        place{&at, "size"}.fail("not a multiple of the block size " + std::to_string(d.block_size));
    if (first.raw && copies != 1)
        place{&at, "repeat"}.fail("not for a LUN that is given as its bytes");
    if (!first.raw && first.number + copies - 1 > lun_number_max)
        at.fail("its LUNs go beyond " + std::to_string(lun_number_max));
    if (!d.file.empty()) {
        std::string error = prepare_file(d.file, d.size);
        if (!error.empty())
            place{&at, "file"}.fail(error);
    }

    auto description = static_cast<uint32_t>(into.lun_descriptions.size());
    into.lun_descriptions.push_back(std::move(d));
    if (first.raw)
        into.luns.push_back({first.wire, description});
    for (uint32_t k = 0; !first.raw && k < copies; k++)
        into.luns.push_back({lun_wire(first.number + k), description});
    if (!first.raw)
        next_number = first.number + copies;
}

void sort_luns(session_description &s)
{
    s.luns_by_wire.resize(s.luns.size());
    std::iota(s.luns_by_wire.begin(), s.luns_by_wire.end(), 0);
    std::ranges::sort(s.luns_by_wire, {}, [&](uint32_t k) { return s.luns[k].wire; });
}

void read_luns(const json &array, const place &at, const std::string &base,
               session_description &into)
{
    uint32_t next_number = 0;
    into.luns.clear();
    into.lun_descriptions.clear();
    each_element(array, at, [&](const json &value, const place &here) {
        read_lun(value, here, base, next_number, into);
        if (into.luns.size() > most_luns)
            at.fail("more than " + std::to_string(most_luns) + " LUNs");
    });

    sort_luns(into);
    const auto wire = [&](uint32_t k) { return into.luns[k].wire; };
    if (std::ranges::adjacent_find(into.luns_by_wire, {}, wire) != into.luns_by_wire.end())
        at.fail("a LUN is there twice");
}

void read_session(const json &object, const place &at, const std::string &base,
                  port_description &into)
{
    session_description s;
    s.first = into.session_count;
    read_luns(json::array({json::object()}), at, base, s);

    each_member(object, at, [&](const std::string &key, const json &value, const place &here) {
        if (key == "repeat")
            s.copies = to_u32(value, here, 1, most_copies);
        else if (key == "luns")
            read_luns(value, here, base, s);
        else if (key == "target")
            each_member(value, here,
                        [&](const std::string &name, const json &v, const place &there) {
                            if (!read_field(target_fields, s.target, name, v, there))
                                there.fail("unknown field");
                        });
        else if (!read_field(session_fields, s.session, key, value, here))
            here.fail("unknown field");
    });

    into.session_count += s.copies;
    if (into.session_count > most_sessions)
        at.fail("more than " + std::to_string(most_sessions) + " sessions on a port");
    into.sessions.push_back(std::move(s));
}

// Gives every copy of a port its identity.
void add_ports(scenario &s, const place &at, uint32_t copies, std::optional<uint32_t> host_no)
{
    port_description &described = s.descriptions.back();
    driver_ports &same = s.of(described.driver);
    same.present = true;

    for (uint32_t k = 0; k < copies; k++) {
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

void read_port(const json &object, const place &at, const std::string &base, scenario &into)
{
    port_description &p = into.descriptions.emplace_back();
    bool driver_given = false;
    uint32_t copies = 1;
    std::optional<uint32_t> host_no;

    each_member(object, at, [&](const std::string &key, const json &value, const place &here) {
        if (key == "driver") {
            p.driver = read_driver(value, here);
            driver_given = true;
        } else if (key == "repeat")
            copies = to_u32(value, here, 1, most_copies);
        else if (key == "host_no")
            host_no = to_u32(value, here);
        else if (key == "absent")
            p.absent = to_bool(value, here);
        else if (key == "portal")
            p.portal = to_portal(value, here);
        else if (key == "sessions")
            each_element(value, here, [&](const json &v, const place &there) {
                read_session(v, there, base, p);
            });
        else if (!read_field(pci_fields, p.pci, key, value, here) &&
                 !read_field(port_fields, p.port, key, value, here))
            here.fail("unknown field");
    });

    if (!driver_given)
        at.fail("driver is missing");
    if (!p.portal.empty() && (copies != 1 || !p.sessions.empty()))
        place{&at, "portal"}.fail("its targets are the only sessions of one port");
    add_ports(into, at, copies, host_no);
}

void read_fault(const json &object, const place &at, scenario &into)
{
    fault f;
    bool driver_given = false, request_given = false;

    each_member(object, at, [&](const std::string &key, const json &value, const place &here) {
        if (key == "driver") {
            f.driver = read_driver(value, here);
            driver_given = true;
        } else if (key == "request") {
            f.what = static_cast<request>(to_choice(value, here, request_names));
            request_given = true;
        } else if (key == "instance")
            f.instance = to_u32(value, here);
        else if (key == "nth")
            f.nth = to_u32(value, here, 1);
        else if (key == "times")
            f.times = to_u32(value, here);
        else if (key == "status")
            f.status = to_u32(value, here, 1);
        else if (key == "errno")
            f.error = to_error_number(value, here);
        else if (key == "sense")
            f.sense = to_sense(value, here);
        else
            here.fail("unknown field");
    });

    if (!driver_given || !request_given)
        at.fail(driver_given ? "request is missing" : "driver is missing");
    const asked_of whom = facts(f.what).whom;
    if (whom == (is_native(f.driver) ? asked_of::legacy_driver : asked_of::native_driver))
        place{&at, "request"}.fail("not made to this driver");
    if (f.instance && whom != asked_of::port)
        place{&at, "instance"}.fail("the request is not made to a port");
    if (f.sense && f.what != request::scsi_cmd)
        place{&at, "sense"}.fail("only for scsi_cmd");
    if (f.status && f.what == request::open)
        place{&at, "status"}.fail("not for open");
    if (!f.status && !f.error && !f.sense && f.what != request::open)
        at.fail("nothing fails: status, errno or sense is missing");
    into.faults.push_back(f);
}

// When all ports are there: they may follow the faults.
void check_fault_instances(const scenario &s)
{
    for (size_t i = 0; i < s.faults.size(); i++) {
        const fault &f = s.faults[i];
        const auto &ports = s.of(f.driver).by_instance;
        const place at{nullptr, "faults", i};
        if (f.instance && *f.instance >= ports.size())
            place{&at, "instance"}.fail("the driver has no such port");
    }
}

void read_host(const json &object, const place &at, scenario &into)
{
    each_member(object, at, [&](const std::string &key, const json &value, const place &here) {
        if (key == "sysname")
            into.sysname = to_text(value, here, 64);
        else if (key == "euid")
            into.euid = to_u32(value, here);
        else if (key == "check_condition_status")
            into.check_condition_status = to_u32(value, here);
        else
            here.fail("unknown field");
    });
}

} // namespace

const session_description *port_description::session(uint32_t number) const
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
    const json document = parse_document(text);

    scenario s;
    each_member(document, place{}, [&](const std::string &key, const json &value, const place &at) {
        if (key == "host")
            read_host(value, at, s);
        else if (key == "drivers")
            each_element(value, at, [&](const json &v, const place &here) {
                s.of(read_driver(v, here)).present = true;
            });
        else if (key == "ports")
            each_element(value, at,
                         [&](const json &v, const place &here) { read_port(v, here, base, s); });
        else if (key == "schema")
            to_choice(value, at, capture_schemas);
        else if (key == "faults")
            each_element(value, at,
                         [&](const json &v, const place &here) { read_fault(v, here, s); });
        else if (key != "command" && key != "complete" && key != "failures")
            at.fail("unknown field");
    });
    check_fault_instances(s);
    return s;
}

} // namespace hostsim
