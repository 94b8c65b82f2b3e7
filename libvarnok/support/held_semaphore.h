// held_semaphore.h - a semaphore held for the length of a scope.
#pragma once

#include "support/errno_keeper.h"
#include "support/varnok_sem.h"

#include <cerrno>

namespace varnok
{

// Given back only if it was had: a wait that failed has warned, and the work goes on without it. So
// it does, in silence, where there is no semaphore at all.
class held_semaphore
{
  public:
    enum class when_interrupted { give_up, wait_again };

    explicit held_semaphore(int32_t sem_id, when_interrupted then = when_interrupted::give_up)
        : sem_id_(sem_id)
    {
        if (sem_id == -1)
            return;
        do
            held_ = varnok_sem_wait(sem_id) == 0;
        while (!held_ && errno == EINTR && then == when_interrupted::wait_again);
    }
    held_semaphore(const held_semaphore &) = delete;
    held_semaphore &operator=(const held_semaphore &) = delete;
    ~held_semaphore() { release(); }

    explicit operator bool() const { return held_; }

    // Gives it back before the scope ends.
    void release()
    {
        if (held_)
            varnok_sem_signal(sem_id_);
        held_ = false;
    }

  private:
    int32_t sem_id_;
    bool held_ = false;
};

} // namespace varnok
