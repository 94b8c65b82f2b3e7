#include "varnokctl/inventory.h"

#include "varnokctl/library.h"
#include "varnokctl/lun_checks.h"
#include "varnokctl/record_list.h"
#include "varnokctl/text.h"

#include <algorithm>
#include <fmt/format.h>

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
        const loaded_library library;
        if (!good(call_name::load_library, library.status()))
            return;
        uint32_t count = 0;
        const uint32_t status = VARNOK_GetPortCount(&count);
        // A load that finds no adapter succeeds but leaves nothing loaded. It shows here.
        if (status == VARNOK_STATUS_FAILED)
            return note_missing_port();
        if (!good(call_name::get_port_count, status))
            return;
        if (const auto number = request_.port.number())
            read_port(*number); // the library knows best whether there is one
        else
            for (uint32_t instance = 0; instance < count; ++instance)
                read_port(instance);
        if (host_.ports.empty() && !request_.port.any() && host_.failures.empty())
            host_.failures.push_back(
                {.call = call_name::command_line,
                 .cause = failure_cause::no_such_port,
                 .detail = fmt::format("there is no port '{}'", safe_text(request_.port.text))});
        note_missing_target();
    }

  private:
    bool good(call_name call, uint32_t status, std::optional<uint32_t> port = {},
              std::optional<uint32_t> target = {})
    {
        return succeeded(host_.failures, call, status, port, target);
    }

    bool needs(unsigned what) const { return (request_.needs & what) == what; }

    // Without adapters there is no such port. Opening it gets the library's own answer.
    void note_missing_port()
    {
        uint32_t handle = 0;
        const std::optional<uint32_t> number = request_.port.number();
        if (!request_.port.any())
            good(call_name::open_adapter, VARNOK_OpenAdapter(number.value_or(0), &handle), number);
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

    void read_port(uint32_t instance)
    {
        uint32_t handle = 0;
        const uint32_t status = VARNOK_OpenAdapter(instance, &handle);
        if (status != VARNOK_STATUS_NOT_FOUND)
            host_.ports.push_back({.instance = instance});
        if (!good(call_name::open_adapter, status, instance))
            return;
        port_entry &port = host_.ports.back();
        const bool known = read_info(port, handle);
        const bool wanted = !known || request_.port.fits(instance, *port.info);
        if (known && wanted) {
            if (needs(need_portals))
                read_portal(port, handle);
            if (needs(need_sessions))
                read_sessions(port, handle);
            if (needs(need_targets))
                read_targets(port, handle);
        }
        good(call_name::close_adapter, VARNOK_CloseAdapter(handle), instance);
        if (!wanted)
            host_.ports.pop_back();
    }

    // This comes first: it also refreshes the session count, which the other queries go by.
    bool read_info(port_entry &port, uint32_t handle)
    {
        VARNOK_PHY_PORT_INFO info{};
        info.Version = VARNOK_PHY_PORT_INFO_VERSION;
        const uint32_t status = VARNOK_GetPhyPortInfo(handle, &info);
        if (!good(call_name::get_phy_port_info, status, port.instance))
            return false;
        port.info = info;
        return true;
    }

    template <class Record>
    std::vector<Record> list_of(const port_entry &port, call_name call, uint32_t handle,
                                uint32_t (*query)(uint32_t, uint32_t *, Record **))
    {
        std::vector<Record> list;
        const auto ask = [&](uint32_t *count, Record **array) {
            return query(handle, count, array);
        };
        good(call, read_list(list, 0, UINT32_MAX, ask), port.instance);
        return list;
    }

    void read_portal(port_entry &port, uint32_t handle)
    {
        const auto list = list_of(port, call_name::get_iscsi_portal, handle, VARNOK_GetIscsiPortal);
        if (!list.empty())
            port.portal = list.front();
    }

    void read_sessions(port_entry &port, uint32_t handle)
    {
        uint32_t target = 0; // a port lists its targets in the order of its sessions
        const size_t failures = host_.failures.size();
        const auto list = list_of(port, call_name::get_session_info, handle, VARNOK_GetSessionInfo);
        port.sessions_unread = list.empty() && host_.failures.size() != failures;
        for (const VARNOK_SESS_INFO &info : list) {
            if (request_.target.fits(target, info.TargetName))
                port.sessions.push_back({target, info});
            ++target;
        }
    }

    void read_targets(port_entry &port, uint32_t handle)
    {
        const size_t failures = host_.failures.size();
        const auto list = list_of(port, call_name::get_tgt_info, handle, VARNOK_GetTgtInfo);
        port.targets_unread = list.empty() && host_.failures.size() != failures;
        size_t place = 0;
        for (const VARNOK_TGT_INFO &info : list) {
            ++place;
            if (!request_.target.fits(info.ScsiTgtNum, info.TargetName))
                continue;
            target_entry &target = port.targets.emplace_back(target_entry{info});
            const open_target where = {handle, port.instance, info.ScsiTgtNum};
            if (!needs(need_luns)) {
                if (info.LunCount == 0)
                    count_again(target, where, call_name::get_tgt_info);
                continue;
            }
            line_.show(fmt::format("varnokctl: port {}, target {} of {}, {} read", port.instance,
                                   place, list.size(), counted(luns_, "LUN")));
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
        const auto query = [&](uint32_t *count, VARNOK_LUN_INFO **array) {
            return VARNOK_GetLunInfo(where.handle, where.target, count, array);
        };
        std::vector<VARNOK_LUN_INFO> list;
        const uint32_t room = std::clamp(+target.info.LunCount, 1U, most_listed_luns);
        const uint32_t status = read_list(list, room, most_listed_luns, query);
        target.luns.clear();
        for (const VARNOK_LUN_INFO &info : list)
            target.luns.push_back({info});
        return good(call_name::get_lun_info, status, where.port, where.target);
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
