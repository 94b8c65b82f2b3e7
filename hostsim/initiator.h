// initiator.h - the targets of a real iSCSI portal, as far as the simulated host trusts them. Every
// call ends within the time that is allowed, and every failure is told to the user once.
#pragma once

#include "iscsi_session.h"
#include "scsi_target.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace hostsim
{

// How long a command or a login may take: VARNOK_HOST_TIMEOUT in seconds, or 5 seconds. Reading a
// portal with all its logins may take twice that time.
std::chrono::seconds longest_wait();

struct portal_access {
    std::string portal;    // "host:port"
    std::string initiator; // iSCSI name
    std::string port_text; // "port 0", for messages
};

// One end of a session. An address is its bytes in network order, or empty.
struct tcp_endpoint {
    std::string ipv4;
    std::string ipv6;
    uint16_t tcp_port = 0;
};

struct scsi_reply {
    int error = 0;                  // errno when the caller would not see that the command failed
    iscsi::command_result result{}; // it was carried out if there is no sense data
};

class real_target
{
  public:
    real_target(portal_access access, std::string name);

    const std::string &name() const { return name_; }
    const std::array<uint8_t, 6> &isid() const { return isid_; }
    const iscsi::session *session() const { return session_.get(); } // null: not logged in
    const tcp_endpoint &own_endpoint() const { return own_; }
    const tcp_endpoint &target_endpoint() const { return target_; }

    // A new query of the port begins: what failed before is tried again. The target has this number
    // from now on, and logs in at this address. Returns whether it is logged in by the end.
    bool begin_query(uint32_t number, const std::string &address, iscsi::deadline until);
    scsi_reply run(uint64_t lun, const scsi_command &command);

  private:
    std::string text() const; // "port 0, target 3: "
    void log_in(iscsi::deadline until);
    void note_failure(const iscsi::failure &f, iscsi::deadline began);

    portal_access access_;
    const std::string name_;
    uint32_t number_ = 0;
    std::array<uint8_t, 6> isid_{};
    std::unique_ptr<iscsi::session> session_;
    pid_t owner_ = 0;             // the process that logged in
    std::set<uint64_t> answered_; // LUNs that said more than UNIT ATTENTION in this session
    tcp_endpoint own_;
    tcp_endpoint target_;

    int last_error_ = 0;                 // of the failure that is not tried again
    iscsi::deadline tried_again_{};      // until then
    iscsi::clock::duration lost_time_{}; // by failures in this query
};

struct offered_targets {
    std::vector<std::string> names; // sorted
    std::string address;            // where the portal was reached: its name is looked up once
};

// Asks the portal for its targets. Returns 0, or an errno.
int discover_targets(const portal_access &access, iscsi::deadline until, offered_targets &offered);

} // namespace hostsim
