// hostsim - makes the process that links it see a simulated host: the operating system's name, the
// user, the legacy drivers' device nodes and the native drivers' management calls.
#pragma once

#include <cstddef>
#include <cstdint>
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

// A scenario that cannot be used; what() names the place first: "ports[1].mac: not a MAC address".
struct scenario_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One request as a driver meets it. Everything in it may be changed by an observer.
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
    // Both throw scenario_error. base is the folder that relative file names start from.
    static std::unique_ptr<host> from_text(std::string_view text, const std::string &base = ".");
    static std::unique_ptr<host> from_file(const std::string &path);

    virtual ~host() = default;

    // Observers, for tests. on_request runs before the driver answers, on_answer after it, with the
    // record filled. Not called for init and open.
    std::function<void(exchange &)> on_request;
    std::function<void(exchange &)> on_answer;
};

// Makes h the host that this process sees from now on; null brings the plain machine back.
void install(host *h);

// Device descriptors that are open now.
int open_devices();

} // namespace hostsim
