"""Processes that die at any call they make, up to twelve at a time: kills_test.py HOST_PROCESS

VARNOK_KILLS is how many die at random, VARNOK_SEED the number that a run prints: it chooses them again."""

import collections
import faulthandler
import itertools
import os
import pathlib
import random
import re
import signal
import unittest

from host_support import DATABASE_KEY, LOG_KEY, SHARED_FILE, HostTest, Process, flags, libc, semaphore

KILLS = int(os.environ.get("VARNOK_KILLS", "2000"))
SEED = int(os.environ.get("VARNOK_SEED", random.SystemRandom().randrange(10**6)))
LOG_FILE = pathlib.Path("/var/tmp/libvarnok.log")
FILE_SIZE, SLOTS, AT_ONCE = 163840, 8, 12
GETNCNT, GETVAL = 14, 12
IN_USE = 4
# Calls with the database's semaphore held and with the log's; in the latter, those that leave a stamp without its line.
DATABASE_CALLS = ("fstat", "posix_fallocate", "mmap", "msync", "popen", "pclose", "write", "fsync")
GROWTH_CALLS = ("read", "lseek")
LOG_CALLS = ("time", "localtime", "fdopen", "fflush", "sync", "fputs", "fclose")
STAMPED = ("sync", "fputs", "fclose")
STAMP = r"[A-Z][a-z]{2} [0-3]\d \d\d:\d\d:\d\d: "
Place = collections.namedtuple("Place", "call database log slot")


