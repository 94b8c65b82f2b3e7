#include "varnokctl/status.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <system_error>

#include <cstring>
#include <fmt/format.h>

namespace ctl
{
namespace
{

constexpr const char *see_log = "set VARNOK_API_DEBUG=4 and repeat the command to see why";
constexpr const char *see_driver = "look in the system log for the adapter driver's messages, and "
                                   "repeat the command with VARNOK_API_DEBUG=4";
constexpr const char *reopen = "repeat the command; the port was closed behind it";

struct status_word {
    std::string_view call; // empty for every call
    uint32_t code;
    const char *name;
    const char *meaning;
    const char *next;
};

#define STATUS_OF(call, name, meaning, next)                                                       \
    {                                                                                              \
        call, VARNOK_STATUS_##name, "VARNOK_STATUS_" #name, meaning, next                          \
    }
#define STATUS(name, meaning, next) STATUS_OF("", name, meaning, next)
// The first that fits counts.
constexpr status_word statuses[] = {
    STATUS_OF("VARNOK_LoadLibrary", FAILED,
              "not loaded: that takes root, ESXi and an adapter driver",
              "run the command as root on an ESXi host with an adapter driver loaded; set "
              "VARNOK_API_DEBUG=4 to see what is missing"),
    STATUS_OF("VARNOK_OpenAdapter", NOT_FOUND, "there is no such port",
              "see the ports with 'varnokctl ports'"),
    STATUS_OF("VARNOK_OpenAdapter", FAILED, "this host has no adapters",
              "load an adapter's driver; 'varnokctl ports' shows what is there"),
    STATUS_OF("VARNOK_SendScsiCommand", SUCCESS, "the device refused the command",
              "see its sense data"),
    STATUS_OF("VARNOK_GetLunInfo", SUCCESS, "the target counts more LUNs than it lists",
              "repeat the command; of more than 2047 LUNs only the first are listed"),
    STATUS_OF("VARNOK_SendScsiCommand", INVALID_PARAMETER,
              "too much data for the driver, or driver status 4",
              "move less data at once: ports of native drivers carry at most 262144 bytes"),
    STATUS(SUCCESS, "answered, but there is no such target",
           "see the targets with 'varnokctl targets'"),
    STATUS(FAILED, "port not open, or driver status 1", reopen),
    STATUS(DRIVER_2, "driver status 2", see_driver),
    STATUS(DRIVER_3, "driver status 3", see_driver),
    STATUS(INVALID_PARAMETER, "an argument is missing or invalid, or driver status 4", see_log),
    STATUS(DRIVER_5, "driver status 5", see_driver),
    STATUS(DRIVER_6, "driver status 6", see_driver),
    STATUS(NOT_FOUND, "the driver knows no such port, session, target or LUN (driver status 7)",
           "see what is there with 'varnokctl tree'"),
    STATUS(DRIVER_8, "driver status 8", see_driver),
    STATUS(INSUFFICIENT_BUFFER, "there are more entries than asked for, or driver status 9",
           "repeat the command: the list may have grown meanwhile"),
    STATUS(NO_MEMORY, "out of memory, or driver status 10", "free memory and repeat the command"),
    STATUS(DRIVER_FAILED, "the driver failed the request without a usable status", see_driver),
    STATUS(DRIVER_12, "driver status 12", see_driver),
    STATUS(DRIVER_13, "driver status 13", see_driver),
};
#undef STATUS
#undef STATUS_OF

constexpr uint32_t first_failure = 0x80000000; // below it a status is an error number of the system

advice system_advice(const failure &failure)
{
    const uint32_t status = failure.status;
    const bool file = failure.call == std::string_view("write");
    const char *name = strerrorname_np(static_cast<int>(status));
    return {name == nullptr ? "unknown error" : name, fmt::to_string(status),
            std::generic_category().message(static_cast<int>(status)),
            file ? "see that the file can be written; the command itself was carried out"
                 : "see that the port's device is there and free, then repeat the command"};
}

} // namespace

advice advice_on(const failure &failure)
{
    const uint32_t status = failure.status;
    if (status != VARNOK_STATUS_SUCCESS && status < first_failure)
        return system_advice(failure);
    const std::string number = fmt::format("0x{:08X}", status);
    const auto *word = std::ranges::find_if(statuses, [&](const status_word &w) {
        return w.code == status && (w.call.empty() || w.call == failure.call);
    });
    if (word == std::end(statuses))
        return {"unknown status", number, "no status that the library documents", see_log};
    return {word->name, number, word->meaning, word->next};
}

std::string failure_text(const failure &failure)
{
    std::string where;
    if (failure.port)
        where += fmt::format(", port {}", *failure.port);
    if (failure.target)
        where += fmt::format(", target {}", *failure.target);
    const advice advice = advice_on(failure);
    return fmt::format("{}{}: {} ({}): {}; next: {}", failure.call, where, advice.name,
                       advice.number, advice.meaning, advice.next);
}

} // namespace ctl
