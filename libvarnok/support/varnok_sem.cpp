#include "support/varnok_sem.h"

#include "support/errno_keeper.h"
#include "support/sem_set.h"
#include "support/varnok_dbg.h"
#include "support/varnok_log.h"

#include <cerrno>
#include <cstdio>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace
{

using namespace varnok;

constexpr int permissions = 0644;
// Other processes make and remove the set at any moment; each time the key is looked up again.
constexpr int attempts_max = 10'000;

void warn(const char *func, int32_t sem_id, const char *text)
{
    if ((varnok_debug & VARNOK_DBG_ERROR) == 0)
        return;
    // A print takes the log semaphore itself: about that one it could only fail again.
    if (sem_id != varnok_dbg_sem_id) {
        LOG_ERROR_AS(func, text, hex(errno));
        return;
    }
    const errno_keeper keeper;
    fprintf(stderr, "%s%s%X%s\n", func, text, static_cast<unsigned>(errno), errno > 9 ? "h" : "");
}

int32_t operate(int32_t sem_id, short by)
{
    sembuf operation = {0, by, SEM_UNDO};
    return semop(sem_id, &operation, 1);
}

// Without the create flag the exclusive one only fetches.
int32_t fetch(key_t key) { return semget(key, 1, IPC_EXCL | permissions); }

enum class outcome { good, failed, again };

// A process that finds the set made in the same moment fetches it: only one of them gives the
// value.
outcome create(key_t key, int32_t &id)
{
    id = semget(key, 1, IPC_CREAT | IPC_EXCL | permissions);
    if (id == -1)
        return errno == EEXIST ? outcome::again : outcome::failed;
    if (give_first_value(id))
        return outcome::good;
    if (is_gone(errno))
        return outcome::again;
    const errno_keeper keeper;
    varnok_sem_del(id);
    return outcome::failed;
}

outcome get_once(key_t key, int32_t &id)
{
    id = fetch(key);
    if (id == -1)
        return create(key, id);
    switch (origin_of(id)) {
    case set_origin::trusted:
        break;
    case set_origin::strange:
        return remove_strange_set(id) ? outcome::again : outcome::failed;
    case set_origin::unknown: // removed since, or a host that does not tell
        if (fetch(key) != id)
            return outcome::again;
        break;
    }
    return see_through_birth(id) ? outcome::again : outcome::good;
}

} // namespace

int32_t varnok_sem_get(key_t key)
{
    int32_t id = -1;
    outcome result = outcome::again;
    for (int attempt = 0; attempt < attempts_max && result == outcome::again; ++attempt)
        result = get_once(key, id);
    if (result == outcome::again)
        errno = EBUSY;
    return result == outcome::good ? id : -1;
}

int32_t varnok_sem_wait(int32_t sem_id)
{
    const int32_t result = operate(sem_id, -1);
    if (result == -1)
        warn(__func__, sem_id, ":libvarnok: WARNING - semaphore wait operation failed. errno=");
    return result;
}

int32_t varnok_sem_signal(int32_t sem_id)
{
    const int32_t result = operate(sem_id, 1);
    if (result == -1)
        warn(__func__, sem_id, ":libvarnok: WARNING - semaphore signal operation failed. errno=");
    return result;
}

void varnok_sem_del(int32_t sem_id) { semctl(sem_id, 0, IPC_RMID); }
