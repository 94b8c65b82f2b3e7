#include "platform.h"

#include "records/varnok_driver_records.h"
#include "vmkapi_mgmt_lib.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace
{

using namespace bench;

constexpr uint32_t lun_list_size = 16384;
constexpr char shared_name[] = "/tmp/varnok_shared.dat";

scene shown = {};
bool real_count = false;
varnok_drv_port_info port = {};
varnok_drv_pci_info pci = {};
varnok_drv_session_info session = {};
varnok_drv_tgt_info target = {};
uint8_t lun_list[lun_list_size];
uint8_t inquiry[36];
const uint8_t capacity[8] = {0, 0x3F, 0xFF, 0xFF, 0, 0, 2, 0};
uint8_t blocks[VARNOK_DRV_SCSI_DATA_MAX];

template <size_t Size>
void write_text(uint8_t (&field)[Size], const char *text)
{
    memset(field, 0, Size);
    memcpy(field, text, strlen(text) < Size ? strlen(text) : Size);
}

void put_big_endian(uint8_t *at, uint32_t value)
{
    for (int i = 3; i >= 0; --i, value >>= 8)
        at[i] = static_cast<uint8_t>(value);
}

void prepare_port()
{
    write_text(port.model_name, "MH4540-4I");
    write_text(port.model_desc, "A quad-port adapter");
    write_text(port.iqn, "iqn.2026-01.com.example:initiator");
    write_text(port.hba_name, "vmhba64");
    port.session_cnt = shown.sessions;
    port.port_state = 1;
    port.port_speed = 25000;
    port.mfw_version = 0x08120F03;
    port.mtu = 9000;
    memset(port.ipv4addr, 10, sizeof port.ipv4addr);
    pci.vendor_id = 0x1E2B;
    pci.device_id = shown.which->device_id;
}

void prepare_lists()
{
    write_text(session.tgt_iqn, "iqn.2026-01.com.example:target");
    memset(session.tgt_ipv4addr, 10, sizeof session.tgt_ipv4addr);
    write_text(target.iqn, "iqn.2026-01.com.example:target");
    write_text(target.isid, "400001370000");
    memset(lun_list, 0, sizeof lun_list);
    put_big_endian(lun_list, 8 * shown.luns);
    for (uint32_t i = 0; i < shown.luns && 8 * i + 16 <= lun_list_size; ++i)
        put_big_endian(lun_list + 8 + 8 * static_cast<size_t>(i), i << 16);
    memset(inquiry, ' ', sizeof inquiry);
    inquiry[0] = 0;
}

uint32_t take(uint8_t *to, const uint8_t *from, size_t has, uint32_t room)
{
    const auto size = static_cast<uint32_t>(has < room ? has : room);
    memcpy(to, from, size);
    return size;
}

// The driver's side of a command; the bytes that it moved.
template <class Command>
uint32_t carry_out(Command &command, uint8_t *data)
{
    command.sense_len = 0;
    if (command.direction != 1)
        return command.direction == 2 ? take(blocks, data, sizeof blocks, command.data_len) : 0;
    switch (command.cdb[0]) {
    case 0xA0:
        return take(data, lun_list, 8 + 8 * static_cast<size_t>(shown.luns), command.data_len);
    case 0x12:
        return take(data, inquiry, sizeof inquiry, command.data_len);
    case 0x25:
        return take(data, capacity, sizeof capacity, command.data_len);
    default:
        return take(data, blocks, sizeof blocks, command.data_len);
    }
}

// Whatever is in the session's and target's records stays but their number, as the driver found it.
void give_session(varnok_drv_session_info *to)
{
    const uint32_t number = to->sess_num;
    memcpy(to, &session, sizeof *to);
    to->sess_num = number;
}

void give_target(varnok_drv_tgt_info *to)
{
    const uint32_t number = to->scsi_tgt_num;
    memcpy(to, &target, sizeof *to);
    to->scsi_tgt_num = number;
}

template <class T>
T *at(uint64_t address)
{
    return reinterpret_cast<T *>(static_cast<uintptr_t>(address));
}

void answer_ioctl(uint32_t number, const varnok_drv_ioctl &header)
{
    const uint64_t record = header.ioctlstructaddr;
    switch (number) {
    case VARNOK_DRV_REQUEST_HBA_CNT:
        at<varnok_drv_hba_cnt>(record)->hba_cnt = static_cast<int32_t>(shown.ports);
        break;
    case VARNOK_DRV_REQUEST_HOSTNO:
        at<varnok_drv_hostno>(record)->host_no = header.hbaselect;
        break;
    case VARNOK_DRV_REQUEST_PCI_INFO:
        memcpy(at<varnok_drv_pci_info>(record), &pci, sizeof pci);
        break;
    case VARNOK_DRV_REQUEST_PORT_INFO:
        memcpy(at<varnok_drv_port_info>(record), &port, sizeof port);
        break;
    case VARNOK_DRV_REQUEST_SESS_INFO:
        give_session(at<varnok_drv_session_info>(record));
        break;
    case VARNOK_DRV_REQUEST_TGT_INFO:
        give_target(at<varnok_drv_tgt_info>(record));
        break;
    default: {
        auto *const command = at<varnok_drv_scsi_cmd_ioctl>(record);
        carry_out(*command, at<uint8_t>(command->data_addr));
    }
    }
}

void answer_callback(uint64_t id, void *envelope)
{
    switch (id) {
    case VARNOK_DRV_CALLBACK_HBA_CNT:
        static_cast<varnok_drv_hba_cnt_cb *>(envelope)->hba_cnt = static_cast<int32_t>(shown.ports);
        break;
    case VARNOK_DRV_CALLBACK_HOSTNO: {
        auto *const hostno = static_cast<varnok_drv_hostno_cb *>(envelope);
        hostno->host_no = static_cast<uint32_t>(hostno->inst);
        break;
    }
    case VARNOK_DRV_CALLBACK_PCI_INFO:
        memcpy(&static_cast<varnok_drv_pci_info_cb *>(envelope)->pci, &pci, sizeof pci);
        break;
    case VARNOK_DRV_CALLBACK_PORT_INFO:
        memcpy(&static_cast<varnok_drv_port_info_cb *>(envelope)->port, &port, sizeof port);
        break;
    case VARNOK_DRV_CALLBACK_SESS_INFO:
        give_session(&static_cast<varnok_drv_sess_info_cb *>(envelope)->sess);
        break;
    case VARNOK_DRV_CALLBACK_TGT_INFO:
        give_target(&static_cast<varnok_drv_tgt_info_cb *>(envelope)->tgt);
        break;
    default: {
        auto &command = static_cast<varnok_drv_scsi_cmd_cb *>(envelope)->cmnd;
        command.data_len = carry_out(command, command.data_buffer);
    }
    }
}

} // namespace