class Herd(Process):
    """Processes forked from one; each says where it is before it stops or ends there."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.alive, self.places = set(), {}

    def read(self):
        while (words := self.child.stdout.readline().split())[0] == "at":
            self.places[int(words[1])] = Place(words[2], *map(int, words[3:]))
        return [int(word) for word in words]

    def fork(self, call="*", nth=1, ends=signal.SIGKILL, mask=0):
        self.order(f"fork {mask} {call} {nth} {ends:d}")
        pid = self.read()[0]
        self.alive.add(pid)
        return pid

    def wait(self):
        """The next that stops, or dies as it must; and whether it died."""
        self.order("wait")
        status, pid = self.read()
        if os.WIFSTOPPED(status):
            return pid, False
        assert os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGKILL, status
        self.alive.remove(pid)
        return pid, True

    def slay(self, pid):
        os.kill(pid, signal.SIGKILL)
        while self.wait() != (pid, True):
            pass

    def stopped(self, **how):
        pid = self.fork(ends=signal.SIGSTOP, **how)
        assert self.wait() == (pid, False)
        return pid


def marked(words):
    return [slot for slot, word in enumerate(words) if word & IN_USE]


def after_claim(words):
    free = [slot for slot in range(SLOTS) if not words[slot] & IN_USE]
    if not free:
        words = words[:1] + [word & ~IN_USE for word in words[1:]]
    slot = free[0] if free else 0
    return slot, words[:slot] + [words[slot] | 5] + words[slot + 1:]


class KillsTest(HostTest):
    seen = collections.Counter()

    @classmethod
    def tearDownClass(cls):
        print(*(f"{count} in {call} with the {what}'s" for (what, call), count in sorted(cls.seen.items())), sep="\n")

    def setUp(self):
        super().setUp()
        self.random = random.Random(SEED)
        self.errors = self.program + ".stderr"
        self.log_read, self.errors_read, self.rest = LOG_FILE.stat().st_size if LOG_FILE.exists() else 0, 0, ""
        self.stub = pathlib.Path(self.program).parent / "lsof"
        self.stub.touch(mode=0o755)
        self.count_users(2)
        self.herd = self.start_herd(PATH=f"{self.stub.parent}:{os.environ['PATH']}")

    def start_herd(self, **env):
        with open(self.errors, "a", encoding="ascii") as errors:
            self.started.append(Herd(self.program, env, errors))
        return self.started[-1]

    def count_users(self, users):
        self.stub.write_text("#!/bin/sh\nprintf '%s'\n" % (2 * users * "libvarnok\\n"))

    def check_nobody_blocks(self, herd):
        """Nobody alive holds anything; the next gets the slot that is its due. Every line of the log is whole."""
        for key in (DATABASE_KEY, LOG_KEY):
            if (identifier := semaphore(key)) != -1:
                self.assertEqual((libc.semctl(identifier, 0, GETVAL), libc.semctl(identifier, 0, GETNCNT)), (1, 0))
        slot, words = after_claim(flags())
        pid = herd.stopped(call="loaded", mask=self.random.choice((0, 7)))
        self.assertEqual((herd.places[pid].slot, flags()), (slot, words))
        self.assertEqual(SHARED_FILE.stat().st_size, FILE_SIZE)
        if self.random.random() < 0.5:
            herd.slay(pid)
        else:
            self.leave(herd, pid)
        self.check_log(herd)

    def leave(self, herd, pid):
        words, slot = flags(), herd.places[pid].slot
        os.kill(pid, signal.SIGCONT)
        self.assertEqual(herd.wait(), (pid, True))
        self.assertEqual(herd.places[pid].call, "freed")
        if SHARED_FILE.exists():
            self.assertEqual(flags(), words[:slot] + [words[slot] & ~5] + words[slot + 1:])

    def check_log(self, herd):
        """A writer that died after its stamp left that alone: the next line stands behind it."""
        if not LOG_FILE.exists():
            return
        with open(LOG_FILE, encoding="ascii") as log, open(self.errors, encoding="ascii") as errors:
            log.seek(self.log_read)
            *lines, rest = (self.rest + log.read()).split("\n")
            self.log_read = log.tell()
            errors.seek(self.errors_read)
            texts = collections.Counter(errors.read().split("\n"))
            self.errors_read = errors.tell()
        parted = [re.fullmatch(f"((?:{STAMP})*)(.*)", line) for line in lines + [rest]]
        self.assertEqual((rest, parted.pop()[2]), (rest, ""))
        self.assertFalse([line[0] for line in parted if not line[1]])
        self.assertFalse(collections.Counter(line[2] for line in parted) - texts)
        stamps, before = (len(re.findall(STAMP, "".join(some))) for some in (lines + [rest], self.rest))
        dead = [place for place in herd.places.values() if place.log and place.call in STAMPED]
        self.assertEqual(stamps - before, len(lines) + len(dead))
        self.rest = rest
        self.seen.update((what, place.call) for place in herd.places.values()
                         for what, inside in (("database", place.database), ("log", place.log)) if inside)
        herd.places.clear()

    def test_a_lone_process_that_dies_at_any_call(self):
        for users, size in itertools.product((1, 2), (None, 100, FILE_SIZE)):
            self.count_users(2)
            self.check_nobody_blocks(self.herd)
            calls = []
            while "freed" not in calls:
                SHARED_FILE.unlink()
                if size is not None:
                    SHARED_FILE.write_bytes(b"\5\0\0\0".ljust(size, b"\0"))
                self.count_users(users)
                before = flags()
                pid = self.herd.fork(nth=len(calls) + 1)
                self.assertEqual(self.herd.wait(), (pid, True))
                calls.append(self.herd.places[pid].call)
                claimed = "msync" in calls
                released = "popen" in calls and calls[-1] not in ("popen", "pclose", "fstat", "posix_fallocate")
                if calls[-1] == "freed" and users == 1:
                    self.assertFalse(SHARED_FILE.exists())
                else:
                    self.assertEqual(flags(), after_claim(before)[1] if claimed and not released else before, calls)
                self.count_users(2)
                self.check_nobody_blocks(self.herd)
        self.assertLessEqual({("database", call) for call in DATABASE_CALLS + GROWTH_CALLS}, set(self.seen))

    def test_a_creator_that_dies_before_the_first_value_is_replaced_in_time(self):
        soon = self.start_herd(CLOCK_AHEAD="8")  # a second or two before the time is up
        for key, mask in ((DATABASE_KEY, 0), (LOG_KEY, 7)):
            self.herd.fork("semctl", mask=mask)
            self.herd.wait()
            identifier = semaphore(key)
            # Who is interrupted in the meantime leaves no trace; who just waits is helped by nobody.
            for _ in range(2):
                self.herd.fork("nanosleep", 3, mask=mask)
                self.herd.wait()
            waiters = {soon.fork("loaded", mask=mask) for _ in range(3)}
            self.assertEqual(waiters, {soon.wait()[0] for _ in waiters})
            self.assertEqual((semaphore(key), libc.semctl(identifier, 0, GETVAL)), (identifier, 1))

    def test_waiters_that_a_signal_interrupts_wait_on(self):
        self.check_nobody_blocks(self.herd)
        identifier = semaphore(DATABASE_KEY)
        holder = self.herd.stopped(call="msync")
        waiter = self.herd.fork("mmap", ends=signal.SIGSTOP)
        for _ in range(9):
            while libc.semctl(identifier, 0, GETNCNT) == 0:
                pass
            os.kill(waiter, signal.SIGUSR1)
        os.kill(holder, signal.SIGKILL)
        ends = {self.herd.wait(), self.herd.wait()}
        self.assertEqual(ends, {(holder, True), (waiter, False)})
        self.assertTrue(self.herd.places[waiter].database)
        self.herd.slay(waiter)

    def test_waiters_that_die_and_waiters_that_go_on(self):
        for key, mask, calls in ((DATABASE_KEY, 0, DATABASE_CALLS), (LOG_KEY, 7, LOG_CALLS)):
            for call in calls:
                SHARED_FILE.unlink(missing_ok=True)
                self.check_nobody_blocks(self.herd)
                if call in ("write", "fsync"):
                    SHARED_FILE.unlink()
                holder = self.herd.stopped(call=call, mask=mask)
                waiters = [self.herd.fork(nth=self.random.randrange(6, 90), mask=mask) for _ in range(AT_ONCE - 1)]
                identifier = semaphore(key)
                while libc.semctl(identifier, 0, GETNCNT) < len(waiters):
                    pass
                for dead, pid in enumerate(self.random.sample(waiters, self.random.randrange(len(waiters))), 1):
                    self.herd.slay(pid)
                    self.assertEqual(libc.semctl(identifier, 0, GETNCNT), len(waiters) - dead)
                self.assertEqual(libc.semctl(identifier, 0, GETVAL), 0)
                self.herd.slay(holder)
                while self.herd.alive:
                    self.herd.wait()
                self.check_nobody_blocks(self.herd)
        self.assertLessEqual({("log", call) for call in LOG_CALLS}, set(self.seen))

    def one_more(self, herd):
        mask, calls, last = self.random.choice((
            (0, "*", 60), (0, DATABASE_CALLS + GROWTH_CALLS, 3), (7, "*", 2000), (7, LOG_CALLS, 120)))
        ends = self.random.choice((signal.SIGKILL,) * 3 + (signal.SIGSTOP,))
        return herd.fork(self.random.choice(calls), self.random.randrange(1, last), ends, mask)

    def batch(self, herd):
        """Some live through it, the others die; where there is room for all of them, none may share a slot."""
        if self.random.random() < 0.4:
            SHARED_FILE.unlink()
        elif self.random.random() < 0.4:
            os.truncate(SHARED_FILE, self.random.randrange(FILE_SIZE))
        before, room = marked(flags()), SLOTS - len(marked(flags()))
        holders = [herd.stopped(call="loaded") for _ in range(self.random.randrange(3))]
        victims = [self.one_more(herd) for _ in range(self.random.randrange(1, AT_ONCE + 1 - len(holders)))]
        while herd.alive != set(holders):
            pid, died = herd.wait()
            if not died:
                for key, held in ((DATABASE_KEY, herd.places[pid].database), (LOG_KEY, herd.places[pid].log)):
                    self.assertLessEqual(held, libc.semctl(semaphore(key), 0, GETVAL) == 0)
                os.kill(pid, signal.SIGKILL)
        if len(holders) + len(victims) <= room:
            slots = [herd.places[pid].slot for pid in holders + victims]
            self.assertEqual(sorted(before + [slot for slot in slots if slot >= 0]), marked(flags()))
        for pid in holders:
            self.leave(herd, pid)
        self.check_nobody_blocks(herd)
        return len(victims)

    def test_many_that_die_at_random(self):
        self.check_nobody_blocks(self.herd)
        counting = self.start_herd()  # with the host's own lsof
        killed = sum(self.batch(counting) for _ in range(3))
        while killed < KILLS:
            killed += self.batch(self.herd)


if __name__ == "__main__":
    print(f"VARNOK_SEED={SEED} VARNOK_KILLS={KILLS}", flush=True)
    faulthandler.dump_traceback_later(100, exit=True)  # somebody blocks
    unittest.main(verbosity=2, failfast=True)
