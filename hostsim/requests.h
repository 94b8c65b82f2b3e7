// requests.h - the table of the requests to a driver. Everything that lists requests reads it.
#pragma once

#include "drivers.h"
#include "hostsim.h"
#include "records/varnok_driver_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace hostsim
{

// A driver's status when a request fails.
inline constexpr uint32_t status_failed = 1;
inline constexpr uint32_t status_not_found = 7; // no such port, session or target

enum class asked_of : uint8_t { native_driver, legacy_driver, any_driver, one_port };

struct request_facts {
    request what;
    std::string_view name; // in a scenario
    asked_of whom;

    // An ioctl takes the record alone. A callback takes an envelope with the record in it.
    uint32_t ioctl_number = 0;
    uint64_t callback = 0;
    size_t record_size = 0;
    size_t envelope_size = 0;
    size_t record_offset = 0;
    size_t status_offset = 0;
};

#define WITH_RECORD(name, NUMBER, whom, record, first_field)                                       \
    {                                                                                              \
        request::name, #name, asked_of::whom, VARNOK_DRV_REQUEST_##NUMBER,                         \
            VARNOK_DRV_CALLBACK_##NUMBER, sizeof(record), sizeof(varnok_drv_##name##_cb),          \
            offsetof(varnok_drv_##name##_cb, first_field),                                         \
            offsetof(varnok_drv_##name##_cb, status)                                               \
    }

// In the order of enum request.
inline constexpr std::array<request_facts, 9> requests = {{
    {request::init, "init", asked_of::native_driver},
    {request::open, "open", asked_of::legacy_driver},
    WITH_RECORD(hba_cnt, HBA_CNT, any_driver, varnok_drv_hba_cnt, hba_cnt),
    WITH_RECORD(hostno, HOSTNO, one_port, varnok_drv_hostno, inst),
    WITH_RECORD(pci_info, PCI_INFO, one_port, varnok_drv_pci_info, pci),
    WITH_RECORD(port_info, PORT_INFO, one_port, varnok_drv_port_info, port),
    WITH_RECORD(sess_info, SESS_INFO, one_port, varnok_drv_session_info, sess),
    WITH_RECORD(tgt_info, TGT_INFO, one_port, varnok_drv_tgt_info, tgt),
    WITH_RECORD(scsi_cmd, SCSI_CMD, one_port, varnok_drv_scsi_cmd_ioctl, cmnd),
}};
#undef WITH_RECORD

// The requests that come with a record, in the order of a driver's callbacks.
inline constexpr std::span record_requests = std::span(requests).subspan<2>();
static_assert(record_requests.size() == VARNOK_DRV_CALLBACK_COUNT);

constexpr const request_facts &facts(request r) { return requests[static_cast<size_t>(r)]; }
static_assert(std::ranges::all_of(requests, [](const auto &r) { return &facts(r.what) == &r; }));

inline constexpr auto request_names = names_of(requests);

} // namespace hostsim
