#include "varnokctl/capture_diff.h"

#include "varnokctl/captured_fields.h"
#include "varnokctl/difference_list.h"
#include "varnokctl/pairing.h"

#include <array>
#include <fmt/format.h>
#include <map>
#include <set>
#include <utility>

namespace ctl
{
namespace
{

// A key out of some members of an object; empty when the first of them is.
std::string key_of(const capture_json &object, std::initializer_list<const char *> members)
{
    std::string key;
    for (const char *name : members) {
        const std::string text = captured_text(member_or_null(object, name));
        if (key.empty() && text.empty())
            return "";
        key += fmt::format("{}:{}", text.size(), text);
    }
    return key;
}

// Zeros stand for an address that is not known.
std::string mac_of(const capture_json &port)
{
    const capture_json &mac = member_or_null(port, "mac");
    return mac == "00:00:00:00:00:00" ? "" : captured_text(mac);
}

bool was_negotiated(const capture_json &session)
{
    return member_or_null(session, "first_burst_len") != 0 ||
           member_or_null(session, "max_r2t") != 0;
}

// Where a LUN stands, and what became of it on the other side.
struct lun_place {
    const captured_port *port;
    const captured_target *target;
    const captured_lun *lun;
    enum { paired, left, with_its_target, not_known } fate = paired;
};

struct device {
    both<const lun_place *> first{};
    both<bool> hidden{}; // the other side may not have read it
    bool compared = false;
};

class comparer
{
  public:
    comparer(const capture_json &before, const capture_json &after, const comparison_style &style)
        : style_(style),
          list_(style), hosts_{view_of(before, style.output), view_of(after, style.output)}
    {
    }

    capture_comparison compare()
    {
        for (const side where : {before_side, after_side})
            for (const unread_part &part : hosts_[where].unread)
                list_.note_unread(where, part.name, part.why);
        reserve_places();
        compare_ports();
        compare_devices();
        return list_.take();
    }

  private:
    // ---- Ports --------------------------------------------------------------------------------

    std::string name_of(const captured_port &port) const
    {
        const std::string mac = shown_text(mac_of(*port.object), style_.output);
        const std::string name = port_name(port, style_.output);
        return mac.empty() ? name : fmt::format("{} ({})", name, mac);
    }

    void compare_ports()
    {
        const auto &old_ports = hosts_[before_side].ports;
        const auto &new_ports = hosts_[after_side].ports;
        pairing pairs(old_ports.size(), new_ports.size());
        const auto match = [&](const auto &key) {
            pairs.match([&](size_t place) { return key(*old_ports[place].object); },
                        [&](size_t place) { return key(*new_ports[place].object); });
        };
        match([](const capture_json &port) {
            const std::string mac = mac_of(port);
            return mac.empty() ? ""
                               : mac + key_of(port, {"serial_num", "function_num", "port_num"});
        });
        match(mac_of);
        match([](const capture_json &port) {
            return key_of(port, {"serial_num", "function_num", "port_num"});
        });
        for (size_t place = 0; place < old_ports.size(); ++place) {
            if (const auto partner = pairs.after_of()[place])
                compare(old_ports[place], new_ports[*partner]);
            else
                lose(before_side, old_ports[place]);
        }
        for (size_t place = 0; place < new_ports.size(); ++place)
            if (!pairs.before_of()[place])
                lose(after_side, new_ports[place]);
    }

    // The other side has no such port, or did not read it.
    void lose(side where, const captured_port &port)
    {
        const bool unknown = hosts_[1 - where].ports_unread;
        for (const captured_target &target : port.targets)
            lose_luns(where, port, target, unknown);
        if (port.unread)
            return; // its failure says so
        if (!unknown)
            return list_.add(where, "port", name_of(port));
        list_.note_unread(where == before_side ? after_side : before_side, "port " + name_of(port),
                          "not every port could be read");
    }

    void compare(const captured_port &before, const captured_port &after)
    {
        const compared_pair pair = {.what = "port",
                                    .name = name_of(before),
                                    .absence_told = before.fields_unread || after.fields_unread};
        list_.compare_fields(captured_port_fields, pair, *before.object, *after.object);
        compare_targets(before, after);
    }

    // ---- Targets ------------------------------------------------------------------------------

