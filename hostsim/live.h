// live.h - a real iSCSI portal behind a simulated port: its targets, and SCSI commands to them.
// Every call ends within a bounded time; a target that went away is logged in to again by the next
// command.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "scsi.h"

struct iscsi_context;

namespace hostsim
{

extern const bool has_initiator; // of this build; without it no scenario names a portal

struct live_login {
    std::string portal;    // "host:port"
    std::string initiator; // iSCSI name
    uint16_t session = 0;  // tells the sessions of one initiator apart in their ISIDs
};

// Both ends of a session as the record has them: bytes in network order, empty when not of that
// family.
struct live_address {
    std::string ipv4;
    std::string ipv6;
    uint16_t port = 0;
};

struct live_reply {
    int error = 0; // errno of a command that did not get through
    uint8_t scsi_status = 0;
    std::vector<uint8_t> sense;
    size_t moved = 0;
};

class live_connection;

class live_target
{
  public:
    live_target(live_login login, std::string name);
    ~live_target();

    const std::string &name() const { return name_; }
    std::string isid() const;
    bool logged_in() const { return connection_ != nullptr; }
    const live_address &own_address() const { return own_; }
    const live_address &target_address() const { return target_; }

    // 0, or the errno of a login that failed.
    int log_in();
    live_reply run(uint64_t wire_lun, const scsi_command &command);

  private:
    live_reply try_once(uint64_t wire_lun, const scsi_command &command);

    live_login login_;
    std::string name_;
    std::unique_ptr<live_connection> connection_;
    live_address own_;
    live_address target_;
};

// The names of the portal's targets, sorted; 0, or why it does not answer.
int discover_targets(const live_login &login, std::vector<std::string> &names);

} // namespace hostsim
