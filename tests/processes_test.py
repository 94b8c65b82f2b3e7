"""Several real processes, real semaphores and the real lsof: processes_test.py HOST_PROCESS"""

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
    return list(struct.unpack("<8I", SHARED_FILE.read_bytes()[:32]))


class Process:
    """Blocked orders show as a time limit, which only a fault can reach."""

    def __init__(self, program, env):
        pipes = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
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


class ProcessesTest(unittest.TestCase):
    def setUp(self):
        # The count goes by file names: the program and its folder keep clear of the library's name.
        folder = tempfile.mkdtemp(prefix="varnok-processes-")
        self.addCleanup(shutil.rmtree, folder)
        self.program = shutil.copy(PROGRAM, folder)
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
        self.started.append(Process(self.program, env))
        return self.started[-1]

    def test_two_processes_share_a_host(self):
        first, second = self.start(), self.start()
        self.assertEqual(first.load(), 0)
        self.assertEqual(first.tell("users"), 2, "the second maps the library already")
        self.assertEqual(second.load(), 1)
        self.assertEqual(flags(), [5, 5, 0, 0, 0, 0, 0, 0])
        self.assertEqual(first.tell("free"), 0)
        self.assertEqual(flags(), [0, 5, 0, 0, 0, 0, 0, 0])
        self.assertNotEqual(semaphore(DATABASE_KEY), -1)
        first.end()
        self.assertEqual(second.tell("users"), 1)
        self.assertEqual(second.tell("free"), 0)
        self.assertFalse(SHARED_FILE.exists())
        self.assertEqual(semaphore(DATABASE_KEY), -1)
        self.assertEqual(second.load(), 0, "it loads again")

    def test_the_ninth_takes_the_first_slot_dead_or_alive(self):
        for dead in (False, True):
            self.forget_host()
            for slot in range(8):
                self.assertEqual(self.start().load(), slot)
                if dead:
                    self.started[-1].kill()
            self.assertEqual(flags(), [5] * 8)
            ninth = self.start()
            self.assertEqual(ninth.load(), 0)
            self.assertEqual(flags(), [5, 1, 1, 1, 1, 1, 1, 1])
        self.assertEqual(ninth.tell("free"), 0)
        self.assertFalse(SHARED_FILE.exists())

    def test_a_process_that_dies_with_a_semaphore_blocks_nobody(self):
        for what in ("database", "log"):
            holder, other = self.start(VARNOK_API_DEBUG="4"), self.start(VARNOK_API_DEBUG="4")
            holder.load()
            self.assertEqual(holder.tell("hold " + what), 0)
            other.order("load\nprint")
            holder.kill()
            self.assertEqual([other.answer(), other.answer()], [0, 0])
            self.assertIn("a line: 1\n", other.end())

    def test_a_user_that_is_not_the_last_and_finds_a_waiter_keeps_the_semaphore(self):
        first = self.start()
        first.load()
        identifier = semaphore(DATABASE_KEY)
        waiter = self.start()
        self.assertEqual(first.tell("hold database"), 0)
        waiter.order("load")
        while libc.semctl(identifier, 0, 14) == 0:
            pass
        first.kill()
        self.assertEqual(waiter.answer(), 0)
        self.assertEqual(waiter.tell("slot"), 1)
        self.assertEqual(semaphore(DATABASE_KEY), identifier)


if __name__ == "__main__":
    assert shutil.which("lsof"), "the library counts its users with lsof"
    unittest.main(verbosity=2)