    void compare_targets(const captured_port &old_port, const captured_port &new_port)
    {
        const auto &old_targets = old_port.targets;
        const auto &new_targets = new_port.targets;
        pairing pairs(old_targets.size(), new_targets.size());
        const auto match = [&](const auto &key) {
            pairs.match([&](size_t place) { return key(old_targets[place]); },
                        [&](size_t place) { return key(new_targets[place]); });
        };
        match([](const captured_target &target) { // a target may have several portals
            return target.name + '\n' + key_of(*target.session, {"tgt_ipv4addr", "tgt_ipv6addr"});
        });
        match([](const captured_target &target) { return '-' + target.name; });
        for (size_t place = 0; place < old_targets.size(); ++place) {
            if (const auto partner = pairs.after_of()[place])
                compare({&old_port, &new_port}, {&old_targets[place], &new_targets[*partner]});
            else
                lose(before_side, old_port, old_targets[place], new_port.targets_unread);
        }
        for (size_t place = 0; place < new_targets.size(); ++place)
            if (!pairs.before_of()[place])
                lose(after_side, new_port, new_targets[place], old_port.targets_unread);
    }

    void lose(side where, const captured_port &port, const captured_target &target, bool unknown)
    {
        if (!unknown)
            list_.add(where, "target", target_name(port, target, style_.output));
        lose_luns(where, port, target, unknown);
    }

    void compare(const both<const captured_port *> &ports,
                 const both<const captured_target *> &both_targets)
    {
        const auto &[before, after] = both_targets;
        const capture_json &old_session = *before->session;
        const capture_json &new_session = *after->session;
        compared_pair pair = {.what = "target",
                              .name = target_name(*ports[before_side], *before, style_.output),
                              .absence_told = ports[before_side]->fields_unread ||
                                              ports[after_side]->fields_unread};
        // A session that ended has no values to compare: its state says so.
        if (member_or_null(old_session, "state") != member_or_null(new_session, "state") &&
            was_negotiated(old_session) != was_negotiated(new_session))
            pair.left_out = negotiated;
        list_.compare_fields(captured_session_fields, pair, old_session, new_session);
        const capture_json &old_record = member_or_null(old_session, "target");
        const capture_json &new_record = member_or_null(new_session, "target");
        if (!old_record.is_null() && !new_record.is_null())
            compare_records(pair, {&old_session, &new_session}, {&old_record, &new_record});
        list_.compare_numbers(pair, "target", before->number, after->number);
        compare_luns(ports, both_targets);
    }

    // The target's own record repeats the session's address.
    void compare_records(const compared_pair &pair, const both<const capture_json *> &sessions,
                         const both<const capture_json *> &records)
    {
        for (const captured_field &field : captured_target_fields) {
            const std::string of_session = fmt::format("tgt_{}", field.key);
            const auto same_as_in_session = [&](side where) {
                return member_or_null(*records[where], field.key) ==
                       member_or_null(*sessions[where], of_session.c_str());
            };
            if (!same_as_in_session(before_side) || !same_as_in_session(after_side))
                list_.compare_fields({&field, 1}, pair, *records[before_side],
                                     *records[after_side]);
        }
    }

    // ---- LUNs ---------------------------------------------------------------------------------

    void reserve_places() // pointers to them are kept
    {
        for (const side where : {before_side, after_side}) {
            size_t count = 0;
            for (const captured_port &port : hosts_[where].ports)
                for (const captured_target &target : port.targets)
                    count += target.luns.size();
            places_[where].reserve(count);
        }
    }

    void put(side where, const lun_place &place, const std::string &identity)
    {
        places_[where].push_back(place);
        if (identity.empty())
            return;
        device &known = devices_[identity];
        if (known.first[where] == nullptr)
            known.first[where] = &places_[where].back();
        known.hidden[where] |= place.fate == lun_place::not_known;
        known.compared |= place.fate == lun_place::paired;
    }

    void lose_luns(side where, const captured_port &port, const captured_target &target,
                   bool unknown)
    {
        for (const captured_lun &lun : target.luns)
            put(where,
                {&port, &target, &lun, unknown ? lun_place::not_known : lun_place::with_its_target},
                lun.identity);
    }

