#include "scenario.h"

#include "reading.h"

#include <algorithm>
#include <array>
#include <utility>

namespace hostsim
{
namespace
{

constexpr uint32_t first_host_no = 32;

// The schema of a captured host's document.
constexpr std::array<std::string_view, 1> capture_schemas = {"varnok/1"};

// ---- Sessions ---------------------------------------------------------------------------------

class session_reader : public object_reader<session_description>
{
  public:
    session_reader(reading &r, port_description &port)
        : session_reader(r, port, port.sessions.emplace_back())
    {
    }

    void close(const place &at) override
    {
        port_.session_count += into_.copies;
        limit(port_.session_count, most_port_sessions, "sessions on a port", at);
        limit(r_.sessions + port_.session_count, most_host_sessions, "sessions on the host", at);
        r_.port_luns += uint64_t{into_.copies} * into_.luns->entries.size();
        limit(r_.luns + r_.port_luns, most_host_luns, "LUNs on the host", at);
    }

  private:
    session_reader(reading &r, port_description &port, session_description &s)
        : object_reader(s, session_members, {{{session_fields, &s.session_settings}, {}}}), r_(r),
          port_(port)
    {
        s.first = port.session_count;
        s.luns = default_luns();
    }

    nested nested_member(std::string_view name) const override
    {
        if (name == "luns")
            return nested::array;
        return name == "target" ? nested::object : nested::none;
    }
    std::unique_ptr<container> open_nested(const place &at) override
    {
        if (at.key == "luns")
            return open_luns(r_, into_);
        return std::make_unique<object_reader<session_description>>(
            into_, std::span<const member<session_description>>(),
            std::array<field_group, 2>{{{target_fields, &into_.target_settings}, {}}});
    }

    reading &r_;
    port_description &port_;
};

// ---- Ports ------------------------------------------------------------------------------------

// Adds the copies of a port, each with its own identity.
void add_ports(scenario &s, const place &at, port_description &described)
{
    driver_ports &same = s.of(described.driver);
    same.present = true;

    for (uint32_t k = 0; k < described.copies; ++k) {
        limit(s.ports.size() + 1, most_ports, "ports", at);
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

class port_reader : public object_reader<port_description>
{
  public:
    explicit port_reader(reading &r) : port_reader(r, r.into.descriptions.emplace_back()) {}

    void close(const place &at) override
    {
        object_reader::close(at);
        const port_description &p = into_;
        if (!p.portal.empty() && (p.copies != 1 || !p.sessions.empty()))
            place{&at, "portal"}.fail("its targets are the only sessions of one port");
        if (p.host_no && *p.host_no > UINT32_MAX - (p.copies - 1))
            place{&at, "host_no"}.fail("its copies go beyond " + std::to_string(UINT32_MAX));
        r_.sessions += uint64_t{p.copies} * p.session_count;
        limit(r_.sessions, most_host_sessions, "sessions on the host", at);
        r_.luns += p.copies * r_.port_luns;
        limit(r_.luns, most_host_luns, "LUNs on the host", at);
        add_ports(r_.into, at, into_);
    }

  private:
    port_reader(reading &r, port_description &p)
        : object_reader(p, port_members,
                        {{{pci_fields, &p.pci_settings}, {port_fields, &p.port_settings}}}),
          r_(r)
    {
        r.port_luns = 0;
    }

    nested nested_member(std::string_view name) const override
    {
        return name == "sessions" ? nested::array : nested::none;
    }
    std::unique_ptr<container> open_nested(const place &) override
    {
        return objects([&](const place &) { return std::make_unique<session_reader>(r_, into_); });
    }

    reading &r_;
};

// ---- The whole --------------------------------------------------------------------------------

class driver_array : public container
{
  public:
    explicit driver_array(scenario &into) : into_(into) {}
    void take(const value &v, const place &at) override
    {
        into_.of(to_driver(v, at)).present = true;
    }

  private:
    scenario &into_;
};

// What a document says that is not about the host.
class ignored : public container
{
  public:
    void take(const value &, const place &) override {}
    std::unique_ptr<container> open(bool, const place &) override
    {
        return std::make_unique<ignored>();
    }
};

class top_reader : public object_reader<scenario>
{
  public:
    explicit top_reader(reading &r) : object_reader(r.into, top_members), r_(r) {}

    bool select(std::string_view name) override
    {
        ignores_ = std::ranges::find(ignored_members, name) != ignored_members.end();
        return ignores_ || object_reader::select(name);
    }
    void take(const value &v, const place &at) override
    {
        if (!ignores_)
            object_reader::take(v, at);
    }
    std::unique_ptr<container> open(bool array, const place &at) override
    {
        if (ignores_)
            return std::make_unique<ignored>();
        return object_reader::open(array, at);
    }

  private:
    nested nested_member(std::string_view name) const override
    {
        if (name == "host" || name == "devices")
            return nested::object;
        return name == "drivers" || name == "ports" || name == "faults" ? nested::array
                                                                        : nested::none;
    }
    std::unique_ptr<container> open_nested(const place &at) override
    {
        if (at.key == "host")
            return std::make_unique<object_reader<scenario>>(into_, host_members);
        if (at.key == "devices")
            return open_devices(r_);
        if (at.key == "drivers")
            return std::make_unique<driver_array>(into_);
        if (at.key == "ports")
            return objects([&](const place &) { return std::make_unique<port_reader>(r_); });
        return objects([&](const place &here) {
            limit(into_.faults.size() + 1, most_faults, "faults", *here.up);
            return open_fault(into_.faults.emplace_back());
        });
    }

    static void check_schema(scenario &, const value &v, const place &at)
    {
        to_choice(v, at, capture_schemas);
    }
    static constexpr member<scenario> top_members[] = {{"schema", check_schema}};
    static constexpr std::array<std::string_view, 3> ignored_members = {"command", "complete",
                                                                        "failures"};

    reading &r_;
    bool ignores_ = false;
};

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
    reading r{s, base};
    top_reader document(r);
    read_document(text, document);
    check_devices(r);
    check_fault_instances(s);
    prepare_files(r);
    return s;
}

} // namespace hostsim
