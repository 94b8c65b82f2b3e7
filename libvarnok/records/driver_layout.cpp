// The drivers' side of every record is compiled elsewhere: a field that moves here corrupts data
// there.
#include "records/layout_assert.h"
#include "records/varnok_driver_records.h"

SIZE(varnok_drv_pci_info, 64);
AT(varnok_drv_pci_info, vendor_id, 0);
AT(varnok_drv_pci_info, device_id, 2);
AT(varnok_drv_pci_info, subvendor_id, 4);
AT(varnok_drv_pci_info, subsystem_id, 6);
AT(varnok_drv_pci_info, domain_num, 8);
AT(varnok_drv_pci_info, bus_num, 10);
AT(varnok_drv_pci_info, device_num, 12);
AT(varnok_drv_pci_info, function_num, 14);
AT(varnok_drv_pci_info, revision, 16);
AT(varnok_drv_pci_info, port_num, 18);
AT(varnok_drv_pci_info, pcie_speed, 20);
AT(varnok_drv_pci_info, pcie_width, 24);
AT(varnok_drv_pci_info, chip_rev_id, 28);
AT(varnok_drv_pci_info, reserved, 32);

SIZE(varnok_drv_port_info, 768);
AT(varnok_drv_port_info, manufacturer, 0);
AT(varnok_drv_port_info, model_name, 64);
AT(varnok_drv_port_info, model_desc, 96);
AT(varnok_drv_port_info, serial_num, 224);
AT(varnok_drv_port_info, driver_version, 256);
AT(varnok_drv_port_info, driver_date, 288);
AT(varnok_drv_port_info, driver_name, 320);
AT(varnok_drv_port_info, driver_loaded, 336);
AT(varnok_drv_port_info, fw_version, 337);
AT(varnok_drv_port_info, iqn, 369);
AT(varnok_drv_port_info, mac, 625);
AT(varnok_drv_port_info, ipv4_port, 631);
AT(varnok_drv_port_info, is_dhcp, 633);
AT(varnok_drv_port_info, ipv4addr, 634);
AT(varnok_drv_port_info, subnet, 638);
AT(varnok_drv_port_info, gateway, 642);
AT(varnok_drv_port_info, ipv6_port, 646);
AT(varnok_drv_port_info, ipv6addr, 648);
AT(varnok_drv_port_info, ipv6_linklocal, 664);
AT(varnok_drv_port_info, ipv6_router, 680);
AT(varnok_drv_port_info, vlan_enabled, 696);
AT(varnok_drv_port_info, vlan_priority, 697);
AT(varnok_drv_port_info, port_state, 698);
AT(varnok_drv_port_info, port_sup_speed, 700);
AT(varnok_drv_port_info, port_speed, 702);
AT(varnok_drv_port_info, session_cnt, 704);
AT(varnok_drv_port_info, mtu, 708);
AT(varnok_drv_port_info, vlan, 712);
AT(varnok_drv_port_info, mfw_version, 716);
AT(varnok_drv_port_info, hba_name, 720);
AT(varnok_drv_port_info, reserved, 752);

