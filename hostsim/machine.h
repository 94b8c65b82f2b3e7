// machine.h - a simulated host and its drivers, as the interposed calls reach them.
#pragma once

#include "hostsim.h"
#include "requests.h"
#include "scenario.h"
#include "scsi_target.h"
#include "vmkapi_mgmt_lib.h"

#include <mutex>
#include <optional>
#include <utility>

namespace hostsim
{

// The calls answer as the real ones do: 0, or -1 (or another nonzero result) with errno set.
class machine final : public host
{
  public:
    explicit machine(scenario from) : scenario_(std::move(from)) {}

    const scenario &description() const { return scenario_; }

    int open_device(driver_id driver);
    int ioctl(driver_id driver, unsigned long code, void *header);
    int init(const vmk_MgmtApiSignature &signature, vmk_MgmtUserHandle &handle);
    int invoke(vmk_MgmtUserHandle handle, uint64_t callback, void *envelope);

    // A fork waits until no call is inside. Its child goes on with a copy.
    void before_fork();
    void after_fork_in_parent();
    void after_fork_in_child();

  private:
    int serve(exchange &e, size_t status_offset);
    uint32_t answer(exchange &e);
    uint32_t answer_for_port(exchange &e, const port &p);
    const port *find_port(const exchange &e) const;

    scenario scenario_;
    disk_contents disks_;
    std::recursive_mutex lock_; // an observer may call again
};

// The host that this process sees, or null for the real machine.
machine *current();

// The same, but never looks for one.
machine *installed_host();

// Called when no host is installed: the preloaded form finds its host this way.
using host_finder = machine *(*)();
extern constinit host_finder find_host;

} // namespace hostsim
