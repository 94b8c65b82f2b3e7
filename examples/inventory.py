"""Lists the iSCSI ports of this host, through ctypes."""

import ctypes
import sys


class PhyPort(ctypes.LittleEndianStructure):
    """VARNOK_PHY_PORT_INFO. Runs of fields that are not used stand as bytes."""

    _pack_ = 1
    _fields_ = [("Version", ctypes.c_uint32), ("ModelName", ctypes.c_char * 32), ("skipped", ctypes.c_uint8 * 209),
                ("SerialNum", ctypes.c_char * 32), ("skipped2", ctypes.c_uint8 * 62), ("SessCount", ctypes.c_uint32),
                ("skipped3", ctypes.c_uint8 * 12), ("PortState", ctypes.c_uint32), ("skipped4", ctypes.c_uint8 * 8),
                ("HbaName", ctypes.c_char * 32), ("MFWVersion", ctypes.c_char * 32)]


assert ctypes.sizeof(PhyPort) == 431
varnok = ctypes.CDLL("libvarnok.so.5")
count = ctypes.c_uint32()
if varnok.VARNOK_LoadLibrary() != 0:
    sys.exit("the library refuses to load: see VARNOK_API_DEBUG=4")
varnok.VARNOK_GetPortCount(ctypes.byref(count))
for instance in range(count.value):
    handle, port = ctypes.c_uint32(), PhyPort(Version=2)
    if varnok.VARNOK_OpenAdapter(instance, ctypes.byref(handle)) != 0:
        continue
    if varnok.VARNOK_GetPhyPortInfo(handle, ctypes.byref(port)) == 0:
        print(port.HbaName.decode(errors="replace"), port.ModelName.decode(errors="replace"),
              port.SerialNum.decode(errors="replace"), f"{port.SessCount} sessions", sep=", ")
    varnok.VARNOK_CloseAdapter(handle)
varnok.VARNOK_FreeLibrary()
