// iscsi_session.h - a session with an iSCSI target after its login. One command runs at a time.
#pragma once

#include "iscsi_login.h"
#include "scsi_target.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hostsim::iscsi
{

struct command_result {
    uint8_t scsi_status = 0;
    std::vector<uint8_t> sense{};
    size_t moved = 0; // bytes
};

struct found_targets {
    std::vector<std::string> names; // each once, in the portal's order
    bool more = false;              // than are taken from a portal
    size_t not_names = 0;           // what cannot be the name of a target
};

class session
{
  public:
    // Connects and logs in. Throws failure, as every call here does: then the session has ended.
    session(const std::string &portal, login_names names, deadline until);
    session(int socket, login_names names, deadline until); // which is connected

    const parameters &agreed() const { return login_.agreed; }
    uint16_t tsih() const { return login_.tsih; }
    int fd() const { return to_.fd(); }

    // Serves what the target sent in the meantime, such as its end.
    void catch_up(deadline until);

    // The LUN is its eight bytes as a big-endian number. The command was carried out if the call
    // returns a status of GOOD.
    command_result run(uint64_t lun, const scsi_command &command, deadline until);

    found_targets discover(size_t most_names, deadline until);

  private:
    class transfer;

    void begin(deadline until);

    void note_numbers(const pdu &unit);
    pdu new_request(uint8_t operation) const;
    void serve(const pdu &unit, deadline until);
    void send_data(transfer &t, const pdu &request, deadline until);
    pdu receive_text(pdu request, deadline until);

    login_names names_;
    connection to_;
    login_result login_{};
    uint32_t task_tag_ = 0;
};

} // namespace hostsim::iscsi
