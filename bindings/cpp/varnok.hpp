// varnok.hpp - libvarnok for C++17 and later, by headers alone. Include this one.
//
//     const varnok::library library; // loads, and frees at the end of its life
//     if (!library.status().ok())
//         return complain(library.status().text());
//     const auto ports = library.port_count();
//     for (std::uint32_t instance = 0; instance < ports.value; ++instance) {
//         const varnok::port port(library, instance); // opens, and closes at the end of its life
//         const auto info = port.info();
//         for (const VARNOK_TGT_INFO &target : port.targets().value)
//             show(varnok::text(info.value.HbaName), varnok::text(target.TargetName));
//     }
//
// The records are those of varnok_mgmt.h, which tells what their fields mean.
//
// Errors
//   Nothing here throws. Every call returns a status, alone or beside its value. A list that ended
//   early has the entries that were read. Code with exceptions may pass any of these to
//   varnok::check(), which throws a varnok::error unless all went well.
//
// Threads
//   As in C: any thread may call, but no two calls may overlap. That goes for the constructors and
//   destructors of library and port, too.
#ifndef VARNOK_HPP
#define VARNOK_HPP

#include "varnok/lists.hpp"
#include "varnok/status.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include <varnok_mgmt.h>

namespace varnok
{
namespace detail
{

// The library counts no loads.
inline unsigned libraries_alive = 0;

} // namespace detail

// A text field of a record, up to its NUL byte or its end. It is as the driver sent it, and may be
// neither UTF-8 nor fit to print. It lives as long as the record.
template <std::size_t N>
std::string_view text(const std::uint8_t (&field)[N])
{
    const auto *const begin = reinterpret_cast<const char *>(field);
    return {begin, strnlen(begin, N)};
}

// The bytes of a SCSI command: a list in braces, an array or a vector.
class cdb
{
  public:
    cdb(std::initializer_list<std::uint8_t> bytes) : cdb(bytes.begin(), bytes.size()) {}
    template <class Container>
    cdb(const Container &bytes) : cdb(std::data(bytes), std::size(bytes))
    {
    }
    cdb(const std::uint8_t *bytes, std::size_t size) : size_(size)
    {
        if (fits())
            std::copy_n(bytes, size, bytes_.begin());
    }

    bool fits() const { return size_ > 0 && size_ <= bytes_.size(); }
    std::size_t size() const { return size_; }
    const std::array<std::uint8_t, sizeof(VARNOK_SCSI_CMND::CDB)> &bytes() const { return bytes_; }

  private:
    std::array<std::uint8_t, sizeof(VARNOK_SCSI_CMND::CDB)> bytes_{};
    std::size_t size_;
};

// Bytes that somebody else owns: a vector, an array or a std::span.
class byte_view
{
  public:
    constexpr byte_view(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}
    template <class Container>
    constexpr byte_view(const Container &bytes) : data_(std::data(bytes)), size_(std::size(bytes))
    {
    }

    constexpr const std::uint8_t *data() const { return data_; }
    constexpr std::size_t size() const { return size_; }

  private:
    const std::uint8_t *data_;
    std::size_t size_;
};

// The library is loaded as long as an object of this class lives. There may be several.
class library
{
  public:
    library() : status_(VARNOK_LoadLibrary(), "VARNOK_LoadLibrary") { ++detail::libraries_alive; }
    ~library()
    {
        if (--detail::libraries_alive == 0)
            VARNOK_FreeLibrary();
    }
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    // Of the load. It is good on a host without adapters, too, if a driver answered.
    const varnok::status &status() const { return status_; }

    // On a host without adapters the status is VARNOK_STATUS_FAILED.
    result<std::uint32_t> port_count() const
    {
        std::uint32_t count = 0;
        const std::uint32_t code = VARNOK_GetPortCount(&count);
        return {{code, "VARNOK_GetPortCount"}, count};
    }

  private:
    varnok::status status_;
};

// Levels of a LUN's number, as VARNOK_LUN_INFO has them.
struct scsi_lun {
    std::uint32_t levels_1_and_2 = 0; // ScsiLunNum
    std::uint32_t levels_3_and_4 = 0; // ScsiLunNumExt
};

inline scsi_lun lun_of(const VARNOK_LUN_INFO &lun) { return {lun.ScsiLunNum, lun.ScsiLunNumExt}; }

// What a device sent. The library tells neither the SCSI status nor how much data came: the rest is
// zeros. Look at the sense data even if the status is good: it may say that the command failed.
struct scsi_reply {
    std::vector<std::uint8_t> data; // as long as was asked for
    std::array<std::uint8_t, sizeof(VARNOK_SCSI_CMND::Sense)> sense{};
};

// A port is open as long as its object lives. The library must live longer.
class port
{
  public:
    port(const library & /*loaded*/, std::uint32_t instance)
        : status_(VARNOK_OpenAdapter(instance, &handle_), "VARNOK_OpenAdapter")
    {
    }
    ~port() { close(); }
    port(port &&other) noexcept : handle_(std::exchange(other.handle_, 0)), status_(other.status_)
    {
    }
    port &operator=(port &&other) noexcept
    {
        port taken(std::move(other)); // at its end it closes what was open here
        std::swap(handle_, taken.handle_);
        std::swap(status_, taken.status_);
        return *this;
    }
    port(const port &) = delete;
    port &operator=(const port &) = delete;

