"""Processes that use the library on one host, with real semaphores: the tests' first argument is host_process."""

import ctypes
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

SHARED_FILE = pathlib.Path("/tmp/varnok_shared.dat")
DATABASE_KEY, LOG_KEY = 831, 902
PROGRAM = os.path.abspath(sys.argv.pop(1))
libc = ctypes.CDLL(None)


def semaphore(key):
    return libc.semget(key, 1, 0)


def flags():
    start = SHARED_FILE.read_bytes()[:32] if SHARED_FILE.exists() else b""
    return list(struct.unpack("<8I", start.ljust(32, b"\0")))


class Process:
    """Blocked orders show as a time limit, which only a fault can reach."""

    def __init__(self, program, env, stderr=subprocess.PIPE):
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": stderr}
        self.child = subprocess.Popen([program], cwd=os.path.dirname(program), env=os.environ | env, text=True, **pipes)

    def order(self, order):
        self.child.stdin.write(order + "\n")
        self.child.stdin.flush()

    def answer(self):
        return int(self.child.stdout.readline())

    def tell(self, order):
        self.order(order)
        return self.answer()

    def load(self):
        assert self.tell("load") == 0
        return self.tell("slot")

    def kill(self):
        self.child.kill()
        self.end()

    def end(self):
        return self.child.communicate(timeout=60)[1]


class HostTest(unittest.TestCase):
    def setUp(self):
        # The count goes by file names: the program and its folder keep clear of the library's name.
        folder = tempfile.mkdtemp(prefix="varnok-processes-")
        self.addCleanup(shutil.rmtree, folder)
        self.program = shutil.copy(PROGRAM, folder)
        # The real lsof, but of these processes alone: this tree may lie in a folder of the library's name, and who runs
        # the tests has his files there.
        lsof = pathlib.Path(folder, "bin", "lsof")
        lsof.parent.mkdir()
        lsof.write_text(f'#!/bin/sh\nexec {shutil.which("lsof")} -c {os.path.basename(PROGRAM)} "$@"\n')
        lsof.chmod(0o755)
        self.path = f"{lsof.parent}:{os.environ['PATH']}"
        self.started = []
        self.forget_host()
        self.addCleanup(self.forget_host)

    def forget_host(self):
        for process in self.started:
            process.kill()
        for key in (DATABASE_KEY, LOG_KEY):
            libc.semctl(semaphore(key), 0, 0)
        SHARED_FILE.unlink(missing_ok=True)

    def start(self, **env):
        self.started.append(Process(self.program, {"PATH": self.path} | env))
        return self.started[-1]
