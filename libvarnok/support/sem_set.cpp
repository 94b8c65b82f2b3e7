#include "support/sem_set.h"

#include "support/own_user.h"

#include <cerrno>
#include <ctime>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace
{

constexpr time_t birth_limit = 10; // seconds
constexpr long step = 10'000'000;  // nanoseconds
constexpr int steps_max = 1000;    // the limit where the clock was set back

// The caller of semctl defines its argument.
union semun {
    int val;
    struct semid_ds *buf;
    unsigned short *array;
};

bool get_status(int32_t sem_id, semid_ds &status)
{
    semun argument = {};
    argument.buf = &status;
    return semctl(sem_id, 0, IPC_STAT, argument) == 0;
}

bool set_value(int32_t sem_id, int value)
{
    semun argument = {};
    argument.val = value;
    return semctl(sem_id, 0, SETVAL, argument) == 0;
}

// The time comes last: a process that this one cannot see, in another container, leaves no number,
// but the time of its operation.
bool is_unborn(int32_t sem_id, time_t &made)
{
    semid_ds status = {};
    if (semctl(sem_id, 0, GETVAL) != 0 || semctl(sem_id, 0, GETPID) != 0 ||
        !get_status(sem_id, status) || status.sem_otime != 0)
        return false;
    made = status.sem_ctime;
    return true;
}

// A set of this process's own shows whether the host records who set a value and when a set was
// operated on. Where it does not, a set that is in use looks unborn.
bool host_keeps_records()
{
    const int32_t sem_id = semget(IPC_PRIVATE, 1, 0600);
    if (sem_id == -1)
        return false;
    semid_ds status = {};
    sembuf at_zero = {0, 0, IPC_NOWAIT};
    const bool kept = set_value(sem_id, 0) && semctl(sem_id, 0, GETPID) == getpid() &&
                      semop(sem_id, &at_zero, 1) == 0 && get_status(sem_id, status) &&
                      status.sem_otime != 0 && status.sem_ctime != 0;
    semctl(sem_id, 0, IPC_RMID);
    return kept;
}

} // namespace

varnok::set_origin varnok::origin_of(int32_t sem_id)
{
    semid_ds status = {};
    if (!get_status(sem_id, status))
        return set_origin::unknown;
    return is_trusted(status.sem_perm.cuid) && status.sem_nsems <= 1 ? set_origin::trusted
                                                                     : set_origin::strange;
}

bool varnok::remove_strange_set(int32_t sem_id)
{
    if (!is_root()) {
        errno = EPERM;
        return false;
    }
    return semctl(sem_id, 0, IPC_RMID) == 0 || is_gone(errno);
}

bool varnok::give_first_value(int32_t sem_id) { return set_value(sem_id, 1); }

bool varnok::see_through_birth(int32_t sem_id)
{
    time_t made = 0;
    if (!is_unborn(sem_id, made) || !host_keeps_records())
        return false;
    for (int i = 0; is_unborn(sem_id, made); ++i) {
        if (i == steps_max || time(nullptr) - made >= birth_limit) {
            give_first_value(sem_id);
            break;
        }
        timespec left = {0, step};
        while (nanosleep(&left, &left) == -1 && errno == EINTR)
            continue;
    }
    return true;
}
