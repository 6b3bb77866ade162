"""Each system call of `quenbyctl apply` fails once, and each is its last one: the stored files are the
old ones or the new ones, and the exit status says which."""

import collections
import re
import signal

import surroundings as s
import applying as a
from applying import AFTER, KEPT, LOCK, NOTE, OLD, ApplyTest

# Not to be failed: without memory or an end there is no program, and these do not fail.
SPARED = {"exit_group", "execve", "rt_sigreturn", "mmap", "munmap", "mprotect", "brk", "mremap",
          "close", "futex"}

# A program that fails when it has changed both files.
FAILING = ("[ $1 = --tariff-add ] || exit 0", "echo x >>%s" % s.TARIFF_FILE,
           "rm %s" % s.GLOBAL_FILE, "exit 1")


def calls_of(log):
    """Each system call since the lock was taken, as its name and which of its name it is."""
    counts, calls, begun = collections.Counter(), [], False
    for name in re.findall(r"^(\w+)\(", log, re.M):
        counts[name] += 1
        begun = begun or (name == "flock")
        if begun and name not in SPARED:
            calls.append((name, counts[name]))
    return calls


class Sweep(ApplyTest):
    program = None
    tries = 0
    least = 60

    def prepare(self):
        self.end_children()
        self.restore()
        if self.program:
            a.write_program(*self.program)

    def run_once(self, injection, *arguments):
        self.prepare()
        result, _ = s.run_with(injection, *arguments, program="/quenbyctl")
        a.settle()
        return result

    def calls(self, *arguments):
        self.run_once("sysinfo:error=EIO", *arguments)
        return calls_of(s.LOG.read_text(errors="replace"))

    def sweep(self, tampering, check, *arguments):
        calls = self.calls(*arguments)
        self.assertGreater(len(calls), self.least)
        for name, number in calls:
            with self.subTest(tampering, call=name, number=number):
                check(self.run_once("%s:%s:when=%d" % (name, tampering, number), *arguments))

    def whole(self):
        """The stored tariffs, with nothing of a change left."""
        self.assertEqual(s.content(s.GLOBAL_FILE), s.DISABLED)
        self.assertIn(s.content(s.TARIFF_FILE), (OLD, AFTER))
        self.assertFalse((KEPT / "change").exists() or (KEPT / "taking-back").exists())
        return s.content(s.TARIFF_FILE)

    def expect_old_or_new(self, result):
        # What cannot be said, or brought to the disk at the very end, was made nevertheless.
        made = result.status == 0 or re.search("standard output|a crash may", result.err)
        self.assertIn(result.status, (0, 1, 2), result)
        self.assertEqual(self.whole(), AFTER if made else OLD, result)
        self.goes_on(AFTER if made else OLD)

    def expect_old_or_new_after_a_kill(self, result):
        self.assertIn(result.status, (0, -signal.SIGKILL))
        self.goes_on(self.whole())

    def goes_on(self, tariffs):
        """What is left is in nobody's way; looked at now and then, as it takes its time."""
        self.tries += 1
        if self.program or self.tries % 4:
            return
        result = a.apply("tariff-del", "a" if tariffs == OLD else "n")
        self.assertEqual(result, s.Result(0, "applied\n", ""))
        a.settle()
        self.assertNotIn("tc_kept", s.names_in(s.FOLDER))


class Made(Sweep):
    def test_each_call_fails(self):
        self.sweep("error=EIO", self.expect_old_or_new, "apply", "tariff-add", str(s.GIVEN))

    def test_each_call_is_the_last(self):
        self.sweep("signal=KILL", self.expect_old_or_new_after_a_kill, "apply", "tariff-add",
                   str(s.GIVEN))


class TakenBack(Sweep):
    program = FAILING

    def expect_old(self, result):
        self.assertIn(result.status, (1, 2))
        self.assertEqual(self.whole(), OLD)

    def expect_old_after_a_kill(self, result):
        self.assertIn(result.status, (1, 2, -signal.SIGKILL))
        self.assertEqual(self.whole(), OLD)

    def test_each_call_fails(self):
        self.sweep("error=EIO", self.expect_old, "apply", "tariff-add", str(s.GIVEN))

    def test_each_call_is_the_last(self):
        self.sweep("signal=KILL", self.expect_old_after_a_kill, "apply", "tariff-add", str(s.GIVEN))


class Waiting(Sweep):
    """A change that waits is taken back by its guard, or by whoever is asked to."""

    def run_once(self, injection, *arguments):
        self.prepare()
        result, _ = s.run_with(injection, *arguments, program="/quenbyctl")
        if a.is_waiting():
            self.assertEqual(a.confirm(), s.Result(0, "confirmed\n", ""))
            # What watches looks for that each second.
            self.end_children()
        a.settle()
        return result

    def test_each_call_fails(self):
        self.sweep("error=EIO", self.expect_old_or_new, "apply", "--confirm", "60", "tariff-add",
                   str(s.GIVEN))


class WithoutAGuard(Sweep):
    """What is asked to end a change that waits; nobody watches it."""

    least = 12

    def prepare(self):
        super().prepare()
        self.add("--confirm", "600")
        self.end_children()
        self.assertTrue(a.is_waiting())

    def gone(self):
        return not ((KEPT / "change").exists() or (KEPT / "taking-back").exists())

    def expect_old_in_the_end(self, result):
        if not self.gone():
            self.assertNotEqual(result.status, 0)
            self.assertEqual(a.apply("--take-back").status, 0)
        self.assertEqual(self.whole(), OLD)

    def test_each_call_of_the_return_fails(self):
        self.sweep("error=EIO", self.expect_old_in_the_end, "apply", "--take-back")

    def test_each_call_of_the_return_is_the_last(self):
        self.sweep("signal=KILL", self.expect_old_in_the_end, "apply", "--take-back")

    def expect_confirmed_or_waiting(self, result):
        self.assertEqual(s.content(s.TARIFF_FILE), AFTER)
        self.assertFalse((KEPT / "taking-back").exists())
        if not self.gone():
            self.assertNotEqual(result.status, 0)
            self.assertEqual(a.confirm().status, 0)

    def test_each_call_of_the_confirmation_fails(self):
        self.sweep("error=EIO", self.expect_confirmed_or_waiting, "confirm")

    def test_each_call_of_the_confirmation_is_the_last(self):
        self.sweep("signal=KILL", self.expect_confirmed_or_waiting, "confirm")
