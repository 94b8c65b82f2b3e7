// machine.h - the installed host and its drivers, as the interposed calls reach them.
#pragma once

#include <cstring>
#include <mutex>
#include <optional>

#include "hostsim.h"
#include "scenario.h"
#include "scsi.h"
#include "vmkapi_mgmt_lib.h"

namespace hostsim
{

inline constexpr uint32_t status_not_found = 7; // no such port, session or target

// Records are packed: their fields are reached by copying.
template <typename T>
T peek(std::span<const std::byte> from, size_t offset = 0)
{
    T value;
    std::memcpy(&value, from.data() + offset, sizeof value);
    return value;
}

template <typename T>
void poke(std::span<std::byte> to, const T &value, size_t offset = 0)
{
    std::memcpy(to.data() + offset, &value, sizeof value);
}

// The calls answer as the real ones do: 0, or -1 (or another nonzero result) with errno set.
class machine final : public host
{
  public:
    explicit machine(scenario from) : described(std::move(from)) {}

    const scenario &description() const { return described; }

    int open_device(driver_id driver);
    int ioctl(driver_id driver, unsigned long code, void *header);
    int init(const vmk_MgmtApiSignature &signature, vmk_MgmtUserHandle &handle);
    int invoke(vmk_MgmtUserHandle handle, uint64_t callback, void *envelope);

  private:
    int carry(exchange &e, size_t status_offset);
    uint32_t answer(exchange &e);
    uint32_t answer_port(exchange &e, const port &p);
    uint32_t answer_scsi(exchange &e, const port &p);
    uint32_t answer_live(exchange &e, live_target &target, uint64_t lun,
                         const scsi_command &command);
    static void store_sense(const exchange &e, const sense_code &sense);
    static void store_sense(const exchange &e, std::span<const uint8_t> bytes);
    const port *find_port(const exchange &e) const;
    const fault *next_fault(driver_id driver, request what, std::optional<uint32_t> instance);

    scenario described;
    disk_contents contents;
    std::recursive_mutex one_at_a_time; // an observer may call again
};

// Brings the port's sessions up to what its portal offers; an unreachable portal changes nothing.
int look_behind(const port &p); // 0, or the errno that the port's data request fails with

// The host that this process sees now; null: the plain machine.
machine *current();

// Called when none is installed. The preloaded form finds its host so.
using host_finder = machine *(*)();
extern constinit host_finder find_host;

} // namespace hostsim
