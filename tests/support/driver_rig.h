// driver_rig.h - asks a simulated host's driver directly, over either transport, as the library
// does.
#pragma once

#include "hostsim.h"
#include "kx_iscsi_vmkmgmt.h"
#include "varnok_ioctl.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <tuple>
#include <unistd.h>
#include <vector>

using bytes = std::vector<uint8_t>;

using answer = std::tuple<int, int, uint32_t>; // result, errno, driver status
constexpr answer good = {0, 0, 0};

inline bytes from_hex(std::string_view text)
{
    bytes all;
    for (size_t i = 0; i + 1 < text.size(); i += text[i] == ' ' ? 1 : 2)
        if (text[i] != ' ')
            all.push_back(static_cast<uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    return all;
}

struct signature {
    std::array<vmk_MgmtCallbackInfo, 7> callbacks{};
    vmk_MgmtApiSignature all{0x01000000, {"rovani"}, {"Molvar"}, 7, callbacks.data()};
    signature()
    {
        constexpr uint32_t sizes[7] = {8, 16, 72, 776, 1032, 392, 262444};
        for (uint32_t i = 0; i < 7; i++)
            callbacks[i] = {VMK_MGMT_CALLBACK_KERNEL, nullptr, 1, 1, {VMK_MGMT_PARMTYPE_INOUT}, {sizes[i]}, 16 + i};
    }
    signature(const signature &) = delete;
};

// A host with ports of one older driver, native ("rovani") or legacy ("tepli"), in either
// transport.
class rig
{
  public:
    rig(bool is_native, std::string json, const std::string &base = ".") : native(is_native)
    {
        std::replace(json.begin(), json.end(), '\'', '"');
        for (size_t at; (at = json.find('@')) != std::string::npos;)
            json.replace(at, 1, native ? "\"driver\":\"rovani\"" : "\"driver\":\"tepli\"");
        model = hostsim::host::from_text(json, base);
        hostsim::install(model.get());
        if (native)
            vmk_MgmtUserInit(&sig.all, 701, &handle);
        else
            fd = open("/dev/char/vmkdriver/tepli", O_RDWR);
    }
    ~rig()
    {
        if (fd >= 0)
            close(fd);
        hostsim::install(nullptr);
    }
    rig(const rig &) = delete;

    // number: as in the ioctl request codes. The ports' host numbers must be 32 and on.
    answer ask(uint32_t number, uint32_t instance, void *record, size_t size)
    {
        const bool has_envelope = native && number > 2; // else the record is its own
        bytes envelope(8 + size);
        varnok_drv_ioctl header = {{'T', 'E', 'P', 'L', 'I'},           2, 1, 0, 0, static_cast<uint16_t>(instance),
                                   reinterpret_cast<uintptr_t>(record), {}};
        uint32_t status = 0;
        int result = 0;
        const uint32_t host_no = 32 + instance;
        std::memcpy(envelope.data(), &host_no, 4);
        std::memcpy(envelope.data() + 8, record, size);
        errno = 0;
        if (native) {
            result = vmk_MgmtUserCallbackInvokeInt(handle, 0, (number == 8 ? 14 : 15) + number, 1,
                                                   has_envelope ? envelope.data() : record);
            const void *at = static_cast<uint8_t *>(record) + size - 4;
            std::memcpy(&status, has_envelope ? envelope.data() + 4 : at, 4);
        } else {
            result = ioctl(fd, TEPLI_IOCTL_BASE + number, &header);
            status = header.status;
        }
        if (has_envelope)
            std::memcpy(record, envelope.data() + 8, size);
        return {result, errno, status};
    }
    template <typename R>
    answer ask(uint32_t number, uint32_t instance, R &record)
    {
        return ask(number, instance, &record, sizeof record);
    }

    // Data moves in or out of data; sense receives what came.
    answer scsi(uint32_t lun, const bytes &cdb, uint8_t direction, bytes &data, bytes &sense, uint32_t target = 0)
    {
        auto record = std::make_unique<varnok_drv_scsi_cmd_native>();
        record->tgt = target;
        record->lun = lun;
        record->direction = direction;
        record->cdb_len = static_cast<uint8_t>(cdb.size());
        std::copy(cdb.begin(), cdb.end(), record->cdb);
        record->sense_len = 252;
        record->data_len = static_cast<uint32_t>(data.size());
        const uint64_t address = reinterpret_cast<uintptr_t>(data.data());
        if (native)
            std::copy(data.begin(), data.end(), record->data_buffer);
        else
            std::memcpy(record->data_buffer, &address, sizeof address);
        answer a = ask(8, 0, record.get(), native ? sizeof *record : sizeof(varnok_drv_scsi_cmd_ioctl));
        if (native)
            std::copy_n(record->data_buffer, data.size(), data.begin());
        EXPECT_LE(record->data_len, data.size());
        data.resize(record->data_len);
        sense.assign(record->sense, record->sense + record->sense_len);
        return a;
    }

    const bool native;
    std::unique_ptr<hostsim::host> model;
    signature sig;
    vmk_MgmtUserHandle handle = 0;
    int fd = -1;
};
