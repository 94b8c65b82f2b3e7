#include "varnokctl/inventory.h"

#include "varnokctl/library.h"
#include "varnokctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <new>

namespace ctl
{
namespace
{

// The library does not tell how many entries of an array it wrote. They are fewer than there is
// room for when a list became shorter or when an entry failed. So each entry starts with a mark, a
// value that the library never writes there.
constexpr uint8_t never8 = 0xFF;
constexpr uint32_t never32 = 0xFFFFFFFF;

void mark(VARNOK_ISCSI_PORTAL &entry) { entry.IsIPv4 = never8; }
void mark(VARNOK_SESS_INFO &entry) { entry.TgtIsIPv4 = never8; }
void mark(VARNOK_TGT_INFO &entry) { entry.ScsiTgtNum = never32; }
void mark(VARNOK_LUN_INFO &entry) { entry.ScsiLunNum = entry.ScsiLunNumExt = never32; }

bool is_marked(const VARNOK_ISCSI_PORTAL &entry) { return entry.IsIPv4 == never8; }
bool is_marked(const VARNOK_SESS_INFO &entry) { return entry.TgtIsIPv4 == never8; }
bool is_marked(const VARNOK_TGT_INFO &entry) { return entry.ScsiTgtNum == never32; }
bool is_marked(const VARNOK_LUN_INFO &entry)
{
    return entry.ScsiLunNum == never32 && entry.ScsiLunNumExt == never32;
}

template <class Record>
Record blank()
{
    Record record{};
    record.Version = VARNOK_LUN_INFO_VERSION; // the other records ignore it
    mark(record);
    return record;
}

// Calls query(&count, &array) with room for count entries, and again with more room as long as the
// library asks for it. The list keeps the entries that were written, whatever the status.
template <class Record, class Query>
uint32_t read_list(std::vector<Record> &list, uint32_t count, const Query &query)
try {
    uint32_t room = 0;
    uint32_t status = 0;
    do {
        room = count;
        list.assign(room, blank<Record>());
        Record *array = list.data();
        status = query(&count, &array);
    } while (status == VARNOK_STATUS_INSUFFICIENT_BUFFER && count > room);
    const auto unwritten = [](const Record &record) { return is_marked(record); };
    list.erase(std::ranges::find_if(list, unwritten), list.end());
    return status;
} catch (const std::bad_alloc &) {
    list.clear();
    return VARNOK_STATUS_NO_MEMORY;
}

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
        if (request_.port)
            read_port(*request_.port); // the library knows best whether there is one
        else
            for (uint32_t instance = 0; instance < count; ++instance)
                read_port(instance);
        note_missing_target();
    }

  private:
    bool good(call_name call, uint32_t status, std::optional<uint32_t> port = {},
              std::optional<uint32_t> target = {})
    {
        return succeeded(host_.failures, call, status, port, target);
    }

    bool needs(unsigned what) const { return (request_.needs & what) == what; }
    bool wants_target(uint32_t number) const { return request_.target.value_or(number) == number; }

    // Without adapters there is no such port. Opening it gets the library's own answer.
    void note_missing_port()
    {
        uint32_t handle = 0;
        if (request_.port)
            good(call_name::open_adapter, VARNOK_OpenAdapter(*request_.port, &handle),
                 request_.port);
    }

    // All ports were read, but none has the target that was asked for.
    void note_missing_target()
    {
        size_t found = 0;
        for (const port_entry &port : host_.ports)
            found += port.targets.size() + port.sessions.size();
        if (!request_.target || found != 0 || host_.ports.empty() || !host_.failures.empty())
            return;
        const call_name call =
            needs(need_targets) ? call_name::get_tgt_info : call_name::get_session_info;
        host_.failures.push_back(
            {call, failure_cause::no_such_target, request_.port, request_.target});
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
        if (read_info(port, handle)) {
            if (needs(need_portals))
                read_portal(port, handle);
            if (needs(need_sessions))
                read_sessions(port, handle);
            if (needs(need_targets))
                read_targets(port, handle);
        }
        good(call_name::close_adapter, VARNOK_CloseAdapter(handle), instance);
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
        good(call, read_list(list, 0, ask), port.instance);
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
        for (const VARNOK_SESS_INFO &info :
             list_of(port, call_name::get_session_info, handle, VARNOK_GetSessionInfo)) {
            if (wants_target(target))
                port.sessions.push_back({target, info});
            ++target;
        }
    }

    void read_targets(port_entry &port, uint32_t handle)
    {
        const auto list = list_of(port, call_name::get_tgt_info, handle, VARNOK_GetTgtInfo);
        size_t place = 0;
        for (const VARNOK_TGT_INFO &info : list) {
            ++place;
            if (!wants_target(info.ScsiTgtNum))
                continue;
            target_entry &target = port.targets.emplace_back(target_entry{info, {}});
            if (!needs(need_luns))
                continue;
            line_.show(fmt::format("varnokctl: port {}, target {} of {}, {} read", port.instance,
                                   place, list.size(), counted(luns_, "LUN")));
            read_luns(target, port.instance, handle);
            luns_ += target.luns.size();
            if (needs(need_identities))
                read_identities(target, port.instance, handle);
        }
    }

    void read_luns(target_entry &target, uint32_t instance, uint32_t handle)
    {
        const uint32_t number = target.info.ScsiTgtNum;
        const uint32_t room = std::clamp(+target.info.LunCount, 1U, most_listed_luns);
        const auto query = [&](uint32_t *count, VARNOK_LUN_INFO **array) {
            return VARNOK_GetLunInfo(handle, number, count, array);
        };
        std::vector<VARNOK_LUN_INFO> list;
        const uint32_t status = read_list(list, room, query);
        for (const VARNOK_LUN_INFO &info : list)
            target.luns.push_back({info});
        // REPORT LUNS may count more LUNs than the library lists. It may also end with sense data,
        // which the library does not look at.
        if (good(call_name::get_lun_info, status, instance, number) &&
            target.luns.size() < target.info.LunCount)
            host_.failures.push_back(
                {call_name::get_lun_info, failure_cause::list_incomplete, instance, number});
    }

    // The library's first failure ends it: each of many commands might take its time to fail.
    void read_identities(target_entry &target, uint32_t instance, uint32_t handle)
    {
        const open_target where = {handle, instance, target.info.ScsiTgtNum};
        size_t done = 0;
        for (lun_entry &lun : target.luns) {
            line_.show(fmt::format("varnokctl: port {}, target {}, {} of {} identified", instance,
                                   where.target, done, counted(target.luns.size(), "LUN")));
            lun.identity = read_identity(where, lun.info, host_.failures);
            if (lun.identity && !needs(need_all_designators))
                keep_the_best(*lun.identity);
            if (!lun.identity && host_.failures.back().cause != failure_cause::refused_by_device)
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
