#include "varnokctl/facts.h"

#include "varnokctl/fields.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/words.h"

#include <fmt/format.h>

namespace ctl
{
namespace
{

std::string size_of(const VARNOK_LUN_INFO &lun, const output_style &style)
{
    const std::string size = size_text(lun.Capacity);
    return style.bytes && lun.Capacity >= 1024 ? fmt::format("{} ({} B)", size, +lun.Capacity)
                                               : size;
}

std::string name_of(const VARNOK_LUN_INFO &lun, const output_style &style)
{
    const std::string vendor = field_text(lun.VendorName, style);
    const std::string product = field_text(lun.ProductName, style);
    return vendor + (vendor.empty() || product.empty() ? "" : " ") + product;
}

} // namespace

host_counts counts_of(const inventory &host)
{
    size_t targets = 0;
    size_t luns = 0;
    bool all_listed = true, all_targets = true;
    for (const port_entry &port : host.ports) {
        targets += port.targets.size();
        all_targets = all_targets && port.info && !port.targets_unread;
        for (const target_entry &target : port.targets) {
            luns += target.luns.size();
            all_listed =
                all_listed && target.is_counted && target.luns.size() >= target.info.LunCount;
        }
    }
    host_counts counts = {host.ports.size(), {}, {}};
    if (targets != 0 || all_targets)
        counts.targets = targets;
    if (luns != 0 || (all_listed && all_targets))
        counts.luns = luns;
    return counts;
}

std::vector<std::string> host_facts(const inventory &host)
{
    const auto [ports, targets, luns] = counts_of(host);
    return {counted(ports, "port"), targets ? counted(*targets, "target") : targets_not_readable,
            luns ? counted(*luns, "LUN") : luns_not_readable};
}

std::string target_address(const port_entry &port, const target_entry &target)
{
    const session_entry *session = session_of(port, target.info.ScsiTgtNum);
    return endpoint_text(session == nullptr ? target_endpoint(target.info)
                                            : target_endpoint(session->info));
}

std::string lun_count(const target_entry &target)
{
    return target.is_counted ? counted(target.info.LunCount, "LUN") : luns_not_readable;
}

std::vector<std::string> lun_facts(const lun_entry &lun, const output_style &style)
{
    const VARNOK_LUN_INFO &info = lun.info;
    std::vector<std::string> facts = {fmt::format("LUN {}", lun_number(levels_of(info))),
                                      lun.is_known ? device_type(info.DeviceType) : "not readable",
                                      size_of(info, style), name_of(info, style)};
    if (style.identity)
        facts.push_back(lun.identity ? wwid(*lun.identity) : "");
    return facts;
}

} // namespace ctl
