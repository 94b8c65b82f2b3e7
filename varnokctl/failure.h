// Calls that failed: why, and what to do about it.
#pragma once

#include "varnok_mgmt.h"
#include "varnokctl/lun_address.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl
{

enum class call_name {
    load_library,
    get_port_count,
    open_adapter,
    close_adapter,
    get_phy_port_info,
    get_iscsi_portal,
    get_session_info,
    get_tgt_info,
    get_lun_info,
    send_scsi_command,
    read_file,
    write_file,
    command_line,
};

enum class failure_cause {
    refused_by_library, // the status says why
    refused_by_system,  // the status is an error number
    not_loaded,
    no_adapters,
    no_such_port,
    too_much_data,
    file_not_read,    // the status is an error number
    file_not_written, // the same
    // No call failed:
    refused_by_device,
    not_told, // the device refused what a list needs; the detail says why
    no_such_target,
    several_targets,
    list_incomplete,
    no_capture,
    wrong_usage,
};

struct failed_call {
    call_name call;
    failure_cause cause;
    std::optional<uint32_t> port{};
    std::optional<uint32_t> target{};
    uint32_t status = VARNOK_STATUS_SUCCESS;
    std::string
        detail{}; // the meaning, where there is more to say than the status and the cause do
    std::optional<lun_levels> lun{};
    // Of the SCSI command that failed, where it is known which one:
    std::string cdb{};   // its first bytes: "0x120180"
    std::string sense{}; // "02/04/01"; empty when the device sent none that is about the command
};

// Whether the status says that the call succeeded. If not, the failure is added to the others.
bool succeeded(std::vector<failed_call> &failures, call_name call, uint32_t status,
               std::optional<uint32_t> port = {}, std::optional<uint32_t> target = {});

struct failure_advice {
    std::string name;   // of the status: "VARNOK_STATUS_DRIVER_6", "EIO"; else of the cause
    std::string number; // of the status; empty when no call failed
    std::string meaning;
    std::string next;
};

failure_advice advice_on(const failed_call &failure);

// What a document tells of a failure.
struct told_failure {
    std::string call, name, meaning;
    std::optional<uint32_t> port{}, target{};
    std::optional<lun_levels> lun{};
    uint32_t status = VARNOK_STATUS_SUCCESS;
};

// The failure that was told. Nothing when there is no such call.
std::optional<failed_call> retold(const told_failure &told);

// "VARNOK_GetLunInfo"; "read" or "write" for a file and "varnokctl" for the command line.
std::string_view call_text(call_name call);

// "VARNOK_GetLunInfo, port 0, target 2: VARNOK_STATUS_DRIVER_6 (0x80000006): driver status 6; next:
// look in the system log"
std::string failure_text(const failed_call &failure, bool with_advice = true);

} // namespace ctl
