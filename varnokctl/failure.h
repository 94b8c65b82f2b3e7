// Calls that failed, what that means and what to do about it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <varnok_mgmt.h>

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
    write_file,
};

enum class failure_cause {
    refused_by_library, // the status says why
    refused_by_system,  // the status is an error number
    not_loaded,
    no_adapters,
    no_such_port,
    too_much_data,
    file_not_written, // the status is an error number
    // The call itself succeeded:
    refused_by_device,
    no_such_target,
    list_incomplete,
};

struct failed_call {
    call_name call;
    failure_cause cause;
    std::optional<uint32_t> port;
    std::optional<uint32_t> target;
    uint32_t status = VARNOK_STATUS_SUCCESS;
};

// Whether the status says that the call succeeded. If not, the failure is noted.
bool succeeded(std::vector<failed_call> &failures, call_name call, uint32_t status,
               std::optional<uint32_t> port = {}, std::optional<uint32_t> target = {});

struct failure_advice {
    std::string name;   // "VARNOK_STATUS_DRIVER_6", "EIO" or, of a call that succeeded, its cause
    std::string number; // empty for a call that succeeded
    std::string meaning;
    std::string next;
};

failure_advice advice_on(const failed_call &failure);

// "VARNOK_GetLunInfo"; "write" for a file
std::string_view call_text(call_name call);

// "VARNOK_GetLunInfo, port 0, target 2: VARNOK_STATUS_DRIVER_6 (0x80000006): driver status 6"
std::string failure_text(const failed_call &failure);

} // namespace ctl