    const varnok::status &status() const { return status_; } // of the open
    std::uint32_t handle() const { return handle_; }         // for calls in C; 0 when it is closed

    // For those who want to know how it went. It is not tried twice: a descriptor that failed to
    // close may be another file's by then. Closing a closed port does nothing.
    varnok::status close()
    {
        const std::uint32_t handle = std::exchange(handle_, 0);
        return {handle == 0 ? VARNOK_STATUS_SUCCESS : VARNOK_CloseAdapter(handle),
                "VARNOK_CloseAdapter"};
    }

    // Comes before the lists of sessions and targets: it also refreshes their number.
    result<VARNOK_PHY_PORT_INFO> info() const
    {
        VARNOK_PHY_PORT_INFO info{};
        info.Version = VARNOK_PHY_PORT_INFO_VERSION;
        const std::uint32_t code = VARNOK_GetPhyPortInfo(handle_, &info);
        return {{code, "VARNOK_GetPhyPortInfo"}, info};
    }

    result<std::vector<VARNOK_ISCSI_PORTAL>> portals() const
    {
        return list("VARNOK_GetIscsiPortal", VARNOK_GetIscsiPortal);
    }
    result<std::vector<VARNOK_SESS_INFO>> sessions() const
    {
        return list("VARNOK_GetSessionInfo", VARNOK_GetSessionInfo);
    }
    result<std::vector<VARNOK_TGT_INFO>> targets() const
    {
        return list("VARNOK_GetTgtInfo", VARNOK_GetTgtInfo);
    }

    // The first 2047 at most. A good guess of their number, such as the target's LunCount, saves a
    // call.
    result<std::vector<VARNOK_LUN_INFO>> luns(std::uint32_t target, std::uint32_t guess = 1) const
    {
        constexpr std::uint32_t most_listed = 2047;
        return detail::list_of<VARNOK_LUN_INFO>(
            "VARNOK_GetLunInfo", std::clamp(guess, 1U, most_listed), most_listed,
            [&](std::uint32_t *count, VARNOK_LUN_INFO **array) {
                return VARNOK_GetLunInfo(handle_, target, count, array);
            });
    }

    // These send a SCSI command of 1 to 16 bytes: one without data, one that reads `size` bytes, and
    // one that writes `data`. Any other length of the command, and 4 GiB of data or more, give
    // VARNOK_STATUS_INVALID_PARAMETER.
    result<scsi_reply> send(std::uint32_t target, scsi_lun lun, const cdb &command) const
    {
        return carry_out(target, lun, command, VARNOK_SCSI_NO_DATA, 0, nullptr);
    }
    result<scsi_reply> read(std::uint32_t target, scsi_lun lun, const cdb &command,
                            std::size_t size) const
    {
        return carry_out(target, lun, command, VARNOK_SCSI_DATA_IN, size, nullptr);
    }
    result<scsi_reply> write(std::uint32_t target, scsi_lun lun, const cdb &command,
                             byte_view data) const
    {
        return carry_out(target, lun, command, VARNOK_SCSI_DATA_OUT, data.size(), data.data());
    }

  private:
    template <class Record>
    result<std::vector<Record>>
    list(const char *call, std::uint32_t (*query)(std::uint32_t, std::uint32_t *, Record **)) const
    {
        return detail::list_of<Record>(
            call, 0, UINT32_MAX,
            [&](std::uint32_t *count, Record **array) { return query(handle_, count, array); });
    }

    // The library gets a copy of the data, which it may write to.
    result<scsi_reply> carry_out(std::uint32_t target, scsi_lun lun, const cdb &command,
                                 std::uint8_t direction, std::size_t size,
                                 const std::uint8_t *data) const
    {
        constexpr const char *call = "VARNOK_SendScsiCommand";
        if (!command.fits() || size > UINT32_MAX)
            return {{VARNOK_STATUS_INVALID_PARAMETER, call}, {}};
        VARNOK_SCSI_CMND record{};
        record.Version = VARNOK_RECORD_VERSION_2;
        record.ScsiTgtNum = target;
        record.ScsiLunNum = lun.levels_1_and_2;
        record.ScsiLunNumExt = lun.levels_3_and_4;
        record.Direction = direction;
        record.CDBLength = static_cast<std::uint8_t>(command.size());
        std::copy(command.bytes().begin(), command.bytes().end(), record.CDB);
        record.SenseLength = sizeof record.Sense;

        result<scsi_reply> reply;
        std::vector<std::uint8_t> &bytes = reply.value.data;
        const bool has_room = detail::had_memory([&] {
            if (data != nullptr)
                bytes.assign(data, data + size);
            else
                bytes.resize(size);
        });
        if (!has_room)
            return {{VARNOK_STATUS_NO_MEMORY, call}, {}};
        auto length = static_cast<std::uint32_t>(size);
        reply.status = {VARNOK_SendScsiCommand(handle_, &record, &length, bytes.data()), call};
        std::copy(std::begin(record.Sense), std::end(record.Sense), reply.value.sense.begin());
        if (direction != VARNOK_SCSI_DATA_IN)
            bytes.clear();
        return reply;
    }

    std::uint32_t handle_ = 0;
    varnok::status status_;
};

} // namespace varnok

#endif
