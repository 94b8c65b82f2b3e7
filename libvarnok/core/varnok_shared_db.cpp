#include "core/varnok_shared_db.h"

#include "core/shared_db_file.h"
#include "support/descriptor.h"
#include "support/held_semaphore.h"
#include "support/sem_set.h"
#include "support/varnok_log.h"
#include "support/varnok_sem.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <unistd.h>

key_t varnok_db_semkey = 831;
int32_t varnok_db_sem_id = -1;
int32_t varnok_shm_fildes = -1;
varnok_shared_db *varnok_shared_data = nullptr;
uint8_t varnok_library_instance = 0xFF;

namespace
{

using varnok::held_semaphore;

// How often the semaphore may be taken away under this process.
constexpr int semaphores_max = 100;

bool get_semaphore(const char *func)
{
    varnok_db_sem_id = varnok_sem_get(varnok_db_semkey);
    if (varnok_db_sem_id == -1)
        LOG_ERROR_AS(func,
                     ": WARNING - semget function not supported.\n"
                     "  Each adapter instance should be opened at most one time. errno=",
                     dec(errno));
    else
        LOG_TRACE_AS(func, ": got varnok_db_sem_id=", dec(varnok_db_sem_id));
    return varnok_db_sem_id != -1;
}

// Nobody goes in beside another process: neither a signal ends the wait, nor that the semaphore is
// taken away. Who fails to open, or leaves last, takes it away, and the next one stands in its
// place. False when there is none any more.
bool wait_for_database(const char *func, held_semaphore &hold)
{
    for (int taken_away = 0; !hold.wait(varnok_db_sem_id);) {
        if (errno == EINTR)
            continue;
        if (!varnok::is_gone(errno) || ++taken_away == semaphores_max)
            return true; // the work goes on without it
        if (!get_semaphore(func))
            return false;
    }
    return true;
}

void remove_semaphore()
{
    varnok_sem_del(varnok_db_sem_id);
    varnok_db_sem_id = -1;
}

// The file, open and mapped; -1 with neither.
int map_shared_file(const char *func)
{
    varnok::descriptor file(varnok::open_shared_file());
    if (!file)
        return -1;
    void *const mapping =
        mmap(nullptr, sizeof(varnok_shared_db), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (mapping == MAP_FAILED) {
        LOG_ERROR_AS(func, ": Unable to map shared data file. errno=", dec(errno));
        return -1;
    }
    varnok_shared_data = static_cast<varnok_shared_db *>(mapping);
    return file.release();
}

void sync_mapping() { msync(varnok_shared_data, sizeof(varnok_shared_db), MS_SYNC); }

void take_slot(uint8_t slot)
{
    varnok_shared_data->libinst_flags[slot] |= varnok::slot_claimed | varnok::slot_in_use;
    memset(&varnok_shared_data->hbaptevq[slot], 0, sizeof(varnok_hbaptevq));
    varnok_library_instance = slot;
}

void claim_slot(const char *func)
{
    LOG_TRACE_AS(func, ": before accessing shared db.");
    for (uint8_t slot = 0; slot < VARNOK_LIBINST_MAX; ++slot) {
        LOG_TRACE_AS(func, ": libi=", dec(slot));
        LOG_TRACE_AS(func, ": libinst_flags=", hex(varnok_shared_data->libinst_flags[slot]));
    }
    for (uint8_t slot = 0; slot < VARNOK_LIBINST_MAX; ++slot) {
        if ((varnok_shared_data->libinst_flags[slot] & varnok::slot_in_use) != 0)
            continue;
        take_slot(slot);
        LOG_ERROR_AS(func, ": assigned api_lib_instance=", dec(slot));
        return;
    }
    for (uint8_t slot = 1; slot < VARNOK_LIBINST_MAX; ++slot)
        varnok_shared_data->libinst_flags[slot] &= ~varnok::slot_in_use;
    take_slot(0);
    LOG_TRACE_AS(func, ": INFO - Assigning lib instance number to 0.");
}

void close_file(const char *func)
{
    if (varnok_shm_fildes < 0)
        return;
    LOG_ERROR_AS(func, ": close db file.");
    if (varnok_shared_data != nullptr)
        munmap(varnok_shared_data, sizeof(varnok_shared_db));
    close(varnok_shm_fildes);
    varnok_shm_fildes = -1;
    varnok_shared_data = nullptr;
}

// Whoever waits on the semaphore would lose it.
bool somebody_waits() { return semctl(varnok_db_sem_id, 0, GETNCNT) != 0; }

// Gives the slot back; true when the file goes too.
bool leave_slot(const char *func)
{
    LOG_ERROR_AS(func, ": inst=", dec(varnok_library_instance), ", going to clean up shared mem.");
    held_semaphore hold;
    wait_for_database(func, hold);
    sync_mapping();
    const uint8_t users = varnok_get_total_libinst_count();
    const bool last = users <= 1;
    if (last)
        LOG_ERROR_AS(func, ": inst=", dec(varnok_library_instance),
                     ", going to free up api instance.");
    else
        LOG_ERROR_AS(func, ": inst=", dec(varnok_library_instance),
                     ", this is not last instance. load_inst=", dec(users));
    if (const int err = varnok::make_shared_file_whole(varnok_shm_fildes))
        LOG_ERROR_AS(func, ": Unable to allocate shared data file. errno=", dec(err));
    else
        varnok_shared_data->libinst_flags[varnok_library_instance] &=
            ~(varnok::slot_claimed | varnok::slot_in_use);
    LOG_TRACE_AS(func, ": delete_sem=", dec(last ? 1 : 0));
    if (last && !somebody_waits()) {
        hold.release();
        remove_semaphore();
    } else {
        hold.release();
        LOG_TRACE_AS(func, ": keeping semaphore.");
    }
    return users == 1;
}

} // namespace

bool varnok::shared_db_is_set_up()
{
    return varnok_db_sem_id != -1 && varnok_shm_fildes >= 0 && varnok_shared_data != nullptr;
}

uint32_t varnok_open_database(int32_t *ret_handle)
{
    LOG_TRACE(": entered.");
    *ret_handle = 0;
    if (varnok::shared_db_is_set_up()) {
        *ret_handle = varnok_shm_fildes;
        return 0;
    }
    held_semaphore hold;
    if (!get_semaphore(__func__) || !wait_for_database(__func__, hold))
        return 1;
    const int fd = map_shared_file(__func__);
    if (fd < 0) {
        hold.release();
        remove_semaphore();
        return 1;
    }
    claim_slot(__func__);
    sync_mapping();
    hold.release();
    *ret_handle = fd;
    varnok_shm_fildes = fd;
    LOG_TRACE(": varnok_shm_fildes=", dec(varnok_shm_fildes));
    LOG_TRACE(": exiting. inst=", dec(varnok_library_instance));
    return 0;
}

uint32_t varnok_close_database(int32_t)
{
    LOG_TRACE(": entered.");
    bool delete_file = false;
    if (varnok_db_sem_id != -1) {
        if (varnok_library_instance >= VARNOK_LIBINST_MAX) {
            close_file(__func__);
            LOG_ERROR(": keeping shared db file.");
            return 0;
        }
        // An earlier close may have kept the semaphore: then no slot is held any more.
        if (varnok_shared_data != nullptr)
            delete_file = leave_slot(__func__);
    }
    close_file(__func__);
    if (!delete_file)
        LOG_ERROR(": keeping shared db file.");
    else {
        LOG_ERROR(": deleting shared db file.");
        if (remove(varnok_db_fname) != 0)
            LOG_ERROR(": Unable to remove shared data file. errno=", dec(errno));
    }
    LOG_TRACE(": exiting, ret=", dec(0));
    return 0;
}

uint8_t varnok_get_total_libinst_count(void)
{
    LOG_TRACE(": entered.");
    FILE *const pipe = popen("lsof 2> /dev/null | grep libvarnok | wc -l", "r");
    if (pipe == nullptr) {
        LOG_ERROR(": popen failed.");
        return 0;
    }
    char line[32] = "";
    char last[32] = "";
    while (fgets(line, sizeof line, pipe) != nullptr)
        memcpy(last, line, sizeof last);
    pclose(pipe);
    const long lines = strtol(last, nullptr, 10);
    if (lines <= 0)
        return 0;
    return static_cast<uint8_t>(lines / 2 > UINT8_MAX ? UINT8_MAX : lines / 2);
}
