// Lists the LUNs of every target that this host sees, with their sizes.
#include <cinttypes>
#include <cstdio>
#include <string_view>

#include <varnok.hpp>

static bool complain(const varnok::status &status)
{
    std::fprintf(stderr, "%s\n", status.text().c_str());
    return false;
}

static bool show_luns(const varnok::port &port, const VARNOK_TGT_INFO &target)
{
    const auto luns = port.luns(target.ScsiTgtNum, target.LunCount);
    // ScsiLunNum includes the address method: flat LUN 300 shows as 16684.
    for (const VARNOK_LUN_INFO &lun : luns.value)
        std::printf("  LUN %" PRIu32 ": %" PRIu64 " MiB\n", lun.ScsiLunNum, lun.Capacity >> 20);
    return luns.ok() || complain(luns.status);
}

static bool show_port(const varnok::port &port)
{
    if (!port.status().ok())
        return complain(port.status());
    const auto info = port.info(); // refreshes the number of targets
    if (!info.ok())
        return complain(info.status);
    const auto targets = port.targets();
    bool good = targets.ok() || complain(targets.status);
    for (const VARNOK_TGT_INFO &target : targets.value) {
        const std::string_view name = varnok::text(target.TargetName);
        std::printf("%.*s\n", static_cast<int>(name.size()), name.data());
        if (target.LunCount != 0)
            good = show_luns(port, target) && good;
    }
    return good;
}

int main()
{
    const varnok::library library;
    if (!library.status().ok()) {
        complain(library.status());
        return 1;
    }
    const auto ports = library.port_count(); // stays 0 on a host without adapters
    bool good = true;
    for (std::uint32_t instance = 0; instance < ports.value; ++instance)
        good = show_port(varnok::port(library, instance)) && good;
    return good ? 0 : 1;
}
