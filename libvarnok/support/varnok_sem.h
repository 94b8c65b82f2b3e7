// varnok_sem.h - System V semaphores: one to a set, 1 when free, every operation undone when the
// process ends, so that a process that dies while it holds one does not block the others.
#pragma once

#include "records/varnok_export.h"

#include <cstdint>
#include <sys/types.h>

extern "C" {

// The identifier of the set with this key, created free if need be; -1 on failure.
VARNOK_PRIVATE int32_t varnok_sem_get(key_t key);

// Both give the result of semop, 0 or -1, and warn on failure.
VARNOK_PRIVATE int32_t varnok_sem_wait(int32_t sem_id);
VARNOK_PRIVATE int32_t varnok_sem_signal(int32_t sem_id);

VARNOK_PRIVATE void varnok_sem_del(int32_t sem_id);
}
