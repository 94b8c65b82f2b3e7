"""Inspect the iSCSI offload adapters of a hypervisor host."""
