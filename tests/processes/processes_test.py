"""Several real processes, real semaphores and the real lsof: processes_test.py HOST_PROCESS"""

import shutil
import unittest

from host_support import DATABASE_KEY, SHARED_FILE, HostTest, flags, libc, semaphore


class ProcessesTest(HostTest):
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