SIZE(varnok_drv_session_info, 1024);
AT(varnok_drv_session_info, sess_num, 0);
AT(varnok_drv_session_info, sess_unique, 4);
AT(varnok_drv_session_info, init_iqn, 12);
AT(varnok_drv_session_info, init_ipv4_port, 268);
AT(varnok_drv_session_info, init_ipv4addr, 270);
AT(varnok_drv_session_info, init_ipv6_port, 274);
AT(varnok_drv_session_info, init_ipv6addr, 276);
AT(varnok_drv_session_info, init_mac, 292);
AT(varnok_drv_session_info, tgt_iqn, 298);
AT(varnok_drv_session_info, tgt_ipv4_port, 554);
AT(varnok_drv_session_info, tgt_ipv4addr, 556);
AT(varnok_drv_session_info, tgt_ipv6_port, 560);
AT(varnok_drv_session_info, tgt_ipv6addr, 562);
AT(varnok_drv_session_info, tgt_mac, 578);
AT(varnok_drv_session_info, isid, 584);
AT(varnok_drv_session_info, state, 597);
AT(varnok_drv_session_info, recovery_state, 601);
AT(varnok_drv_session_info, old_recovery_state, 609);
AT(varnok_drv_session_info, tmf_active, 617);
AT(varnok_drv_session_info, do_recovery_inprogess, 621);
AT(varnok_drv_session_info, device_offline, 625);
AT(varnok_drv_session_info, max_iscsi_tasks, 629);
AT(varnok_drv_session_info, num_free_cmds, 633);
AT(varnok_drv_session_info, allocated_cmds, 637);
AT(varnok_drv_session_info, total_cmds_allocated, 641);
AT(varnok_drv_session_info, total_cmds_freed, 645);
AT(varnok_drv_session_info, sq_size, 649);
AT(varnok_drv_session_info, login_noop_pending, 653);
AT(varnok_drv_session_info, tmf_pending, 657);
AT(varnok_drv_session_info, logout_pending, 661);
AT(varnok_drv_session_info, nop_resp_pending, 665);
AT(varnok_drv_session_info, pend_cmd_count, 669);
AT(varnok_drv_session_info, active_cmd_count, 673);
AT(varnok_drv_session_info, cmd_cleanup_req, 677);
AT(varnok_drv_session_info, cmd_cleanup_cmpl, 681);
AT(varnok_drv_session_info, total_cmds_sent, 685);
AT(varnok_drv_session_info, total_cmds_queued, 689);
AT(varnok_drv_session_info, total_cmds_completed, 693);
AT(varnok_drv_session_info, total_cmds_failed, 697);
AT(varnok_drv_session_info, total_cmds_completed_by_chip, 701);
AT(varnok_drv_session_info, cmdsn, 705);
AT(varnok_drv_session_info, exp_cmdsn, 709);
AT(varnok_drv_session_info, max_cmdsn, 713);
AT(varnok_drv_session_info, initial_r2t, 717);
AT(varnok_drv_session_info, max_r2t, 721);
AT(varnok_drv_session_info, imm_data, 725);
AT(varnok_drv_session_info, first_burst_len, 729);
AT(varnok_drv_session_info, max_burst_len, 733);
AT(varnok_drv_session_info, time2wait, 737);
AT(varnok_drv_session_info, time2retain, 741);
AT(varnok_drv_session_info, pdu_inorder, 745);
AT(varnok_drv_session_info, dataseq_inorder, 749);
AT(varnok_drv_session_info, erl, 753);
AT(varnok_drv_session_info, tgt_prtl_grp, 757);
AT(varnok_drv_session_info, num_active_conn, 761);
AT(varnok_drv_session_info, max_conns, 765);
AT(varnok_drv_session_info, last_nooput_requested, 769);
AT(varnok_drv_session_info, last_nooput_posted, 777);
AT(varnok_drv_session_info, last_noopin_indicated, 785);
AT(varnok_drv_session_info, last_noopin_processed, 793);
AT(varnok_drv_session_info, last_nooput_sn, 801);
AT(varnok_drv_session_info, noopout_resp_count, 805);
AT(varnok_drv_session_info, unsol_noopout_count, 809);
AT(varnok_drv_session_info, noopout_requested_count, 813);
AT(varnok_drv_session_info, noopout_posted_count, 817);
AT(varnok_drv_session_info, noopin_indicated_count, 821);
AT(varnok_drv_session_info, noopin_processed_count, 825);
AT(varnok_drv_session_info, tgt_noopin_count, 829);
AT(varnok_drv_session_info, alloc_scsi_task_failed, 833);
AT(varnok_drv_session_info, cid, 837);
AT(varnok_drv_session_info, iscsi_cid, 841);
AT(varnok_drv_session_info, reserved, 845);

