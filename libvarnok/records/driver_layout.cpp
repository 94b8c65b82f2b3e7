// The drivers' side of every record is compiled elsewhere: a field that moves here corrupts data
// there.
#include "records/layout_assert.h"
#include "records/varnok_driver_records.h"

// clang-format off

#define RECORD varnok_drv_pci_info
SIZE(64);
AT(vendor_id, 0);      AT(device_id, 2);      AT(subvendor_id, 4);   AT(subsystem_id, 6);
AT(domain_num, 8);     AT(bus_num, 10);       AT(device_num, 12);    AT(function_num, 14);
AT(revision, 16);      AT(port_num, 18);      AT(pcie_speed, 20);    AT(pcie_width, 24);
AT(chip_rev_id, 28);   AT(reserved, 32);
#undef RECORD

#define RECORD varnok_drv_port_info
SIZE(768);
AT(manufacturer, 0);      AT(model_name, 64);       AT(model_desc, 96);
AT(serial_num, 224);      AT(driver_version, 256);  AT(driver_date, 288);
AT(driver_name, 320);     AT(driver_loaded, 336);   AT(fw_version, 337);
AT(iqn, 369);             AT(mac, 625);             AT(ipv4_port, 631);
AT(is_dhcp, 633);         AT(ipv4addr, 634);        AT(subnet, 638);
AT(gateway, 642);         AT(ipv6_port, 646);       AT(ipv6addr, 648);
AT(ipv6_linklocal, 664);  AT(ipv6_router, 680);     AT(vlan_enabled, 696);
AT(vlan_priority, 697);   AT(port_state, 698);      AT(port_sup_speed, 700);
AT(port_speed, 702);      AT(session_cnt, 704);     AT(mtu, 708);
AT(vlan, 712);            AT(mfw_version, 716);     AT(hba_name, 720);
AT(reserved, 752);
#undef RECORD

#define RECORD varnok_drv_session_info
SIZE(1024);
AT(sess_num, 0);                        AT(sess_unique, 4);
AT(init_iqn, 12);                       AT(init_ipv4_port, 268);
AT(init_ipv4addr, 270);                 AT(init_ipv6_port, 274);
AT(init_ipv6addr, 276);                 AT(init_mac, 292);
AT(tgt_iqn, 298);                       AT(tgt_ipv4_port, 554);
AT(tgt_ipv4addr, 556);                  AT(tgt_ipv6_port, 560);
AT(tgt_ipv6addr, 562);                  AT(tgt_mac, 578);
AT(isid, 584);                          AT(state, 597);
AT(recovery_state, 601);                AT(old_recovery_state, 609);
AT(tmf_active, 617);                    AT(do_recovery_inprogess, 621);
AT(device_offline, 625);                AT(max_iscsi_tasks, 629);
AT(num_free_cmds, 633);                 AT(allocated_cmds, 637);
AT(total_cmds_allocated, 641);          AT(total_cmds_freed, 645);
AT(sq_size, 649);                       AT(login_noop_pending, 653);
AT(tmf_pending, 657);                   AT(logout_pending, 661);
AT(nop_resp_pending, 665);              AT(pend_cmd_count, 669);
AT(active_cmd_count, 673);              AT(cmd_cleanup_req, 677);
AT(cmd_cleanup_cmpl, 681);              AT(total_cmds_sent, 685);
AT(total_cmds_queued, 689);             AT(total_cmds_completed, 693);
AT(total_cmds_failed, 697);             AT(total_cmds_completed_by_chip, 701);
AT(cmdsn, 705);                         AT(exp_cmdsn, 709);
AT(max_cmdsn, 713);                     AT(initial_r2t, 717);
AT(max_r2t, 721);                       AT(imm_data, 725);
AT(first_burst_len, 729);               AT(max_burst_len, 733);
AT(time2wait, 737);                     AT(time2retain, 741);
AT(pdu_inorder, 745);                   AT(dataseq_inorder, 749);
AT(erl, 753);                           AT(tgt_prtl_grp, 757);
AT(num_active_conn, 761);               AT(max_conns, 765);
AT(last_nooput_requested, 769);         AT(last_nooput_posted, 777);
AT(last_noopin_indicated, 785);         AT(last_noopin_processed, 793);
AT(last_nooput_sn, 801);                AT(noopout_resp_count, 805);
AT(unsol_noopout_count, 809);           AT(noopout_requested_count, 813);
AT(noopout_posted_count, 817);          AT(noopin_indicated_count, 821);
AT(noopin_processed_count, 825);        AT(tgt_noopin_count, 829);
AT(alloc_scsi_task_failed, 833);        AT(cid, 837);
AT(iscsi_cid, 841);                     AT(reserved, 845);
#undef RECORD

