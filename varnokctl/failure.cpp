#include "varnokctl/failure.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <iterator>
#include <sys/utsname.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <varnok.hpp>

namespace ctl
{
namespace
{

constexpr std::string_view call_texts[] = {
    "VARNOK_LoadLibrary",
    "VARNOK_GetPortCount",
    "VARNOK_OpenAdapter",
    "VARNOK_CloseAdapter",
    "VARNOK_GetPhyPortInfo",
    "VARNOK_GetIscsiPortal",
    "VARNOK_GetSessionInfo",
    "VARNOK_GetTgtInfo",
    "VARNOK_GetLunInfo",
    "VARNOK_SendScsiCommand",
    "read",
    "write",
    "varnokctl",
};
static_assert(std::size(call_texts) == static_cast<size_t>(call_name::command_line) + 1);

constexpr const char *see_log = "set VARNOK_API_DEBUG=4 and repeat the command to see why";
constexpr const char *see_driver = "look in the system log for the adapter driver's messages, and "
                                   "repeat the command with VARNOK_API_DEBUG=4";
constexpr const char *see_device =
    "see that the port's device is there and free, then repeat the command";
constexpr const char *see_target =
    "see that the target and the LUN are ready, then repeat the command";
constexpr const char *load_driver =
    "load an adapter's driver; 'varnokctl ports' shows what is there";
constexpr const char *be_root = "run the command as root";
constexpr const char *be_there =
    "run the command on the adapters' host, or on a simulated one by 'varnok-host run'";
constexpr const char *find_driver =
    "load an adapter's driver; set VARNOK_API_DEBUG=4 to see what is missing";
constexpr const char *reopen = "repeat the command; the port was closed behind it";

struct status_advice {
    uint32_t status;
    const char *next;
};

constexpr status_advice advices[] = {
    {VARNOK_STATUS_FAILED, reopen},
    {VARNOK_STATUS_DRIVER_2, see_driver},
    {VARNOK_STATUS_DRIVER_3, see_driver},
    {VARNOK_STATUS_DRIVER_5, see_driver},
    {VARNOK_STATUS_DRIVER_6, see_driver},
    {VARNOK_STATUS_NOT_FOUND, "see what is there with 'varnokctl tree'"},
    {VARNOK_STATUS_DRIVER_8, see_driver},
    {VARNOK_STATUS_INSUFFICIENT_BUFFER, "repeat the command: the list may have grown meanwhile"},
    {VARNOK_STATUS_NO_MEMORY, "free memory and repeat the command"},
    {VARNOK_STATUS_DRIVER_FAILED, see_driver},
    {VARNOK_STATUS_DRIVER_12, see_driver},
    {VARNOK_STATUS_DRIVER_13, see_driver},
};

struct cause_words {
    failure_cause cause;
    std::string_view name;    // empty when the status has one
    std::string_view meaning; // empty when the status or the detail says it
    const char *next;
};

// These words replace those of the status.
constexpr cause_words causes[] = {
    {failure_cause::refused_by_system, "", "", see_device},
    {failure_cause::file_not_read, "", "", "see that the file is there and can be read"},
    {failure_cause::file_not_written, "", "",
     "see that the file can be written; the command itself was carried out"},
    {failure_cause::no_adapters, "", "this host has no adapters", load_driver},
    {failure_cause::no_such_port, "", "there is no such port",
     "see the ports with 'varnokctl ports'"},
    {failure_cause::too_much_data, "", "too much data for the driver, or driver status 4",
     "move less data at once: ports of native drivers carry at most 262144 bytes"},
    {failure_cause::refused_by_device, "refused by the device", "the device refused the command",
     "see its sense data"},
    {failure_cause::not_told, "refused by the device", "the device refused the command",
     see_target},
    {failure_cause::no_such_target, "no such target", "answered, but there is no such target",
     "see the targets with 'varnokctl targets'"},
    {failure_cause::several_targets, "several targets", "more than one target has such a name",
     "name one of them: see 'varnokctl targets'"},
    {failure_cause::list_incomplete, "list incomplete", "the target counts more LUNs than it lists",
     "repeat the command; of more than 2047 LUNs only the first are listed"},
    {failure_cause::no_capture, "no capture", "", "give what 'varnokctl capture' printed"},
    {failure_cause::wrong_usage, "wrong usage", "", "see 'varnokctl --help'"},
};

// What only a real host's own log and devices tell, a simulated or a live host tells elsewhere.
const char *next_here(const char *next)
{
    constexpr const char *of_real_hosts[] = {see_driver, see_device, see_target, load_driver,
                                             be_root,    be_there,   find_driver};
    const bool simulated = std::getenv("VARNOK_HOST_SCENARIO") != nullptr;
    return simulated && std::ranges::find(of_real_hosts, next) != std::end(of_real_hosts)
               ? "see the scenario and its faults, or what varnok-host says on standard error"
               : next;
}

// The library tells only that it is not loaded. These are its conditions, in its order.
void explain_not_loaded(failure_advice &advice)
{
    utsname host{};
    if (geteuid() != 0) {
        advice.meaning = "not loaded: that takes root";
        advice.next = next_here(be_root);
    } else if (uname(&host) != 0 ||
               std::string_view(host.sysname).find("VMkernel") == std::string_view::npos) {
        advice.meaning =
            fmt::format("not loaded: the host is no VMkernel, but '{}'", safe_text(host.sysname));
        advice.next = next_here(be_there);
    } else {
        advice.meaning = "not loaded: no adapter driver answers";
        advice.next = next_here(find_driver);
    }
}

constexpr uint32_t first_status = 0x80000000; // lower ones are error numbers of the system

// Some statuses mean something special when a certain call returns them.
failure_cause cause_of(call_name call, uint32_t status)
{
    if (status < first_status)
        return failure_cause::refused_by_system;
    if (call == call_name::load_library && status == VARNOK_STATUS_FAILED)
        return failure_cause::not_loaded;
    if (call == call_name::open_adapter && status == VARNOK_STATUS_FAILED)
        return failure_cause::no_adapters;
    if (call == call_name::open_adapter && status == VARNOK_STATUS_NOT_FOUND)
        return failure_cause::no_such_port;
    if (call == call_name::send_scsi_command && status == VARNOK_STATUS_INVALID_PARAMETER)
        return failure_cause::too_much_data;
    return failure_cause::refused_by_library;
}

failure_advice advice_on_status(uint32_t status)
{
    if (status == VARNOK_STATUS_SUCCESS)
        return {};
    if (status < first_status) {
        const char *name = strerrorname_np(static_cast<int>(status));
        return {name == nullptr ? "unknown error" : name, fmt::to_string(status),
                std::generic_category().message(static_cast<int>(status)), ""};
    }
    const varnok::status words(status, "");
    const auto *advice = std::ranges::find(advices, status, &status_advice::status);
    const char *next = advice == std::end(advices) ? see_log : advice->next;
    return {words.name(), fmt::format("0x{:08X}", status), words.meaning(), next_here(next)};
}

// Of failures that have one name, a host's is not_told.
failure_cause cause_told(const told_failure &told, call_name call)
{
    const auto named = [&](const cause_words &words) {
        return !words.name.empty() && words.name == told.name;
    };
    const auto *words = std::ranges::find_if(causes, named);
    if (words != std::end(causes))
        return words->cause == failure_cause::refused_by_device ? failure_cause::not_told
                                                                : words->cause;
    const failure_cause cause = cause_of(call, told.status);
    // Why a library was not loaded is asked of the host itself.
    return cause == failure_cause::not_loaded ? failure_cause::refused_by_library : cause;
}

} // namespace

bool succeeded(std::vector<failed_call> &failures, call_name call, uint32_t status,
               std::optional<uint32_t> port, std::optional<uint32_t> target)
{
    if (status != VARNOK_STATUS_SUCCESS)
        failures.push_back({call, cause_of(call, status), port, target, status, {}});
    return status == VARNOK_STATUS_SUCCESS;
}

failure_advice advice_on(const failed_call &failure)
{
    failure_advice advice = advice_on_status(failure.status);
    const auto *words = std::ranges::find(causes, failure.cause, &cause_words::cause);
    if (words != std::end(causes)) {
        if (!words->name.empty())
            advice.name = words->name;
        if (!words->meaning.empty())
            advice.meaning = words->meaning;
        advice.next = next_here(words->next);
    }
    if (!failure.detail.empty())
        advice.meaning = failure.detail;
    if (failure.cause == failure_cause::not_loaded)
        explain_not_loaded(advice);
    return advice;
}

std::optional<failed_call> retold(const told_failure &told)
{
    const auto *text = std::ranges::find(call_texts, told.call);
    if (text == std::end(call_texts))
        return {};
    const auto call = static_cast<call_name>(text - std::begin(call_texts));
    failed_call failure = {.call = call,
                           .cause = cause_told(told, call),
                           .port = told.port,
                           .target = told.target,
                           .status = told.status,
                           .lun = told.lun};
    if (std::string meaning = safe_text(told.meaning); meaning != advice_on(failure).meaning)
        failure.detail = std::move(meaning);
    return failure;
}

std::string_view call_text(call_name call) { return call_texts[static_cast<size_t>(call)]; }

std::string failure_text(const failed_call &failure, bool with_advice)
{
    const failure_advice advice = advice_on(failure);
    std::string text(call_text(failure.call));
    if (failure.port)
        text += fmt::format(", port {}", *failure.port);
    if (failure.target)
        text += fmt::format(", target {}", *failure.target);
    if (failure.lun)
        text += fmt::format(", LUN {}", lun_number(*failure.lun));
    if (!advice.number.empty())
        text += fmt::format(": {} ({})", advice.name, advice.number);
    text += ": " + advice.meaning;
    return with_advice ? text + "; next: " + advice.next : text;
}

} // namespace ctl
