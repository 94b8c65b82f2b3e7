#include "record_fields.h"

#include "records/varnok_driver_records.h"

#include <algorithm>
#include <cstring>

namespace hostsim
{
namespace
{

#define FIELD(name, kind)                                                                          \
    {                                                                                              \
#name, field_kind::kind, offsetof(RECORD, name), sizeof(RECORD::name)                      \
    }
#define N(name) FIELD(name, number)
#define T(name) FIELD(name, text)

// clang-format off
#define RECORD varnok_drv_pci_info
constexpr field pci_rows[] = {
    N(vendor_id), N(device_id), N(subvendor_id), N(subsystem_id), N(domain_num), N(bus_num),
    N(device_num), N(function_num), N(revision), N(port_num), N(pcie_speed), N(pcie_width),
    N(chip_rev_id),
};
#undef RECORD

#define RECORD varnok_drv_port_info
constexpr field port_rows[] = {
    T(manufacturer), T(model_name), T(model_desc), T(serial_num), T(driver_version),
    T(driver_date), T(driver_name), N(driver_loaded), T(fw_version), T(iqn), FIELD(mac, mac),
    N(ipv4_port), N(is_dhcp), FIELD(ipv4addr, ipv4), FIELD(subnet, ipv4), FIELD(gateway, ipv4),
    N(ipv6_port), FIELD(ipv6addr, ipv6), FIELD(ipv6_linklocal, ipv6), FIELD(ipv6_router, ipv6),
    N(vlan_enabled), N(vlan_priority), N(port_state), N(port_sup_speed), N(port_speed),
    N(session_cnt), N(mtu), N(vlan), N(mfw_version), T(hba_name),
};
#undef RECORD

#define RECORD varnok_drv_session_info
constexpr field session_rows[] = {
    N(sess_num), N(sess_unique),
    T(init_iqn), N(init_ipv4_port), FIELD(init_ipv4addr, ipv4), N(init_ipv6_port),
    FIELD(init_ipv6addr, ipv6), FIELD(init_mac, mac),
    T(tgt_iqn), N(tgt_ipv4_port), FIELD(tgt_ipv4addr, ipv4), N(tgt_ipv6_port),
    FIELD(tgt_ipv6addr, ipv6), FIELD(tgt_mac, mac),
    T(isid), N(state), N(recovery_state), N(old_recovery_state), N(tmf_active),
    N(do_recovery_inprogess), N(device_offline), N(max_iscsi_tasks), N(num_free_cmds),
    N(allocated_cmds), N(total_cmds_allocated), N(total_cmds_freed), N(sq_size),
    N(login_noop_pending), N(tmf_pending), N(logout_pending), N(nop_resp_pending),
    N(pend_cmd_count), N(active_cmd_count), N(cmd_cleanup_req), N(cmd_cleanup_cmpl),
    N(total_cmds_sent), N(total_cmds_queued), N(total_cmds_completed), N(total_cmds_failed),
    N(total_cmds_completed_by_chip), N(cmdsn), N(exp_cmdsn), N(max_cmdsn), N(initial_r2t),
    N(max_r2t), N(imm_data), N(first_burst_len), N(max_burst_len), N(time2wait), N(time2retain),
    N(pdu_inorder), N(dataseq_inorder), N(erl), N(tgt_prtl_grp), N(num_active_conn), N(max_conns),
    N(last_nooput_requested), N(last_nooput_posted), N(last_noopin_indicated),
    N(last_noopin_processed), N(last_nooput_sn), N(noopout_resp_count), N(unsol_noopout_count),
    N(noopout_requested_count), N(noopout_posted_count), N(noopin_indicated_count),
    N(noopin_processed_count), N(tgt_noopin_count), N(alloc_scsi_task_failed), N(cid),
    N(iscsi_cid),
};
#undef RECORD

#define RECORD varnok_drv_tgt_info
constexpr field target_rows[] = {
    N(scsi_bus_num), N(scsi_tgt_num), T(iqn), FIELD(mac, mac), T(isid), N(ipv4_port),
    FIELD(ipv4addr, ipv4), N(ipv6_port), FIELD(ipv6addr, ipv6), N(port_type), N(lun_count),
};
#undef RECORD
// clang-format on

} // namespace

const std::span<const field> pci_fields = pci_rows;
const std::span<const field> port_fields = port_rows;
const std::span<const field> session_fields = session_rows;
const std::span<const field> target_fields = target_rows;

const field *find_field(std::span<const field> fields, std::string_view name)
{
    auto at =
        std::find_if(fields.begin(), fields.end(), [&](const field &f) { return f.name == name; });
    return at == fields.end() ? nullptr : &*at;
}

bool is_given(const settings &given, size_t offset)
{
    return std::any_of(given.begin(), given.end(),
                       [&](const setting &s) { return s.where->offset == offset; });
}

void apply_settings(const settings &given, void *record)
{
    for (const setting &s : given) {
        char *to = static_cast<char *>(record) + s.where->offset;
        std::memset(to, 0, s.where->size);
        std::copy(s.bytes.begin(), s.bytes.end(), to);
    }
}

} // namespace hostsim
