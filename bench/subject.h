// subject.h - the two sides of every comparison, under the same names: the library, and the floor.
#pragma once

#include "floor.h"
#include "library.h"

#include <cstdlib>

namespace bench
{

// What fails is not worth its time.
inline void expect_success(uint32_t status)
{
    if (status != VARNOK_STATUS_SUCCESS)
        abort();
}

// Through a build of the library. The port is the last one: a lookup walks to it.
class through_library
{
  public:
    through_library(const library &l, const scene &s) : l_(l), instance_(s.ports - 1) { show(s); }

    void load() { expect_success(l_.load()); }
    void free() { expect_success(l_.free()); }
    void open() { expect_success(l_.open(instance_, &handle_)); }
    void close() { expect_success(l_.close(handle_)); }
    void version(uint8_t *text) { l_.version(text, 13); }
    void port_count(uint32_t *count) { expect_success(l_.port_count(count)); }
    void phy_port(VARNOK_PHY_PORT_INFO *info) { expect_success(l_.phy_port(handle_, info)); }
    void portal(VARNOK_ISCSI_PORTAL *info)
    {
        uint32_t count = 1;
        expect_success(l_.portal(handle_, &count, &info));
    }
    void sessions(VARNOK_SESS_INFO *list, uint32_t count)
    {
        expect_success(l_.sessions(handle_, &count, &list));
    }
    void targets(VARNOK_TGT_INFO *list, uint32_t count)
    {
        expect_success(l_.targets(handle_, &count, &list));
    }
    void scsi(VARNOK_SCSI_CMND *command, uint32_t size, uint8_t *data)
    {
        expect_success(l_.scsi(handle_, command, &size, data));
    }
    void luns(VARNOK_LUN_INFO *list, uint32_t count)
    {
        expect_success(l_.luns(handle_, 0, &count, &list));
    }

  private:
    const library &l_;
    uint32_t instance_;
    uint32_t handle_ = 0;
};

// Without it.
class bare
{
  public:
    explicit bare(const scene &s) : which_(*s.which), instance_(s.ports - 1) { show(s); }

    void load() { floor::load(host_, which_); }
    void free() { floor::free_library(host_); }
    void open() { floor::open_port(host_, port(), instance_, &handle_); }
    void close() { floor::close_port(host_, port()); }
    void version(uint8_t *text) { floor::version(text); }
    void port_count(uint32_t *count) { floor::port_count(host_, count); }
    void phy_port(VARNOK_PHY_PORT_INFO *info) { floor::phy_port(host_, port(), info); }
    void portal(VARNOK_ISCSI_PORTAL *info) { floor::portal(port(), info); }
    void sessions(VARNOK_SESS_INFO *list, uint32_t) { floor::sessions(host_, port(), list); }
    void targets(VARNOK_TGT_INFO *list, uint32_t) { floor::targets(host_, port(), list); }
    void scsi(VARNOK_SCSI_CMND *command, uint32_t size, uint8_t *data)
    {
        floor::scsi(host_, port(), command, size, data);
    }
    void luns(VARNOK_LUN_INFO *list, uint32_t) { floor::luns(host_, port(), 0, list); }

  private:
    floor::port &port() { return host_.ports[instance_]; }

    const driver &which_;
    uint32_t instance_;
    uint32_t handle_ = 0;
    floor::host host_;
};

} // namespace bench