void bench::show(const scene &s)
{
    shown = s;
    prepare_port();
    prepare_lists();
}

const std::string &bench::shared_file()
{
    static const std::string path = "/dev/shm/varnok-bench-" + std::to_string(getpid());
    return path;
}

void bench::count_users_for_real(bool real) { real_count = real; }

// ---- The calls --------------------------------------------------------------------------------

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    constexpr char nodes[] = "/dev/char/vmkdriver/";
    if (strncmp(path, nodes, sizeof nodes - 1) == 0) {
        if (shown.which->native || strcmp(path + sizeof nodes - 1, shown.which->name) != 0) {
            errno = ENOENT;
            return -1;
        }
        path = "/dev/null"; // a character device, too
    } else if (strcmp(path, shared_name) == 0) {
        path = shared_file().c_str();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int remove(const char *path) noexcept
{
    return unlink(strcmp(path, shared_name) == 0 ? shared_file().c_str() : path);
}

FILE *popen(const char *command, const char *mode)
{
    static char one_user[] = "2\n";
    static auto *const real = reinterpret_cast<decltype(&popen)>(dlsym(RTLD_NEXT, "popen"));
    return real_count ? real(command, mode) : fmemopen(one_user, sizeof one_user - 1, "r");
}

int pclose(FILE *stream)
{
    static auto *const real = reinterpret_cast<decltype(&pclose)>(dlsym(RTLD_NEXT, "pclose"));
    return real_count ? real(stream) : fclose(stream);
}
}

namespace answers
{

int ioctl(int, unsigned long code, const void *header)
{
    answer_ioctl(code & 0xFF, *static_cast<const varnok_drv_ioctl *>(header));
    return 0;
}

int uname(utsname *name)
{
    const auto result = static_cast<int>(syscall(SYS_uname, name));
    memcpy(name->sysname, "VMkernel", sizeof "VMkernel");
    return result;
}

uid_t geteuid() { return 0; }

int mgmt_init(const vmk_MgmtApiSignature *signature, vmk_MgmtUserHandle *handle)
{
    *handle = 1;
    return shown.which->native && strcmp(signature->name.string, shown.which->name) == 0 ? 0 : -1;
}

int mgmt_invoke(vmk_MgmtUserHandle, vmk_uint64, vmk_uint64 id, vmk_uint32, void *envelope)
{
    answer_callback(id, envelope);
    return 0;
}

} // namespace answers
#include "interposed_calls.h"
