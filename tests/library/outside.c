/* A program from outside: it declares what it needs itself, links the library, and answers for the
 * platform. */
#undef NDEBUG
#include <assert.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h> /* where times are wider than a long, the library calls ioctl by another name */
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

uint32_t VARNOK_LoadLibrary(void), VARNOK_FreeLibrary(void), VARNOK_GetVersion(uint8_t *, uint32_t);
uint32_t VARNOK_GetPortCount(uint32_t *), VARNOK_OpenAdapter(uint32_t, uint32_t *), VARNOK_CloseAdapter(uint32_t);
uint32_t VARNOK_GetPhyPortInfo(uint32_t, void *), VARNOK_GetIscsiPortal(uint32_t, uint32_t *, void *);
uint32_t VARNOK_GetSessionInfo(uint32_t, uint32_t *, void *), VARNOK_GetTgtInfo(uint32_t, uint32_t *, void *);
uint32_t VARNOK_SendScsiCommand(uint32_t, void *, uint32_t *, uint8_t *);
uint32_t VARNOK_GetLunInfo(uint32_t, uint32_t, uint32_t *, void *);
extern const char varnok_version_description[128];
extern uint32_t varnok_debug;
extern char varnoklog_path[512];

static void put(uint8_t *at, uint64_t value, size_t size) { memcpy(at, &value, size); }

static uint64_t get(const uint8_t *at, size_t size)
{
    uint64_t value = 0;
    memcpy(&value, at, size);
    return value;
}

/* One LUN of 4 MiB, whatever is asked. */
static void answer_scsi(const uint8_t *command, uint8_t *data)
{
    if (command[14] == 0xA0)
        data[3] = 8;
    else if (command[14] == 0x12)
        memcpy(data + 8, "OUTSIDE A DISK          1.00", 28);
    else if (command[14] == 0x25)
        memcpy(data, "\0\0\x1F\xFF\0\0\2", 7);
}

/* Both drivers know one port with one session; request numbers as the native driver has them. */
static void answer(uint64_t number, uint16_t device_id, uint8_t *record)
{
    if (number == 18)
        put(record + 2, device_id, 2);
    if (number == 19) {
        memcpy(record + 64, "an outside adapter", 19);
        put(record + 704, 1, 4);
    }
    if (number == 20 || number == 21)
        memcpy(record + (number == 20 ? 298 : 8), "iqn.outside", 12);
}

int uname(struct utsname *name)
{
    *name = (struct utsname){.sysname = "VMkernel"};
    return 0;
}

uid_t geteuid(void) { return 0; }

int vmk_MgmtUserInit(void *signature, uint64_t cookie, uint64_t *handle)
{
    assert(cookie == 701);
    *handle = 0x1234;
    return strcmp((const char *)signature + 4, "pelt") == 0 ? 0 : 1;
}

int vmk_MgmtUserCallbackInvokeInt(uint64_t handle, uint64_t instance, uint64_t id, uint32_t count, ...)
{
    va_list list;
    va_start(list, count);
    uint8_t *const envelope = va_arg(list, uint8_t *);
    va_end(list);
    assert(handle == 0x1234 && instance == 0 && count == 1);
    if (id == 16)
        put(envelope, 1, 4);
    else if (id == 17)
        put(envelope + 8, 77, 4);
    else
        assert(get(envelope, 4) == 77);
    if (id == 22) {
        answer_scsi(envelope + 8, envelope + 8 + 292);
        put(envelope + 8 + 30, 0, 2);
    } else if (id >= 18)
        answer(id, 0x7A24, envelope + 8);
    return 0;
}

int open(const char *path, int flags, ...)
{
    const char *const real = strcmp(path, "/dev/char/vmkdriver/tepli") == 0 ? "/dev/null" : path;
    return (int)syscall(SYS_openat, AT_FDCWD, real, flags, 0644);
}

int ioctl(int fd, unsigned long code, ...)
{
    va_list list;
    va_start(list, code);
    uint8_t *const header = va_arg(list, uint8_t *);
    va_end(list);
    assert(fd > 2 && (code & ~15UL) == 0xC0407400 && memcmp(header, "TEPLI\0\0", 8) == 0);
    uint8_t *const record = (uint8_t *)(uintptr_t)get(header + 20, 8);
    const unsigned long number = code & 15;
    if (number == 1)
        put(record, 1, 4);
    else if (number == 8)
        answer_scsi(record, (uint8_t *)(uintptr_t)get(record + 292, 8));
    else
        answer(number + 15, 0x2E35, record);
    return 0;
}

static void use_port(uint32_t instance)
{
    uint8_t port[431] = {2}, portal[29], session[614], target[304], lun[217] = {2}, command[292] = {0}, data[8];
    uint8_t *arrays[] = {portal, session, target, lun};
    uint32_t handle = 0, count = 0, length = sizeof data;
    assert(VARNOK_OpenAdapter(instance, &handle) == 0 && handle == instance + 1);
    assert(VARNOK_GetPhyPortInfo(handle, port) == 0);
    assert(strcmp((char *)port + 4, "an outside adapter") == 0 && get(port + 339, 4) == 1);
    assert(VARNOK_GetIscsiPortal(handle, &count, &arrays[0]) == 0x80000009 && count == 1);
    assert(VARNOK_GetIscsiPortal(handle, &count, &arrays[0]) == 0);
    assert(VARNOK_GetSessionInfo(handle, &count, &arrays[1]) == 0);
    assert(strcmp((char *)session + 299, "iqn.outside") == 0);
    assert(VARNOK_GetTgtInfo(handle, &count, &arrays[2]) == 0 && get(target + 300, 4) == 1);
    assert(VARNOK_GetLunInfo(handle, 0, &count, &arrays[3]) == 0);
    assert(get(lun + 9, 8) == 4 << 20 && memcmp(lun + 17, "OUTSIDE ", 8) == 0);
    put(command + 16, 0x0601, 2);
    assert(VARNOK_SendScsiCommand(handle, command, &length, data) == 0);
    assert(VARNOK_CloseAdapter(handle) == 0);
    assert(VARNOK_CloseAdapter(handle) == 0x80000001);
}

int main(void)
{
    uint32_t count = 0;
    uint8_t version[13];
    unsigned major, minor, build;
    assert(sscanf(PROJECT_VERSION, "%u.%u.%u", &major, &minor, &build) == 3);
    assert(VARNOK_GetVersion(version, sizeof version) == (major << 24 | minor << 16 | build << 8));
    assert(strncmp(varnok_version_description, "Molvar Halcyon", 14) == 0);
    assert(varnok_debug == 0 && varnoklog_path[0] == 0);
    assert(setenv("VARNOK_API_DEBUG", "80000000", 1) == 0);
    assert(VARNOK_LoadLibrary() == 0 && varnok_debug == 0x80000000);
    assert(VARNOK_GetPortCount(&count) == 0 && count == 2);
    use_port(0);
    use_port(1);
    assert(VARNOK_FreeLibrary() == 0);
    puts("the outside program is content");
    return 0;
}
