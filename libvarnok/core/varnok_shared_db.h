// varnok_shared_db.h - the shared database: a mapped file in which every process that has the
// library loaded claims a slot, guarded by a System V semaphore.
//
// The file comes into being with the first open and goes with the last close that counts exactly
// one user. A process that dies leaves its slot marked; once all are marked, the next open frees
// slots 1 to 7 and takes slot 0.
#pragma once

#include "records/varnok_export.h"

#include <cstdint>
#include <sys/types.h>

#define VARNOK_SHARED_PACKED __attribute__((packed))
#define VARNOK_LIBINST_MAX 8

extern "C" {

// An event queue; the library zeroes it when its slot is claimed and touches it nowhere else (4116
// bytes).
typedef struct varnok_hbaptevq {
    uint32_t eventbuf[1024];
    uint16_t q_head;
    uint16_t q_tail;
    uint8_t rsvd[16];
} VARNOK_SHARED_PACKED varnok_hbaptevq;

// The whole file (163840 bytes).
typedef struct varnok_shared_db {
    uint32_t libinst_flags[VARNOK_LIBINST_MAX];
    varnok_hbaptevq hbaptevq[VARNOK_LIBINST_MAX];
    uint8_t reserved[130880];
} VARNOK_SHARED_PACKED varnok_shared_db;

VARNOK_PRIVATE extern key_t varnok_db_semkey;
VARNOK_PRIVATE extern int32_t varnok_db_sem_id;             // -1 when there is none
VARNOK_PRIVATE extern int32_t varnok_shm_fildes;            // -1 when the file is not open
VARNOK_PRIVATE extern varnok_shared_db *varnok_shared_data; // the mapping, or null
VARNOK_PRIVATE extern uint8_t varnok_library_instance; // this process's slot; 8 and above is none

// Joins the shared database; ret_handle receives the file's descriptor, 0 on failure. 0 or 1.
VARNOK_PRIVATE uint32_t varnok_open_database(int32_t *ret_handle);

// Gives the slot back. The last user removes the semaphore, unless somebody waits on it, and the
// file, if exactly one user was counted. Harmless when nothing is open. Works from the process's
// state and needs no descriptor. Returns 0.
VARNOK_PRIVATE uint32_t varnok_close_database(int32_t fildes);

// How many processes have the library loaded, by the host's lsof; 0 when that cannot be had.
VARNOK_PRIVATE uint8_t varnok_get_total_libinst_count(void);
}

namespace varnok
{

constexpr uint32_t slot_claimed = 0x1;
constexpr uint32_t slot_in_use = 0x4;

bool shared_db_is_set_up();

} // namespace varnok
