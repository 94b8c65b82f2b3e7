"""What run_test.py runs on the simulated host: run_inside.py LIBRARY WHAT"""

import ctypes
import errno
import mmap
import os
import struct
import subprocess
import sys
import threading

LIBRARY = sys.argv[1]
held = []  # what shall not be closed

class Device:
    """A program's own requests to the legacy driver."""

    def __init__(self):
        self.library, self.c = ctypes.CDLL(LIBRARY), ctypes.CDLL(None, use_errno=True)
        self.fd = self.c.open(b"/dev/char/vmkdriver/dxo", os.O_RDWR)

    def header(self, record):
        return struct.pack("<8sHHHIHQ36x", b"DXO", 2, 1, 0, 0, 0, record)

    def request(self, number, record):
        return self.c.ioctl(self.fd, ctypes.c_ulong(0xC0406400 + number), self.header(record))

    def scsi(self, cdb, direction, address, size):
        record = struct.pack("<IIIBB16sH256xIQ20x", 0, 0, 0, direction, len(cdb), cdb, 0, size, address)
        kept = ctypes.create_string_buffer(record, 320)
        return self.request(8, ctypes.addressof(kept))

    def block(self, write=b""):
        data = ctypes.create_string_buffer(write, 512)
        assert self.scsi(bytes([0x2A if write else 0x28, *[0] * 7, 1, 0]), 2 if write else 1, ctypes.addressof(data), 512) == 0
        return data.value


def pointers():
    """Bad pointers are errors, and what ends with the last good byte is none."""
    device = Device()
    c, fd = device.c, device.fd
    c.mmap.restype = ctypes.c_size_t
    page = c.mmap(None, ctypes.c_size_t(2 * mmap.PAGESIZE), 3, 34, -1, 0)
    end = page + mmap.PAGESIZE
    c.mprotect(ctypes.c_size_t(end), mmap.PAGESIZE, 0)
    constant = c.mmap(None, ctypes.c_size_t(mmap.PAGESIZE), 1, 34, -1, 0)
    path = b"/dev/char/vmkdriver/dxo\0"
    count, read, write = 0xC0406401, bytes([0x28, *[0] * 7, 1, 0]), bytes([0x2A, *[0] * 7, 1, 0])

    def at_end(text):
        ctypes.memmove(end - len(text), text, len(text))
        return end - len(text)

    def ioctl(address):
        return c.ioctl(fd, ctypes.c_ulong(count), ctypes.c_void_p(address))

    bad = [None, 8, end - 4, end]
    cases = [(f"{name} {address}", call, address) for address in bad for name, call in [
        ("open", lambda a: c.open(ctypes.c_void_p(a), 0)), ("uname", lambda a: c.uname(ctypes.c_void_p(a))),
        ("header", ioctl), ("record", lambda a: device.request(1, a or 0)),
        ("read", lambda a: device.scsi(read, 1, a or 0, 512)), ("write", lambda a: device.scsi(write, 2, a or 0, 512)),
        ("fcntl", lambda a: c.fcntl(fd, 5, ctypes.c_void_p(a))),
        ("invoke", lambda a: c.vmk_MgmtUserCallbackInvokeInt(ctypes.c_uint64(0x4D680001), ctypes.c_uint64(0), ctypes.c_uint64(16),
                                                             1, ctypes.c_void_p(a)))]]
    cases += [("init", lambda a: c.vmk_MgmtUserInit(a, ctypes.c_uint64(0), a), None), ("header", ioctl, constant),
              ("record", lambda a: device.request(1, a), constant), ("read", lambda a: device.scsi(read, 1, a, 512), constant)]
    ctypes.memset(page, ord("x"), mmap.PAGESIZE)
    for name, call, address in cases:
        ctypes.set_errno(0)
        assert (call(address), ctypes.get_errno()) == (-1, errno.EFAULT), name
    assert device.scsi(write, 2, constant, 512) == 0
    assert device.scsi(read, 1, end - 512, 512) == 0
    assert c.open(ctypes.c_void_p(at_end(path)), 0) > 0
    assert ioctl(at_end(device.header(page))) == 0
    c.popen.restype = ctypes.c_void_p
    assert c.popen(b"true", b"x") is None and ctypes.get_errno() == errno.EINVAL


def forks():
    """Threads are inside calls while others fork; a child has a host of its own, and a vfork changes nothing."""
    device = Device()
    device.block(b"parent")
    done = threading.Event()
    record = ctypes.create_string_buffer(4096)

    def ask():
        own = Device()
        while not done.is_set():
            assert own.request(4, ctypes.addressof(record)) == 0
            os.close(own.c.dup(own.fd))

    threads = [threading.Thread(target=ask) for _ in range(2)]
    for thread in threads:
        thread.start()
    for _ in range(100):
        child = os.fork()
        if child == 0:
            good = device.block() == b"parent"
            device.block(b"child")
            os._exit(0 if good and Device().block() == b"child" else 1)
        assert os.waitpid(child, 0)[1] == 0
    done.set()
    for thread in threads:
        thread.join()
    assert device.block() == b"parent"
    subprocess.run(["true"], stdin=device.fd, check=True)
    assert device.c.ioctl(0, ctypes.c_ulong(0xC0406401), device.header(ctypes.addressof(record))) == -1
    os.posix_spawnp("true", ["true"], os.environ, file_actions=[(os.POSIX_SPAWN_CLOSE, device.fd)])
    assert device.block() == b"parent"


def late():
    """The library comes after the host's object has started; what is buffered is no matter here."""
    assert ctypes.CDLL(None).geteuid() == os.stat("/proc/self").st_uid
    ctypes.CDLL(LIBRARY)
    os.write(1, b"loaded ")
    ctypes.CDLL(None).geteuid()
    os.write(1, b"alive")


def start(echo):
    """Returns when the program has begun its work: it holds all its files then."""
    child = subprocess.Popen([echo], stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
    child.stdin.write(b"x")
    return child.stdout.read(1), held.append(child)


def count():
    """After each order of standard input, counts the library's users: by the host and by the real lsof."""
    library = ctypes.CDLL(LIBRARY)
    library.varnok_get_total_libinst_count.restype = ctypes.c_uint8
    orders = {
        "nothing": lambda: None,
        "open": lambda *files: held.extend(os.open(file, os.O_RDONLY) for file in files),
        "map": lambda *numbers: held.extend(mmap.mmap(held[int(n)], mmap.PAGESIZE, access=mmap.ACCESS_READ) for n in numbers),
        "remove": lambda *files: [os.remove(file) for file in files],
        "start": start,
        "thread": lambda: threading.Thread(target=threading.Event().wait, daemon=True).start(),
    }
    for line in sys.stdin:
        order, *arguments = line.split()
        orders[order](*arguments)
        os.environ.pop("VARNOK_HOST_LSOF", None)
        own = library.varnok_get_total_libinst_count()
        os.environ["VARNOK_HOST_LSOF"] = "1"
        print(own, library.varnok_get_total_libinst_count(), flush=True)


if __name__ == "__main__":
    {"pointers": pointers, "forks": forks, "late": late, "count": count}[sys.argv[2]]()