SIZE(varnok_drv_tgt_info, 384);
AT(varnok_drv_tgt_info, scsi_bus_num, 0);
AT(varnok_drv_tgt_info, scsi_tgt_num, 4);
AT(varnok_drv_tgt_info, iqn, 8);
AT(varnok_drv_tgt_info, mac, 264);
AT(varnok_drv_tgt_info, isid, 270);
AT(varnok_drv_tgt_info, ipv4_port, 283);
AT(varnok_drv_tgt_info, ipv4addr, 285);
AT(varnok_drv_tgt_info, ipv6_port, 289);
AT(varnok_drv_tgt_info, ipv6addr, 291);
AT(varnok_drv_tgt_info, port_type, 307);
AT(varnok_drv_tgt_info, lun_count, 309);
AT(varnok_drv_tgt_info, reserved, 313);

// Both forms of a SCSI command begin alike.
#define SCSI_COMMAND(record)                                                                       \
    AT(record, lun_ext, 0);                                                                        \
    AT(record, tgt, 4);                                                                            \
    AT(record, lun, 8);                                                                            \
    AT(record, direction, 12);                                                                     \
    AT(record, cdb_len, 13);                                                                       \
    AT(record, cdb, 14);                                                                           \
    AT(record, sense_len, 30);                                                                     \
    AT(record, sense, 32);                                                                         \
    AT(record, data_len, 288)

SIZE(varnok_drv_scsi_cmd_ioctl, 320);
SCSI_COMMAND(varnok_drv_scsi_cmd_ioctl);
AT(varnok_drv_scsi_cmd_ioctl, data_addr, 292);
AT(varnok_drv_scsi_cmd_ioctl, reserved, 300);

SIZE(varnok_drv_scsi_cmd_native, 262436);
SCSI_COMMAND(varnok_drv_scsi_cmd_native);
AT(varnok_drv_scsi_cmd_native, data_buffer, 292);

SIZE(varnok_drv_ioctl, 64);
AT(varnok_drv_ioctl, signature, 0);
AT(varnok_drv_ioctl, addrmode, 8);
AT(varnok_drv_ioctl, version, 10);
AT(varnok_drv_ioctl, subcode, 12);
AT(varnok_drv_ioctl, status, 14);
AT(varnok_drv_ioctl, hbaselect, 18);
AT(varnok_drv_ioctl, ioctlstructaddr, 20);
AT(varnok_drv_ioctl, reserved3, 28);

SIZE(varnok_drv_hba_cnt, 8);
AT(varnok_drv_hba_cnt, hba_cnt, 0);
AT(varnok_drv_hba_cnt, reserved, 4);

SIZE(varnok_drv_hostno, 8);
AT(varnok_drv_hostno, host_no, 0);
AT(varnok_drv_hostno, reserved, 4);

SIZE(varnok_drv_hba_cnt_cb, 8);
AT(varnok_drv_hba_cnt_cb, hba_cnt, 0);
AT(varnok_drv_hba_cnt_cb, status, 4);

SIZE(varnok_drv_hostno_cb, 16);
AT(varnok_drv_hostno_cb, inst, 0);
AT(varnok_drv_hostno_cb, host_no, 8);
AT(varnok_drv_hostno_cb, status, 12);

// Every native envelope but those of the count and the host number.
#define ENVELOPE(envelope, record, size)                                                           \
    SIZE(envelope, size);                                                                          \
    AT(envelope, host_no, 0);                                                                      \
    AT(envelope, status, 4);                                                                       \
    AT(envelope, record, 8)

ENVELOPE(varnok_drv_pci_info_cb, pci, 72);
ENVELOPE(varnok_drv_port_info_cb, port, 776);
ENVELOPE(varnok_drv_sess_info_cb, sess, 1032);
ENVELOPE(varnok_drv_tgt_info_cb, tgt, 392);
ENVELOPE(varnok_drv_scsi_cmd_cb, cmnd, 262444);
