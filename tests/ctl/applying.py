"""What the tests of `quenbyctl apply` share: a /run of their own, processes that outlive the command,
and a script in the program's place."""

import contextlib
import ctypes
import fcntl
import json
import os
import pathlib
import signal
import subprocess
import time

import private_root
import surroundings as s

KEPT = s.FOLDER / "tc_kept"
LOCK = pathlib.Path("/run/quenby.lock")
NOTE = pathlib.Path("/run/quenby.on")
PROGRAM = pathlib.Path("/quenby")
RAN = pathlib.Path("/ran")
CHANGED = pathlib.Path("/changed.ini")
PR_SET_CHILD_SUBREAPER = 36

OLD = s.tariff("a", 4)
NEW = s.tariff("n")
AFTER = OLD + s.tariff("n", 5)
# What a script does to make the change.
MAKE = "cp %s %s" % (CHANGED, s.TARIFF_FILE)


def apply(*arguments, **options):
    return s.run("apply", *arguments, program="/quenbyctl", **options)


def apply_json(*arguments):
    result = apply("--json", *arguments)
    return result.status, json.loads(result.out)


def confirm(*arguments):
    return s.run("confirm", *arguments, program="/quenbyctl")


def is_waiting():
    record = KEPT / "change"
    return record.exists() and json.loads(record.read_text())["waiting"]


def adopt_orphans():
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def children():
    listed = pathlib.Path("/proc/self/task/%d/children" % os.getpid()).read_text()
    return [int(number) for number in listed.split()]


def settle(seconds=20):
    """Waits until every process that a command has left behind has ended."""
    end = time.monotonic() + seconds
    while children():
        if os.waitpid(-1, os.WNOHANG) == (0, 0):
            if time.monotonic() > end:
                raise AssertionError("still there: %s" % children())
            time.sleep(0.005)


def begin(*arguments, **options):
    """Starts the command and does not wait for it."""
    return subprocess.Popen(["/quenbyctl", "apply", *arguments], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)


def ended(process):
    out, err = process.communicate(timeout=30)
    return s.Result(process.returncode, out, err)


def wait_for(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        time.sleep(0.005)


@contextlib.contextmanager
def locked():
    """Holds the lock of all runs, as another run does."""
    with LOCK.open("a") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        yield


def write_program(*lines):
    """A script in the program's place, which notes its calls."""
    new = PROGRAM.with_name("quenby.new")
    new.write_text("\n".join(["#!/bin/sh", 'echo "$*" >>%s' % RAN, *lines, ""]))
    new.chmod(0o755)
    new.rename(PROGRAM)


def ran():
    return RAN.read_text().splitlines() if RAN.exists() else []


class ApplyTest(s.SurroundingsTest):
    """A disabled line, so that the program changes files alone, and one tariff."""

    @classmethod
    def setUpClass(cls):
        adopt_orphans()

    def setUp(self):
        super().setUp()
        private_root.mount("-t", "tmpfs", "tmpfs", "/run")
        self.addCleanup(private_root.unmount, "/run")
        self.addCleanup(self.end_children)
        code = PROGRAM.read_bytes()
        self.addCleanup(private_root.write_program, PROGRAM, code)
        RAN.unlink(missing_ok=True)
        self.restore()

    def restore(self):
        """The files, and shaping that is wanted."""
        self.store(tariff_text=OLD)
        s.TARIFF_FILE.chmod(0o640)
        s.given(NEW)
        CHANGED.write_text(AFTER)
        NOTE.write_text("--load\n")

    @staticmethod
    def end_children():
        for number in children():
            os.kill(number, signal.SIGKILL)
        settle()

    def expect_files(self, tariffs):
        """These tariffs and nothing that a change leaves."""
        self.assertEqual(s.content(s.TARIFF_FILE), tariffs)
        self.assertEqual(s.names_in(s.FOLDER), ["tc_global.ini", "tc_tariff.ini"])
        self.assertEqual(s.content(s.GLOBAL_FILE), s.DISABLED)
        if tariffs is not None:
            self.assertEqual(s.TARIFF_FILE.stat().st_mode & 0o7777, 0o640)

    def add(self, *options):
        return apply(*options, "tariff-add", str(s.GIVEN))
