// held_semaphore.h - a semaphore held for the length of a scope.
#pragma once

#include "support/varnok_sem.h"

namespace varnok
{

// Given back only if it was had: a wait that failed has warned, and the work goes on without it. So
// it does, in silence, where there is no semaphore at all.
class held_semaphore
{
  public:
    held_semaphore() = default;
    explicit held_semaphore(int32_t sem_id) { wait(sem_id); }
    held_semaphore(const held_semaphore &) = delete;
    held_semaphore &operator=(const held_semaphore &) = delete;
    ~held_semaphore() { release(); }

    // False with errno.
    bool wait(int32_t sem_id)
    {
        sem_id_ = sem_id;
        held_ = sem_id != -1 && varnok_sem_wait(sem_id) == 0;
        return held_;
    }

    // Gives it back before the scope ends.
    void release()
    {
        if (held_)
            varnok_sem_signal(sem_id_);
        held_ = false;
    }

  private:
    int32_t sem_id_ = -1;
    bool held_ = false;
};

} // namespace varnok
