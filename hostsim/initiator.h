// initiator.h - reaches the targets of a real iSCSI portal. Every call ends within a bounded time.
// When a target has gone away, the next command logs in again.
#pragma once

#include "scsi_target.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct iscsi_context;

namespace hostsim
{

extern const bool has_initiator; // false: this build accepts no scenario that names a portal

struct portal_login {
    std::string portal;    // "host:port"
    std::string initiator; // iSCSI name
    uint16_t session = 0;  // part of the ISID, which differs from session to session
};

// One end of a session. An address is its bytes in network order, or empty.
struct tcp_endpoint {
    std::string ipv4;
    std::string ipv6;
    uint16_t tcp_port = 0;
};

struct scsi_reply {
    int error = 0; // errno when the target did not answer
    uint8_t scsi_status = 0;
    std::vector<uint8_t> sense{};
    size_t moved = 0;
};

class initiator_connection;

class real_target
{
  public:
    real_target(portal_login login, std::string name);
    ~real_target();

    const std::string &name() const { return name_; }
    std::string isid() const;
    const tcp_endpoint &own_endpoint() const { return own_; }
    const tcp_endpoint &target_endpoint() const { return target_; }

    // Returns 0, or the errno of a login that failed.
    int log_in();
    scsi_reply run(uint64_t wire_lun, const scsi_command &command);

  private:
    scsi_reply try_once(uint64_t wire_lun, const scsi_command &command);

    portal_login login_;
    std::string name_;
    std::unique_ptr<initiator_connection> connection_;
    tcp_endpoint own_;
    tcp_endpoint target_;
};

// Reads the names of the portal's targets, sorted. Returns 0, or an errno.
int discover_targets(const portal_login &login, std::vector<std::string> &names);

} // namespace hostsim
