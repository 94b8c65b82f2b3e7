#include "varnokctl/inventory.h"

#include "varnokctl/lun_checks.h"
#include "varnokctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>
#include <varnok.hpp>

namespace ctl
{
namespace
{

class inventory_reader
{
  public:
    inventory_reader(const inventory_request &request, inventory &host, progress &line)
        : request_(request), host_(host), line_(line)
    {
    }

    void read()
    {
        const varnok::library library;
        if (!good(call_name::load_library, library.status()))
            return;
        const varnok::result<uint32_t> count = library.port_count();
        // A load that finds no adapter succeeds but leaves nothing loaded. It shows here.
        if (count.status.code() == VARNOK_STATUS_FAILED)
            return note_missing_port(library);
        if (!good(call_name::get_port_count, count.status))
            return;
        if (const auto number = request_.port.number())
            read_port(library, *number); // the library knows best whether there is one
        else
            for (uint32_t instance = 0; instance < count.value; ++instance)
                read_port(library, instance);
        if (host_.ports.empty() && !request_.port.any() && host_.failures.empty())
            host_.failures.push_back(
                {.call = call_name::command_line,
                 .cause = failure_cause::no_such_port,
                 .detail = fmt::format("there is no port '{}'", safe_text(request_.port.text))});
        note_missing_target();
    }

  private:
    bool good(call_name call, const varnok::status &status, std::optional<uint32_t> port = {},
              std::optional<uint32_t> target = {})
    {
        return succeeded(host_.failures, call, status.code(), port, target);
    }

    bool needs(unsigned what) const { return (request_.needs & what) == what; }

    // Without adapters there is no such port. Opening it gets the library's own answer.
    void note_missing_port(const varnok::library &library)
    {
        const std::optional<uint32_t> number = request_.port.number();
        if (!request_.port.any())
            good(call_name::open_adapter, varnok::port(library, number.value_or(0)).status(),
                 number);
    }

    // All ports were read, but none has the target that was asked for.
    void note_missing_target()
    {
        size_t found = 0;
        for (const port_entry &port : host_.ports)
            found += port.targets.size() + port.sessions.size();
        if (request_.target.any() || found != 0 || host_.ports.empty() || !host_.failures.empty())
            return;
        const call_name call =
            needs(need_targets) ? call_name::get_tgt_info : call_name::get_session_info;
        host_.failures.push_back({call, failure_cause::no_such_target, request_.port.number(),
                                  request_.target.number()});
    }

    void read_port(const varnok::library &library, uint32_t instance)
    {
        varnok::port opened(library, instance);
        if (opened.status().code() != VARNOK_STATUS_NOT_FOUND)
            host_.ports.push_back({.instance = instance});
        if (!good(call_name::open_adapter, opened.status(), instance))
            return;
        port_entry &port = host_.ports.back();
        const bool known = read_info(port, opened);
        const bool wanted = !known || request_.port.fits(instance, *port.info);
        if (known && wanted) {
            if (needs(need_portals))
                read_portal(port, opened);
            if (needs(need_sessions))
                read_sessions(port, opened);
            if (needs(need_targets))
                read_targets(port, opened);
        }
        good(call_name::close_adapter, opened.close(), instance);
        if (!wanted)
            host_.ports.pop_back();
    }

    // This comes first: it also refreshes the session count, which the other queries go by.
    bool read_info(port_entry &port, const varnok::port &opened)
    {
        const varnok::result<VARNOK_PHY_PORT_INFO> info = opened.info();
        if (good(call_name::get_phy_port_info, info.status, port.instance))
            port.info = info.value;
        return info.ok();
    }

    void read_portal(port_entry &port, const varnok::port &opened)
    {
        const auto list = opened.portals();
        good(call_name::get_iscsi_portal, list.status, port.instance);
        if (!list.value.empty())
            port.portal = list.value.front();
    }

