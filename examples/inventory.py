"""Lists the iSCSI ports of this host, and the targets and LUNs that each one sees."""

import sys

import varnok
from varnok import printable


def show(port: varnok.Port) -> None:
    info = port.info()
    print(printable(f"{info.hba_name}, {info.model_name}, {info.serial_num}, {info.sess_count} sessions"))
    for target in port.targets():
        print(f"  {printable(target.target_name)}")
        for lun in port.luns(target):
            size = "unknown size" if lun.capacity is None else f"{lun.capacity >> 20} MiB"
            print(f"    LUN {lun.number}: {size}, {printable(lun.vendor_name)} {printable(lun.product_name)}")


failures = 0
with varnok.Library() as library:
    for port in library:
        try:
            with port:
                show(port)
        except varnok.Error as error:  # the other ports may be well
            failures += 1
            print(f"port {port.instance}: {error}", file=sys.stderr)
sys.exit(1 if failures else 0)