    void compare_luns(const both<const captured_port *> &ports,
                      const both<const captured_target *> &targets)
    {
        const auto &before = targets[before_side]->luns;
        const auto &after = targets[after_side]->luns;
        const auto number_of = [](const captured_lun &lun) { return captured_text(*lun.number); };
        pairing pairs(before.size(), after.size());
        const auto match = [&](const auto &old_key, const auto &new_key) {
            pairs.match([&](size_t place) { return old_key(before[place]); },
                        [&](size_t place) { return new_key(after[place]); });
        };
        const auto exact = [&](const captured_lun &lun) {
            return lun.identity.empty() ? "" : lun.identity + '\n' + number_of(lun);
        };
        const auto identity = [](const captured_lun &lun) { return lun.identity; };
        const auto number_of_nameless = [&](const captured_lun &lun) {
            return lun.identity.empty() ? number_of(lun) : "";
        };
        match(exact, exact);
        match(identity, identity);
        match(number_of_nameless, number_of);
        match(number_of, number_of_nameless);
        for (const side where : {before_side, after_side}) {
            const auto &luns = targets[where]->luns;
            const auto &partners = where == before_side ? pairs.after_of() : pairs.before_of();
            const captured_target &other = *targets[1 - where];
            for (size_t at = 0; at < luns.size(); ++at) {
                const captured_lun &partner =
                    partners[at] ? targets[1 - where]->luns[*partners[at]] : luns[at];
                const bool unknown = other.luns_unread || other.identities_unread;
                put(where,
                    {ports[where], targets[where], &luns[at],
                     partners[at] ? lun_place::paired
                     : unknown    ? lun_place::not_known
                                  : lun_place::left},
                    luns[at].identity.empty() ? partner.identity : luns[at].identity);
            }
        }
        for (size_t at = 0; at < before.size(); ++at)
            if (const auto partner = pairs.after_of()[at])
                compare(ports, targets, {&before[at], &after[*partner]});
    }

    std::string name_of(const lun_place &place, const std::string &name) const
    {
        return fmt::format("{} ({}, {})", name, shown_text(place.target->name, style_.output),
                           port_name(*place.port, style_.output));
    }

    std::string number_of(const captured_lun &lun) const
    {
        return shown_text(*lun.number, style_.output);
    }

    void compare(const both<const captured_port *> &ports,
                 const both<const captured_target *> &targets,
                 const both<const captured_lun *> &luns)
    {
        const auto &[before, after] = luns;
        const lun_place place = {ports[before_side], targets[before_side], before};
        const bool unread = (before->identity.empty() && targets[before_side]->identities_unread) ||
                            (after->identity.empty() && targets[after_side]->identities_unread);
        const std::string &identity = before->identity.empty() ? after->identity : before->identity;
        compare_units(identity, place, unread, luns);
        if (*before->number != *after->number)
            list_.compare_numbers(
                {.what = "path", .name = name_of(place, shown_text(identity, style_.output))},
                "lun", *before->number, *after->number);
    }

    void compare_units(const std::string &identity, const lun_place &place, bool unread,
                       const both<const captured_lun *> &luns)
    {
        const auto units = std::pair(luns[before_side]->unit, luns[after_side]->unit);
        if (!identity.empty() && !unread && !compared_.insert(units).second)
            return; // by another path
        const compared_pair pair = {.what = identity.empty() ? "LUN" : "device",
                                    .name = identity.empty() ? name_of(place, number_of(*place.lun))
                                                             : shown_text(identity, style_.output),
                                    .left_out = unread ? unsigned{identifies} : 0U};
        list_.compare_fields(captured_unit_fields, pair, *luns[before_side]->unit,
                             *luns[after_side]->unit);
    }

    // ---- Devices ------------------------------------------------------------------------------

    void compare_devices()
    {
        std::set<std::string> done;
        for (const side where : {before_side, after_side})
            for (const lun_place &place : places_[where]) {
                const bool left = place.fate == lun_place::left;
                if (place.lun->identity.empty()) {
                    if (left)
                        list_.add(where, "LUN", name_of(place, number_of(*place.lun)));
                    continue;
                }
                const std::string &identity = place.lun->identity;
                const device &known = devices_[identity];
                const std::string name = shown_text(identity, style_.output);
                const bool only_here = known.first[1 - where] == nullptr;
                if (left && !only_here)
                    list_.add(where, "path", name_of(place, name));
                if (!done.insert(identity).second)
                    continue;
                if (only_here && !known.hidden[where])
                    list_.add(where, "device", name);
                else if (!only_here && !known.compared)
                    compare_moved(identity, known);
            }
    }

    // The device is on both sides, but not behind the same target.
    void compare_moved(const std::string &identity, const device &moved)
    {
        const auto &[before, after] = moved.first;
        compare_units(identity, *before,
                      before->target->identities_unread || after->target->identities_unread,
                      {before->lun, after->lun});
    }

    const comparison_style &style_;
    difference_list list_;
    both<captured_host> hosts_;
    both<std::vector<lun_place>> places_{};
    std::map<std::string, device> devices_; // by what identifies them
    std::set<std::pair<const capture_json *, const capture_json *>> compared_; // units
};

} // namespace

const char *change_word(change kind)
{
    constexpr std::array<const char *, 3> words = {"added", "gone", "changed"};
    // cppcheck-suppress CastIntegerToAddressAtReturn; a false alarm
    return words[static_cast<size_t>(kind)];
}

capture_comparison compare_captures(const capture_json &before, const capture_json &after,
                                    const comparison_style &style)
{
    return comparer(before, after, style).compare();
}

} // namespace ctl
