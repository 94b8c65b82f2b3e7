// iscsi_connection.h - a TCP connection that carries iSCSI data units. Nothing that the other side
// sends, or does not send, keeps a call beyond its deadline.
#pragma once

#include "iscsi_pdu.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace hostsim::iscsi
{

using clock = std::chrono::steady_clock;
using deadline = clock::time_point;

// Why a target cannot be used. The connection is of no more use.
struct failure : std::runtime_error {
    failure(int errno_value, const std::string &cause)
        : std::runtime_error(cause), error(errno_value)
    {
    }
    int error;
};

[[noreturn]] void fail_by_errno(int error);
[[noreturn]] void fail_protocol(const std::string &what); // "the target breaks the protocol: ..."

class connection
{
  public:
    // Connects to "host:port". Throws failure, as every call here does.
    connection(const std::string &portal, deadline until);
    // Takes a connected socket that does not block.
    explicit connection(int fd);
    ~connection();
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    int fd() const { return fd_; }
    bool has_input() const; // a unit, a part of one, or the end

    void send(pdu unit, deadline until);
    pdu receive(deadline until);

    bool header_digest = false;
    bool data_digest = false;

  private:
    void wait(short events, deadline until) const;
    void send_all(std::span<const uint8_t> bytes, deadline until);
    void read_exactly(std::span<uint8_t> into, deadline until);
    void check_digest(std::span<const uint8_t> bytes, uint32_t crc, deadline until);

    int fd_ = -1;
    std::vector<uint8_t> buffer_; // received bytes
    size_t begin_ = 0, end_ = 0;  // those that were not yet read
};

} // namespace hostsim::iscsi
