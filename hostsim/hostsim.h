// hostsim.h - shows its process a simulated host: the operating system's name, the user, the device
// nodes of the legacy drivers and the management calls of the native ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace hostsim
{

enum class driver_id { rovani, tepli, pelt, dxo };

enum class request {
    init, // opening a native driver's management handle
    open, // opening a legacy driver's device node
    hba_cnt,
    hostno,
    pci_info,
    port_info,
    sess_info,
    tgt_info,
    scsi_cmd,
};

// A scenario that cannot be used. what() begins with the place: "ports[1].mac: not a MAC address".
struct scenario_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One request as a driver receives it. An observer may change everything in it.
struct exchange {
    driver_id driver;
    request what;
    uint64_t code;               // ioctl request code, or callback identifier
    std::span<std::byte> header; // the ioctl header, or the whole envelope
    std::span<std::byte> record; // the driver record
    uint32_t status = 0;         // the driver's answer
    int transport_errno = 0;     // nonzero: the call itself fails with this errno
};

class host
{
  public:
    // Both throw scenario_error. Relative file names in the scenario start from the folder base.
    static std::unique_ptr<host> from_text(std::string_view text, const std::string &base = ".");
    static std::unique_ptr<host> from_file(const std::string &path);

    virtual ~host() = default;

    // For tests. on_request runs before the driver answers. on_answer runs after it, when the
    // record is filled. Neither runs for init and open.
    std::function<void(exchange &)> on_request;
    std::function<void(exchange &)> on_answer;
};

// Makes h the host that this process sees. Null brings the real machine back.
void install(host *h);

// How many device descriptors are open.
int open_devices();

} // namespace hostsim
