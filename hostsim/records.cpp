#include "records.h"

#include "drivers.h"
#include "portal_sessions.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace hostsim
{
namespace
{

constexpr uint16_t iscsi_port = 3260;
constexpr uint16_t vendor = 0x1E2B;

// What an adapter of a family reports by default.
struct adapter {
    uint32_t pcie_speed;
    uint16_t speed; // Mbit/s
    const char *model_name;
    const char *model_desc;
};
constexpr adapter older_adapter = {PCIE_SPEED_5_0GT, 10000, "MH1010",
                                   "Molvar Halcyon dual-port 10GbE iSCSI adapter"};
constexpr adapter newer_adapter = {PCIE_SPEED_8_0GT, 25000, "MH2025",
                                   "Molvar Halcyon dual-port 25GbE iSCSI adapter"};

const adapter &adapter_of(const driver_facts &d)
{
    return d.adapters == family::newer ? newer_adapter : older_adapter;
}

template <size_t N>
__attribute__((format(printf, 2, 3))) void print(uint8_t (&to)[N], const char *format, ...)
{
    char text[N + 1];
    va_list values;
    va_start(values, format);
    int length = vsnprintf(text, sizeof text, format, values);
    va_end(values);
    std::memcpy(to, text, std::min(N, static_cast<size_t>(length)));
}

// A locally administered address.
void put_mac(uint8_t (&to)[6], uint8_t kind, uint64_t number)
{
    const uint8_t mac[6] = {0x02,
                            0x4D,
                            kind,
                            static_cast<uint8_t>(number >> 16),
                            static_cast<uint8_t>(number >> 8),
                            static_cast<uint8_t>(number)};
    std::memcpy(to, mac, sizeof mac);
}

// Ports are in the lower half of 192.168.0.0/16, targets in the upper half.
void put_ipv4(uint8_t (&to)[4], uint8_t half, uint64_t number)
{
    constexpr unsigned nets = 128, hosts = 240, first_host = 10;
    const uint8_t address[4] = {192, 168, static_cast<uint8_t>(half + number / hosts % nets),
                                static_cast<uint8_t>(first_host + number % hosts)};
    std::memcpy(to, address, sizeof address);
}

void put_ipv6(uint8_t (&to)[16], uint8_t first, uint8_t second, uint8_t net, uint64_t number)
{
    std::memset(to, 0, sizeof to);
    to[0] = first;
    to[1] = second;
    to[7] = net;
    for (size_t i = 0; i < 8; ++i)
        to[15 - i] = static_cast<uint8_t>(number >> (8 * i));
}

// A port makes this address from its MAC address (modified EUI-64).
void put_link_local(uint8_t (&to)[16], const uint8_t (&mac)[6])
{
    put_ipv6(to, 0xFE, 0x80, 0, 0);
    std::memcpy(to + 8, mac, 3);
    to[8] ^= 0x02;
    to[11] = 0xFF;
    to[12] = 0xFE;
    std::memcpy(to + 13, mac + 3, 3);
}

// The fields that the records of a session and of its target share.
#define SHARED(in_session, in_target)                                                              \
    {                                                                                              \
        offsetof(varnok_drv_session_info, in_session), offsetof(varnok_drv_tgt_info, in_target),   \
            sizeof(varnok_drv_tgt_info::in_target)                                                 \
    }
struct shared_field {
    size_t in_session;
    size_t in_target;
    size_t size;
};
constexpr shared_field shared_fields[] = {
    SHARED(tgt_iqn, iqn),
    SHARED(tgt_mac, mac),
    SHARED(isid, isid),
    SHARED(tgt_ipv4_port, ipv4_port),
    SHARED(tgt_ipv4addr, ipv4addr),
    SHARED(tgt_ipv6_port, ipv6_port),
    SHARED(tgt_ipv6addr, ipv6addr),
};
#undef SHARED

template <class Record>
char *bytes(Record &r)
{
    return reinterpret_cast<char *>(&r);
}

bool is_on_ipv6(const session_description &s)
{
    return (is_given(s.session_settings, offsetof(varnok_drv_session_info, tgt_ipv6addr)) ||
            is_given(s.target_settings, offsetof(varnok_drv_tgt_info, ipv6addr))) &&
           !is_given(s.session_settings, offsetof(varnok_drv_session_info, tgt_ipv4addr)) &&
           !is_given(s.target_settings, offsetof(varnok_drv_tgt_info, ipv4addr));
}

} // namespace

varnok_drv_pci_info pci_record(const port &p)
{
    constexpr uint32_t first_bus = 0x10, buses = 0xE0;
    const driver_facts &driver = facts(p.described->driver);
    varnok_drv_pci_info r{};
    r.vendor_id = r.subvendor_id = vendor;
    r.device_id = driver.device_ids.front();
    r.subsystem_id = 0x0001;
    r.domain_num = static_cast<uint16_t>(p.board / buses);
    r.bus_num = static_cast<uint16_t>(first_bus + p.board % buses);
    r.function_num = static_cast<uint16_t>(p.instance % 2);
    r.revision = 0x10;
    r.port_num = static_cast<uint16_t>(p.instance % 2 + 1);
    r.pcie_speed = adapter_of(driver).pcie_speed;
    r.pcie_width = PCIE_LNK_X8;
    r.chip_rev_id = 0x11;
    apply_settings(p.described->pci_settings, &r);
    return r;
}

varnok_drv_port_info port_record(const port &p)
{
    const driver_facts &driver = facts(p.described->driver);
    const adapter &a = adapter_of(driver);
    varnok_drv_port_info r{};
    print(r.manufacturer, "Molvar");
    print(r.model_name, "%s", a.model_name);
    print(r.model_desc, "%s", a.model_desc);
    print(r.serial_num, "MH21%06u", p.index + 1);
    print(r.driver_version, "5.0.12.0");
    print(r.driver_date, "2021-09-14");
    print(r.driver_name, "%s", driver.name.data());
    r.driver_loaded = 1;
    print(r.fw_version, "8.42.9.0");
    print(r.iqn, "iqn.2004-01.com.example:vmhba%u", p.host_no);
    put_mac(r.mac, 0x48, p.index + 1);
    r.ipv4_port = r.ipv6_port = iscsi_port;
    put_ipv4(r.ipv4addr, 0, p.index);
    const uint8_t subnet[4] = {255, 255, 0, 0}, gateway[4] = {192, 168, 255, 254};
    std::memcpy(r.subnet, subnet, sizeof subnet);
    std::memcpy(r.gateway, gateway, sizeof gateway);
    put_ipv6(r.ipv6addr, 0xFD, 0, 1, p.index + 1);
    put_ipv6(r.ipv6_router, 0xFE, 0x80, 0, 1);
    r.port_sup_speed = r.port_speed = a.speed;
    r.session_cnt = p.described->session_count;
    r.mtu = 1500;
    r.mfw_version = 0x082A0900;
    print(r.hba_name, "vmhba%u", p.host_no);

    apply_settings(p.described->port_settings, &r);
    if (!is_given(p.described->port_settings, offsetof(varnok_drv_port_info, ipv6_linklocal)))
        put_link_local(r.ipv6_linklocal, r.mac);
    return r;
}

varnok_drv_session_info session_record(const port &p, const session_description &s, uint32_t number)
{
    if (s.real != nullptr)
        return real_session_record(p, *s.real, number);

    constexpr uint16_t first_free_port = 49152, free_ports = 16384;
    const uint64_t target = p.first_target + number + 1;
    const auto own_port = static_cast<uint16_t>(first_free_port + number % free_ports);
    const varnok_drv_port_info owner = port_record(p);

    varnok_drv_session_info r{};
    r.sess_num = number;
    std::memcpy(r.init_iqn, owner.iqn, sizeof r.init_iqn);
    print(r.tgt_iqn, "iqn.2004-01.com.example:storage.%llu",
          static_cast<unsigned long long>(target));
    const varnok_drv_session_info names = r;
    r.sess_unique = target;
    std::memcpy(r.init_mac, owner.mac, sizeof r.init_mac);
    put_mac(r.tgt_mac, 0x53, target);
    if (is_on_ipv6(s)) {
        std::memcpy(r.init_ipv6addr, owner.ipv6addr, sizeof r.init_ipv6addr);
        r.init_ipv6_port = own_port;
        r.tgt_ipv6_port = iscsi_port;
    } else {
        std::memcpy(r.init_ipv4addr, owner.ipv4addr, sizeof r.init_ipv4addr);
        r.init_ipv4_port = own_port;
        put_ipv4(r.tgt_ipv4addr, 128, target - 1);
        r.tgt_ipv4_port = iscsi_port;
    }
    print(r.isid, "40%010llx", static_cast<unsigned long long>(target));
    r.state = 1; // logged in
    r.max_iscsi_tasks = r.num_free_cmds = r.sq_size = 128;
    r.cmdsn = r.exp_cmdsn = 1;
    r.max_cmdsn = 128;
    r.max_r2t = 1;
    r.imm_data = 1;
    r.first_burst_len = 65536;
    r.max_burst_len = 262144;
    r.time2wait = 2;
    r.time2retain = 20;
    r.pdu_inorder = r.dataseq_inorder = 1;
    r.tgt_prtl_grp = 1;
    r.num_active_conn = r.max_conns = 1;
    r.cid = r.iscsi_cid = number;
    if (!s.logged_in)
        r = names;

    varnok_drv_tgt_info given{};
    apply_settings(s.target_settings, &given);
    for (const shared_field &f : shared_fields)
        if (is_given(s.target_settings, f.in_target))
            std::memcpy(bytes(r) + f.in_session, bytes(given) + f.in_target, f.size);
    apply_settings(s.session_settings, &r);
    return r;
}

varnok_drv_tgt_info target_record(const port &p, const session_description &s, uint32_t number)
{
    varnok_drv_session_info session = session_record(p, s, number);
    varnok_drv_tgt_info r{};
    r.scsi_tgt_num = number;
    r.lun_count = static_cast<uint32_t>(s.luns->entries.size());
    for (const shared_field &f : shared_fields)
        std::memcpy(bytes(r) + f.in_target, bytes(session) + f.in_session, f.size);
    apply_settings(s.target_settings, &r);
    return r;
}

} // namespace hostsim
