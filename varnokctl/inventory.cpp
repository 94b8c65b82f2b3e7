#include "varnokctl/inventory.h"

#include <algorithm>
#include <new>

#include <fmt/format.h>

#include "varnokctl/library.h"
#include "varnokctl/text.h"

namespace ctl
{
namespace
{

// The library does not tell how many entries of an array it wrote: fewer than there is room for
// when a list became shorter, or when an entry failed. Each entry therefore starts with a value
// that the library never stores in it.
constexpr uint8_t never8 = 0xFF;
constexpr uint32_t never32 = 0xFFFFFFFF;

void mark(VARNOK_ISCSI_PORTAL &entry) { entry.IsIPv4 = never8; }
void mark(VARNOK_SESS_INFO &entry) { entry.TgtIsIPv4 = never8; }
void mark(VARNOK_TGT_INFO &entry) { entry.ScsiTgtNum = never32; }
void mark(VARNOK_LUN_INFO &entry) { entry.ScsiLunNum = entry.ScsiLunNumExt = never32; }

bool marked(const VARNOK_ISCSI_PORTAL &entry) { return entry.IsIPv4 == never8; }
bool marked(const VARNOK_SESS_INFO &entry) { return entry.TgtIsIPv4 == never8; }
bool marked(const VARNOK_TGT_INFO &entry) { return entry.ScsiTgtNum == never32; }
bool marked(const VARNOK_LUN_INFO &entry)
{
    return entry.ScsiLunNum == never32 && entry.ScsiLunNumExt == never32;
}

template <typename Record>
Record blank()
{
    Record record{};
    record.Version = VARNOK_RECORD_VERSION_2;
    mark(record);
    return record;
}

// Calls query(&count, &array) with room for count entries, and again with more room as long as the
// library asks for it. The entries that were written stay in list, whatever the status.
template <typename Record, typename Query>
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
    list.erase(std::find_if(list.begin(), list.end(), [](const Record &r) { return marked(r); }),
               list.end());
    return status;
} catch (const std::bad_alloc &) {
    list.clear();
    return VARNOK_STATUS_NO_MEMORY;
}

class inventory_reader
{
  public:
    inventory_reader(const inventory_request &ask, inventory &host, progress &line)
        : ask_(ask), host_(host), line_(line)
    {
    }

    void read_ports(uint32_t count)
    {
        // A number from the command line goes to the library as it is, which knows its ports best.
        if (ask_.port)
            return read_port(*ask_.port);
        for (uint32_t instance = 0; instance < count; instance++)
            read_port(instance);
    }

    // Without adapters there is no port to ask for by its number.
    void miss_port()
    {
        uint32_t handle = 0;
        if (ask_.port)
            good(call_name::open_adapter, VARNOK_OpenAdapter(*ask_.port, &handle), ask_.port);
    }

    bool good(call_name call, uint32_t status, std::optional<uint32_t> port = {},
              std::optional<uint32_t> target = {})
    {
        return succeeded(host_.failures, call, status, port, target);
    }

    // No port has the target that was asked for, though all were read.
    void miss_target()
    {
        size_t found = 0;
        for (const auto &port : host_.ports)
            found += port.targets.size() + port.sessions.size();
        if (!ask_.target || found != 0 || host_.ports.empty() || !host_.failures.empty())
            return;
        const call_name call =
            needs(need_targets) ? call_name::get_tgt_info : call_name::get_session_info;
        host_.failures.push_back({call, failure_cause::no_such_target, ask_.port, ask_.target});
    }

  private:
    bool needs(unsigned what) const { return (ask_.needs & what) == what; }
    bool wants_target(uint32_t number) const { return ask_.target.value_or(number) == number; }

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

    // Comes first: it also refreshes the session count that the later queries go by.
    bool read_info(port_entry &port, uint32_t handle)
    {
        VARNOK_PHY_PORT_INFO info{};
        info.Version = VARNOK_RECORD_VERSION_2;
        if (!good(call_name::get_phy_port_info, VARNOK_GetPhyPortInfo(handle, &info),
                  port.instance))
            return false;
        port.info = info;
        return true;
    }

    void read_portal(port_entry &port, uint32_t handle)
    {
        std::vector<VARNOK_ISCSI_PORTAL> portals;
        const auto query = [&](uint32_t *count, VARNOK_ISCSI_PORTAL **array) {
            return VARNOK_GetIscsiPortal(handle, count, array);
        };
        good(call_name::get_iscsi_portal, read_list(portals, 0, query), port.instance);
        if (!portals.empty())
            port.portal = portals.front();
    }

    void read_sessions(port_entry &port, uint32_t handle)
    {
        std::vector<VARNOK_SESS_INFO> list;
        const auto query = [&](uint32_t *count, VARNOK_SESS_INFO **array) {
            return VARNOK_GetSessionInfo(handle, count, array);
        };
        good(call_name::get_session_info, read_list(list, 0, query), port.instance);
        uint32_t target = 0; // a port lists its targets in the order of its sessions
        for (const VARNOK_SESS_INFO &info : list) {
            if (wants_target(target))
                port.sessions.push_back({target, info});
            target++;
        }
    }

    void read_targets(port_entry &port, uint32_t handle)
    {
        std::vector<VARNOK_TGT_INFO> list;
        const auto query = [&](uint32_t *count, VARNOK_TGT_INFO **array) {
            return VARNOK_GetTgtInfo(handle, count, array);
        };
        good(call_name::get_tgt_info, read_list(list, 0, query), port.instance);
        size_t place = 0;
        for (const VARNOK_TGT_INFO &info : list) {
            place++;
            if (!wants_target(info.ScsiTgtNum))
                continue;
            port.targets.push_back({info, {}});
            if (!needs(need_luns))
                continue;
            line_.show(fmt::format("varnokctl: port {}, target {} of {}, {} read", port.instance,
                                   place, list.size(), counted(luns_, "LUN")));
            read_luns(port.targets.back(), port.instance, handle);
            luns_ += port.targets.back().luns.size();
        }
    }

    void read_luns(target_entry &target, uint32_t instance, uint32_t handle)
    {
        constexpr uint32_t most = 2047; // a target may claim more, but no more are ever listed
        const uint32_t number = target.info.ScsiTgtNum;
        const uint32_t room = std::clamp(+target.info.LunCount, 1U, most);
        const auto query = [&](uint32_t *count, VARNOK_LUN_INFO **array) {
            return VARNOK_GetLunInfo(handle, number, count, array);
        };
        const uint32_t status = read_list(target.luns, room, query);
        // REPORT LUNS may list more, or end with sense data that the library does not look at.
        if (good(call_name::get_lun_info, status, instance, number) &&
            target.luns.size() < target.info.LunCount)
            host_.failures.push_back(
                {call_name::get_lun_info, failure_cause::list_incomplete, instance, number});
    }

    const inventory_request &ask_;
    inventory &host_;
    progress &line_;
    size_t luns_ = 0; // read so far
};

} // namespace

inventory read_host(const inventory_request &ask, progress line)
{
    inventory host;
    inventory_reader reader(ask, host, line);
    const loaded_library library;
    if (!reader.good(call_name::load_library, library.status()))
        return host;
    uint32_t count = 0;
    const uint32_t status = VARNOK_GetPortCount(&count);
    // A load that found no adapter succeeds and leaves nothing loaded; this is how it shows.
    if (status == VARNOK_STATUS_FAILED)
        reader.miss_port();
    else if (reader.good(call_name::get_port_count, status))
        reader.read_ports(count);
    reader.miss_target();
    return host;
}

} // namespace ctl