#define RECORD varnok_drv_tgt_info
SIZE(384);
AT(scsi_bus_num, 0);  AT(scsi_tgt_num, 4);  AT(iqn, 8);           AT(mac, 264);
AT(isid, 270);        AT(ipv4_port, 283);   AT(ipv4addr, 285);    AT(ipv6_port, 289);
AT(ipv6addr, 291);    AT(port_type, 307);   AT(lun_count, 309);   AT(reserved, 313);
#undef RECORD

#define RECORD varnok_drv_scsi_cmd_ioctl
SIZE(320);
AT(lun_ext, 0);      AT(tgt, 4);          AT(lun, 8);          AT(direction, 12);
AT(cdb_len, 13);     AT(cdb, 14);         AT(sense_len, 30);   AT(sense, 32);
AT(data_len, 288);   AT(data_addr, 292);  AT(reserved, 300);
#undef RECORD

#define RECORD varnok_drv_scsi_cmd_native
SIZE(262436);
AT(lun_ext, 0);        AT(tgt, 4);            AT(lun, 8);            AT(direction, 12);
AT(cdb_len, 13);       AT(cdb, 14);           AT(sense_len, 30);     AT(sense, 32);
AT(data_len, 288);     AT(data_buffer, 292);
#undef RECORD

#define RECORD varnok_drv_ioctl
SIZE(64);
AT(signature, 0);         AT(addrmode, 8);          AT(version, 10);
AT(subcode, 12);          AT(status, 14);           AT(hbaselect, 18);
AT(ioctlstructaddr, 20);  AT(reserved3, 28);
#undef RECORD

#define RECORD varnok_drv_hba_cnt
SIZE(8);
AT(hba_cnt, 0);   AT(reserved, 4);
#undef RECORD

#define RECORD varnok_drv_hostno
SIZE(8);
AT(host_no, 0);   AT(reserved, 4);
#undef RECORD

#define RECORD varnok_drv_hba_cnt_cb
SIZE(8);
AT(hba_cnt, 0);  AT(status, 4);
#undef RECORD

#define RECORD varnok_drv_hostno_cb
SIZE(16);
AT(inst, 0);     AT(host_no, 8);  AT(status, 12);
#undef RECORD

#define RECORD varnok_drv_pci_info_cb
SIZE(72);
AT(host_no, 0);  AT(status, 4);   AT(pci, 8);
#undef RECORD

#define RECORD varnok_drv_port_info_cb
SIZE(776);
AT(host_no, 0);  AT(status, 4);   AT(port, 8);
#undef RECORD

#define RECORD varnok_drv_sess_info_cb
SIZE(1032);
AT(host_no, 0);  AT(status, 4);   AT(sess, 8);
#undef RECORD

#define RECORD varnok_drv_tgt_info_cb
SIZE(392);
AT(host_no, 0);  AT(status, 4);   AT(tgt, 8);
#undef RECORD

#define RECORD varnok_drv_scsi_cmd_cb
SIZE(262444);
AT(host_no, 0);  AT(status, 4);   AT(cmnd, 8);
#undef RECORD

// clang-format on
