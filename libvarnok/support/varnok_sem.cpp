#include "varnok_sem.h"

#include "errno_keeper.h"
#include "varnok_dbg.h"
#include "varnok_log.h"

#include <cstdio>
#include <ctime>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace
{

// The caller of semctl defines its argument.
union semun {
    int val;
    struct semid_ds *buf;
    unsigned short *array;
};

void warn(const char *func, int32_t sem_id, const char *text)
{
    if ((varnok_debug & VARNOK_DBG_ERROR) == 0)
        return;
    // A print takes the log semaphore itself: about that one it could only fail again.
    if (sem_id != varnok_dbg_sem_id) {
        LOG_ERROR_AS(func, text, hex(errno));
        return;
    }
    const varnok::errno_keeper keeper;
    fprintf(stderr, "%s%s%X%s\n", func, text, static_cast<unsigned>(errno), errno > 9 ? "h" : "");
}

int32_t operate(int32_t sem_id, short by)
{
    sembuf operation = {0, by, SEM_UNDO};
    return semop(sem_id, &operation, 1);
}

bool set_free(int32_t sem_id)
{
    semun argument = {};
    argument.val = 1;
    return semctl(sem_id, 0, SETVAL, argument) == 0;
}

// A set stands at 0 and was never operated on only between its creation and its first value. One
// that stays so has lost its creator, and everybody would wait for ever. The value comes first: a
// healthy set that somebody takes in between has been operated on then.
bool is_orphan(int32_t sem_id)
{
    constexpr time_t creation_limit = 10; // seconds
    semid_ds status = {};
    semun argument = {};
    argument.buf = &status;
    return semctl(sem_id, 0, GETVAL) == 0 && semctl(sem_id, 0, IPC_STAT, argument) == 0 &&
           status.sem_otime == 0 && status.sem_ctime != 0 && // a host may not tell
           time(nullptr) - status.sem_ctime > creation_limit;
}

} // namespace

int32_t varnok_sem_get(key_t key)
{
    // Without the create flag the exclusive one only fetches.
    int32_t id = semget(key, 1, IPC_EXCL | 0644);
    if (id != -1) {
        if (is_orphan(id))
            set_free(id); // GCOVR_EXCL_LINE: tested by processes that are killed
        return id;
    }
    id = semget(key, 1, IPC_CREAT | 0644);
    if (id == -1)
        return -1;
    if (!set_free(id)) {
        const varnok::errno_keeper keeper;
        varnok_sem_del(id);
        return -1;
    }
    return id;
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
