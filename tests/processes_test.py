"""Several real processes, real semaphores and the real lsof: processes_test.py HOST_PROCESS"""

import ctypes
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

SHARED_FILE = "/tmp/varnok_shared.dat"
DATABASE_KEY, LOG_KEY = 831, 902
PROGRAM = os.path.abspath(sys.argv.pop(1))
libc = ctypes.CDLL(None)


def semaphore(key):
    return libc.semget(key, 1, 0)


def remove_semaphore(key):
    if semaphore(key) != -1:
        libc.semctl(semaphore(key), 0, 0)


def flags():
    with open(SHARED_FILE, "rb") as file:
        return list(struct.unpack("<8I", file.read(32)))


class Process:
    """Blocked orders show as a time limit, which only a fault can reach."""

    def __init__(self, program, folder, **env):
        self.child = subprocess.Popen(
            [program], cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env={**os.environ, **env}, text=True)

    def tell(self, order):
        self.child.stdin.write(order + "\n")
        self.child.stdin.flush()
        return int(self.child.stdout.readline())

    def load(self):
        assert self.tell("load") == 0
        return self.tell("slot")

    def kill(self):
        self.child.kill()
        self.end()

    def end(self):
        _, errors = self.child.communicate(timeout=60)
        return errors


class ProcessesTest(unittest.TestCase):
    def setUp(self):
        # The count goes by file names: the program and its folder keep clear of the library's name.
        self.folder = tempfile.mkdtemp(prefix="varnok-processes-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.program = shutil.copy(PROGRAM, self.folder)
        self.started = []
        self.forget_host()
        self.addCleanup(self.forget_host)

    def forget_host(self):
        for process in self.started:
            if process.child.poll() is None:
                process.kill()
        remove_semaphore(DATABASE_KEY)
        remove_semaphore(LOG_KEY)
        if os.path.exists(SHARED_FILE):
            os.remove(SHARED_FILE)

    def start(self, **env):
        self.started.append(Process(self.program, self.folder, **env))
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
        self.assertFalse(os.path.exists(SHARED_FILE))
        self.assertEqual(semaphore(DATABASE_KEY), -1)
        self.assertEqual(second.load(), 0, "it loads again")

    def test_the_ninth_takes_the_first_slot(self):
        eight = [self.start() for _ in range(8)]
        self.assertEqual([process.load() for process in eight], list(range(8)))
        self.assertEqual(self.start().load(), 0)
        self.assertEqual(flags(), [5, 1, 1, 1, 1, 1, 1, 1])

    def test_a_dead_process_keeps_its_slot_until_all_are_marked(self):
        for slot in range(8):
            process = self.start()
            self.assertEqual(process.load(), slot)
            process.kill()
        self.assertEqual(flags(), [5] * 8)
        last = self.start()
        self.assertEqual(last.load(), 0)
        self.assertEqual(flags(), [5, 1, 1, 1, 1, 1, 1, 1])
        self.assertEqual(last.tell("free"), 0)
        self.assertFalse(os.path.exists(SHARED_FILE))

    def test_a_process_that_dies_with_a_semaphore_blocks_nobody(self):
        for what in ("database", "log"):
            holder, other = self.start(VARNOK_API_DEBUG="4"), self.start(VARNOK_API_DEBUG="4")
            holder.load()
            self.assertEqual(holder.tell("hold " + what), 0)
            other.child.stdin.write("load\nprint\n")
            other.child.stdin.flush()
            holder.kill()
            self.assertEqual([int(other.child.stdout.readline()) for _ in range(2)], [0, 0])
            self.assertIn("a line: 1\n", other.end())

    def test_a_user_that_is_not_the_last_and_finds_a_waiter_keeps_the_semaphore(self):
        first = self.start()
        first.load()
        identifier = semaphore(DATABASE_KEY)
        waiter = self.start()
        self.assertEqual(first.tell("hold database"), 0)
        waiter.child.stdin.write("load\n")
        waiter.child.stdin.flush()
        while libc.semctl(identifier, 0, 14) == 0:
            pass
        first.kill()
        self.assertEqual(int(waiter.child.stdout.readline()), 0)
        self.assertEqual(waiter.tell("slot"), 1)
        self.assertEqual(semaphore(DATABASE_KEY), identifier)


if __name__ == "__main__":
    if shutil.which("lsof") is None:
        sys.exit("lsof is missing: the library counts its users with it")
    unittest.main(verbosity=2)
