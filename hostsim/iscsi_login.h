// iscsi_login.h - the login phase of an iSCSI session: who both sides are, and what they agree on.
#pragma once

#include "iscsi_connection.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace hostsim::iscsi
{

// What a session runs by. It starts with the protocol's defaults. A yes is 1.
struct parameters {
    uint32_t header_digest = 0;
    uint32_t data_digest = 0;
    uint32_t most_sent_data = 8192; // that the target takes in one unit
    uint32_t max_connections = 1;
    uint32_t initial_r2t = 1;
    uint32_t immediate_data = 1;
    uint32_t max_burst_length = 262144;
    uint32_t first_burst_length = 65536;
    uint32_t time2wait = 2;
    uint32_t time2retain = 20;
    uint32_t max_outstanding_r2t = 1;
    uint32_t data_pdu_in_order = 1;
    uint32_t data_sequence_in_order = 1;
    uint32_t error_recovery_level = 0;
    uint32_t portal_group = 0;
};

struct login_names {
    std::string initiator;
    std::string target; // empty: a discovery session
    std::array<uint8_t, 6> isid;
};

struct login_result {
    parameters agreed;
    uint16_t tsih;
    uint32_t command_number;      // of the next command
    uint32_t most_command_number; // that the target takes
    uint32_t expected_status_number;
};

// Logs in, with CHAP if VARNOK_CHAP_USER and VARNOK_CHAP_SECRET are set. Throws failure.
login_result log_in(connection &to, const login_names &names, deadline until);

// Calls take(key, value) for each "key=value" of a text, which ends with a NUL each.
template <class Take>
void each_key(std::string_view text, Take take)
{
    while (!text.empty()) {
        const size_t end = text.find('\0');
        if (end == std::string_view::npos)
            fail_protocol("a text without its end");
        const std::string_view pair = text.substr(0, end);
        text.remove_prefix(end + 1);
        const size_t equals = pair.find('=');
        if (equals != std::string_view::npos)
            take(pair.substr(0, equals), pair.substr(equals + 1));
        else if (!pair.empty())
            fail_protocol("a text without a value");
    }
}

} // namespace hostsim::iscsi
