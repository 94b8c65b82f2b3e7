// The floors of loading and freeing: discovery, and the shared database.
#include "floor.h"

#include "core/varnok_shared_db.h"
#include "floor_parts.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace
{

using namespace bench::floor;

port new_port(uint32_t number, const varnok_drv_port_info &info, const varnok_drv_pci_info &pci)
{
    port p = {zeros<varnok_priv_db>(), nullptr, {zeros<varnok_DL_node>(), nullptr}};
    p.function = zeros<varnok_hw_info>();
    p.nodes[1] = zeros<varnok_DL_node>();
    p.record->drvr_inst = number;
    p.record->host_no = number;
    p.record->session_cnt = info.session_cnt;
    copy(p.record->iqn, info.iqn, sizeof info.iqn);
    memcpy(&p.record->ipv4_port, &info.ipv4_port, portal_size / 2);
    copy(p.function->manufacturer, info.manufacturer, offsetof(varnok_drv_port_info, iqn));
    memcpy(&p.function->vendor_id, &pci, offsetof(varnok_drv_pci_info, reserved));
    return p;
}

void init_native(const bench::driver &d)
{
    vmk_MgmtApiSignature signature = {};
    vmk_MgmtUserHandle handle = 0;
    memcpy(signature.name.string, d.name, strlen(d.name));
    vmk_MgmtUserInit(&signature, 701, &handle);
}

void discover_native(host &h, const bench::driver &which)
{
    init_native(which);
    varnok_drv_hba_cnt_cb count = {};
    call_native(VARNOK_DRV_CALLBACK_HBA_CNT, &count);
    for (int32_t i = 0; i < count.hba_cnt; ++i) {
        varnok_drv_hostno_cb hostno = {};
        hostno.inst = static_cast<uint64_t>(i);
        call_native(VARNOK_DRV_CALLBACK_HOSTNO, &hostno);
        varnok_drv_port_info_cb info = {};
        call_native(VARNOK_DRV_CALLBACK_PORT_INFO, &info);
        varnok_drv_pci_info_cb pci = {};
        call_native(VARNOK_DRV_CALLBACK_PCI_INFO, &pci);
        h.ports.push_back(new_port(hostno.host_no, info.port, pci.pci));
    }
}

void discover_legacy(host &h, const bench::driver &which)
{
    char path[sizeof(varnok_hw_info::phys_path)] = {};
    snprintf(path, sizeof path, "/dev/char/vmkdriver/%s", which.name);
    struct stat status = {};
    const int node = open(path, O_RDONLY);
    fstat(node, &status);
    close(node);
    const int fd = open(path, O_RDWR);
    varnok_drv_hba_cnt count = {};
    call_legacy(fd, VARNOK_DRV_REQUEST_HBA_CNT, 0, &count);
    for (uint32_t i = 0; i < static_cast<uint32_t>(count.hba_cnt); ++i) {
        varnok_drv_hostno hostno = {};
        call_legacy(fd, VARNOK_DRV_REQUEST_HOSTNO, i, &hostno);
        varnok_drv_port_info info = {};
        call_legacy(fd, VARNOK_DRV_REQUEST_PORT_INFO, i, &info);
        varnok_drv_pci_info pci = {};
        call_legacy(fd, VARNOK_DRV_REQUEST_PCI_INFO, i, &pci);
        h.ports.push_back(new_port(i, info, pci));
        memcpy(h.ports.back().function->phys_path, path, sizeof path);
    }
    close(fd);
}

// The driver of the other family, and the one of the same family that stands behind or before.
void miss_other_drivers(const bench::driver &which)
{
    for (const bench::driver &d : bench::drivers) {
        if (&d == &which || (!d.native && which.native && d.device_id == which.device_id))
            continue;
        if (d.native) {
            init_native(d);
        } else {
            const std::string path = std::string("/dev/char/vmkdriver/") + d.name;
            close(open(path.c_str(), O_RDONLY));
        }
    }
}

void make_file(int fd)
{
    void *const image = calloc(1, sizeof(varnok_shared_db));
    if (write(fd, image, sizeof(varnok_shared_db)) < 0)
        abort();
    fsync(fd);
    free(image);
}

void wait_or_signal(int semaphore, short by)
{
    sembuf operation = {0, by, SEM_UNDO};
    if (semop(semaphore, &operation, 1) != 0)
        abort();
}

} // namespace

namespace bench::floor
{

void discover(host &h, const driver &which)
{
    h.native = which.native;
    which.native ? discover_native(h, which) : discover_legacy(h, which);
}

void forget(host &h)
{
    for (const port &p : h.ports) {
        free(p.record);
        free(p.nodes[0]);
        free(p.function);
        free(p.nodes[1]);
    }
    h.ports = {};
}

void load(host &h, const driver &which)
{
    utsname name = {};
    if (geteuid() != 0 || uname(&name) != 0)
        abort();
    miss_other_drivers(which);
    discover(h, which);
    constexpr key_t key = 831;
    constexpr char path[] = "/tmp/varnok_shared.dat";
    h.semaphore = semget(key, 1, IPC_EXCL | 0644);
    h.semaphore = semget(key, 1, IPC_CREAT | 0644);
    semctl(h.semaphore, 0, SETVAL, 1);
    wait_or_signal(h.semaphore, -1);
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    h.file = ::open(path, flags);
    h.file = ::open(path, flags | O_CREAT, 0644);
    struct stat status = {};
    fstat(h.file, &status);
    fstat(h.file, &status);
    make_file(h.file);
    h.shared =
        mmap(nullptr, sizeof(varnok_shared_db), PROT_READ | PROT_WRITE, MAP_SHARED, h.file, 0);
    memset(h.shared, 1, sizeof(varnok_hbaptevq));
    msync(h.shared, sizeof(varnok_shared_db), MS_SYNC);
    wait_or_signal(h.semaphore, 1);
}

void free_library(host &h)
{
    for (const port &p : h.ports)
        if (p.function->open_cnt != 0 && !h.native)
            ::close(static_cast<int>(p.function->oshandle));
    wait_or_signal(h.semaphore, -1);
    msync(h.shared, sizeof(varnok_shared_db), MS_SYNC);
    FILE *const pipe = popen("lsof 2> /dev/null | grep libvarnok | wc -l", "r");
    char line[32];
    while (fgets(line, sizeof line, pipe) != nullptr) {
    }
    pclose(pipe);
    struct stat status = {};
    fstat(h.file, &status);
    semctl(h.semaphore, 0, GETNCNT);
    wait_or_signal(h.semaphore, 1);
    semctl(h.semaphore, 0, IPC_RMID);
    munmap(h.shared, sizeof(varnok_shared_db));
    ::close(h.file);
    remove("/tmp/varnok_shared.dat");
    forget(h);
}

} // namespace bench::floor
