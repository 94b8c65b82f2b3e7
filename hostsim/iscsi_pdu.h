// iscsi_pdu.h - the protocol data units of iSCSI: a header of 48 bytes, and data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace hostsim::iscsi
{

enum opcode : uint8_t {
    nop_out = 0x00,
    scsi_request = 0x01,
    login_request = 0x03,
    text_request = 0x04,
    data_out = 0x05,
    nop_in = 0x20,
    scsi_response = 0x21,
    login_response = 0x23,
    text_response = 0x24,
    data_in = 0x25,
    ready_to_transfer = 0x31,
    async_message = 0x32,
    reject = 0x3F,
};

inline constexpr uint8_t immediate = 0x40;    // beside the opcode
inline constexpr uint8_t final_bit = 0x80;    // in the flags
inline constexpr uint8_t continue_bit = 0x40; // of texts
inline constexpr uint32_t no_tag = 0xFFFFFFFF;

// The most data that this side takes in one unit. It is declared at login.
inline constexpr uint32_t most_data = 262144;

// Where fields stand in the header.
namespace at
{
inline constexpr size_t flags = 1, response = 2, status = 3, version = 3;
inline constexpr size_t ahs_length = 4, data_length = 5, lun = 8;
inline constexpr size_t isid = 8, tsih = 14;
inline constexpr size_t task_tag = 16, transfer_tag = 20, transfer_length = 20;
inline constexpr size_t command_number = 24, status_number = 24;
inline constexpr size_t expected_status_number = 28, expected_command_number = 28;
inline constexpr size_t most_command_number = 32, cdb = 32;
inline constexpr size_t login_status = 36, async_event = 36;
inline constexpr size_t data_number = 36, buffer_offset = 40, residual = 44, desired_length = 44;
} // namespace at

struct pdu {
    std::array<uint8_t, 48> header{};
    std::vector<uint8_t> data{};

    uint8_t operation() const { return header[0] & 0x3F; }
    uint8_t flags() const { return header[at::flags]; }

    // Fields are big-endian.
    template <class T>
    T get(size_t offset) const
    {
        uint64_t value = 0;
        for (size_t i = 0; i < sizeof(T); ++i)
            value = value << 8 | header[offset + i];
        return static_cast<T>(value);
    }
    template <class T>
    void put(size_t offset, T value)
    {
        for (size_t i = sizeof(T); i-- > 0; value = static_cast<T>(value >> 4 >> 4))
            header[offset + i] = static_cast<uint8_t>(value);
    }
};

} // namespace hostsim::iscsi
