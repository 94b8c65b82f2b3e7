// floor.h - what each call cannot do without, done bare: the same memory taken and cleared, the
// same records copied, the same calls of the platform. No checks, no lookups, no log, no failures.
#pragma once

#include "core/varnok_instdb.h"
#include "platform.h"
#include "varnok_mgmt.h"

#include <vector>

namespace bench::floor
{

struct port {
    varnok_priv_db *record;
    varnok_hw_info *function;
    void *nodes[2];
};

struct host {
    bool native = false;
    std::vector<port> ports;
    int semaphore = -1;
    int file = -1;
    void *shared = nullptr;
};

void discover(host &h, const driver &which);
void forget(host &h);

void load(host &h, const driver &which);
void free_library(host &h);

uint32_t version(uint8_t *text);
uint32_t port_count(const host &h, uint32_t *count);
void open_port(const host &h, port &p, uint32_t instance, uint32_t *handle);
void close_port(const host &h, port &p);
void phy_port(const host &h, port &p, VARNOK_PHY_PORT_INFO *info);
void portal(const port &p, VARNOK_ISCSI_PORTAL *info);
void sessions(const host &h, port &p, VARNOK_SESS_INFO *list);
void targets(const host &h, port &p, VARNOK_TGT_INFO *list);
void scsi(const host &h, port &p, VARNOK_SCSI_CMND *command, uint32_t size, uint8_t *data);
void luns(const host &h, port &p, uint32_t target, VARNOK_LUN_INFO *list);

} // namespace bench::floor