    void read_sessions(port_entry &port, const varnok::port &opened)
    {
        uint32_t target = 0; // a port lists its targets in the order of its sessions
        const auto list = opened.sessions();
        good(call_name::get_session_info, list.status, port.instance);
        port.sessions_unread = list.value.empty() && !list.ok();
        for (const VARNOK_SESS_INFO &info : list.value) {
            if (request_.target.fits(target, info.TargetName))
                port.sessions.push_back({target, info});
            ++target;
        }
    }

    void read_targets(port_entry &port, const varnok::port &opened)
    {
        const auto list = opened.targets();
        good(call_name::get_tgt_info, list.status, port.instance);
        port.targets_unread = list.value.empty() && !list.ok();
        size_t place = 0;
        for (const VARNOK_TGT_INFO &info : list.value) {
            ++place;
            if (!request_.target.fits(info.ScsiTgtNum, info.TargetName))
                continue;
            target_entry &target = port.targets.emplace_back(target_entry{info});
            const open_target where = {opened, port.instance, info.ScsiTgtNum};
            if (!needs(need_luns)) {
                if (info.LunCount == 0)
                    count_again(target, where, call_name::get_tgt_info);
                continue;
            }
            line_.show(fmt::format("varnokctl: port {}, target {} of {}, {} read", port.instance,
                                   place, list.value.size(), counted(luns_, "LUN")));
            read_luns(target, where);
            luns_ += target.luns.size();
            if (needs(need_identities))
                read_identities(target, where);
        }
    }

    bool count_again(target_entry &target, const open_target &where, call_name lists)
    {
        const auto count = count_luns(where, lists, host_.failures);
        target.is_counted = count.has_value();
        target.info.LunCount = count.value_or(0);
        return target.is_counted;
    }

    void read_luns(target_entry &target, const open_target &where)
    {
        if (list_again(target, where) && target.luns.size() < target.info.LunCount)
            host_.failures.push_back({call_name::get_lun_info, failure_cause::list_incomplete,
                                      where.port, where.target});
        for (lun_entry &lun : target.luns)
            if (!complete_lun(where, lun, host_.failures))
                return;
    }

    // The library takes sense data for an empty list. So a list that is empty, or not what the
    // target counted, is doubted. Returns whether the target listed its LUNs.
    bool list_again(target_entry &target, const open_target &where)
    {
        constexpr int attempts = 3; // the list may change meanwhile
        for (int left = attempts; left > 0; --left) {
            if (!list_luns(target, where)) {
                target.is_counted = !target.luns.empty() || target.info.LunCount != 0;
                return false;
            }
            if (!target.luns.empty() && target.luns.size() == target.info.LunCount)
                return true;
            if (!count_again(target, where, call_name::get_lun_info))
                return false;
            if (target.luns.size() == std::min<size_t>(target.info.LunCount, most_listed_luns))
                return true;
        }
        return true;
    }

    bool list_luns(target_entry &target, const open_target &where)
    {
        const auto list = where.on.luns(where.target, target.info.LunCount);
        target.luns.clear();
        for (const VARNOK_LUN_INFO &info : list.value)
            target.luns.push_back({info});
        return good(call_name::get_lun_info, list.status, where.port, where.target);
    }

    // The library's first failure ends it: each of many commands might take its time to fail.
    void read_identities(target_entry &target, const open_target &where)
    {
        size_t done = 0;
        for (lun_entry &lun : target.luns) {
            if (!lun.is_known)
                continue; // it has its failure already
            line_.show(fmt::format("varnokctl: port {}, target {}, {} of {} identified", where.port,
                                   where.target, done, counted(target.luns.size(), "LUN")));
            lun.identity = read_identity(where, lun.info, host_.failures);
            if (lun.identity && !needs(need_all_designators))
                keep_the_best(*lun.identity);
            if (!lun.identity && host_.failures.back().cause != failure_cause::not_told)
                return;
            ++done;
        }
    }

    const inventory_request &request_;
    inventory &host_;
    progress &line_;
    size_t luns_ = 0; // read so far
};

} // namespace

inventory read_host(const inventory_request &request, progress line)
{
    inventory host;
    inventory_reader(request, host, line).read();
    return host;
}

} // namespace ctl
