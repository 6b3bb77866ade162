#!/usr/bin/env python3
"""`quenbyctl apply` on a real kernel: whatever fails or is killed, kernel and stored files are both
the old ones or both the new ones.

Call: scripts/lab tests/kernel/apply_test.py PROGRAM
"""

import itertools
import os
import pathlib
import shutil
import signal
import subprocess
import time
import unittest

import router_state
from router import GLOBAL_FILE, TARIFF_FILE, WAN, Router, program_path, use_legacy_iptables, use_plain_sudo

ROUTER = None
PROGRAM = program_path()
PLACE = pathlib.Path("/run/apply")
CTL = PLACE / "quenbyctl"
GIVEN = PLACE / "given.ini"
FAULT = PLACE / "fault"
LOG = PLACE / "strace.log"
KEPT = TARIFF_FILE.parent / "tc_kept"
NOTE = pathlib.Path("/run/quenby.on")
LAN = "eth2"

SETTINGS = f"[global]\nwan={WAN}\nenabled=true\ndownload_speed=50000\nupload_speed=20000\n"
AMY = ("[amy]\nid=4\nip=10.0.0.4\ndownload_speed=4000\nupload_speed=1000\n"
       "queuing_discipline=fq_codel\n")
BOB = "[bob]\nid=5\nip=10.0.0.5\ndownload_speed=8000\nupload_speed=2000\nqueuing_discipline=sfq\n"
OLD = AMY + BOB
# Another speed, another address and another queue; one more; one less.
GIVEN_LIST = AMY.replace("id=4\n", "").replace("4000", "6000") + (
    "[eve]\nip=10.0.0.6\ndownload_speed=3000\nupload_speed=500\nqueuing_discipline=pfifo\n")
NEW = AMY.replace("4000", "6000") + GIVEN_LIST[GIVEN_LIST.index("[eve]"):].replace(
    "[eve]\n", "[eve]\nid=6\n")

# The program, with a fault of the test's choice in what it is asked to do but not in its stop.
WRAPPER = f"""#!/bin/sh
case $1 in
  --stop) exec {PROGRAM} "$@" ;;
esac
exec $(cat {FAULT}) {PROGRAM} "$@"
"""


def injected(calls, effect, number):
    LOG.write_text("")
    return f"strace -o {LOG} -e trace={calls} -e inject={calls}:{effect}:when={number}"


def was_injected():
    return "(INJECTED)" in LOG.read_text() or "+++ killed" in LOG.read_text()


def install():
    PLACE.mkdir()
    shutil.copy(pathlib.Path(PROGRAM).with_name("quenbyctl"), CTL)
    (PLACE / "quenby").write_text(WRAPPER)
    (PLACE / "quenby").chmod(0o755)
    FAULT.write_text("")


def alive():
    """Whether a quenbyctl is there that has not ended."""
    for status in pathlib.Path("/proc").glob("[0-9]*/status"):
        try:
            lines = status.read_text().splitlines()
        except OSError:
            continue
        if lines[0] == "Name:\tquenbyctl" and "\tZ" not in lines[2]:
            return True
    return False


def settle():
    end = time.monotonic() + 30
    while alive():
        if time.monotonic() > end:
            raise AssertionError("quenbyctl does not end")
        time.sleep(0.01)


def apply(*arguments, wrapper=()):
    done = subprocess.run([*wrapper, CTL, "apply", *arguments], capture_output=True, text=True,
                          check=False, timeout=60)
    return done.returncode, done.stdout, done.stderr


class ApplyTest(unittest.TestCase):
    # What a load of the two files makes of a bare router.
    wanted = {}
    # Whether kernel and files are known to be the old ones.
    is_old = False

    @classmethod
    def setUpClass(cls):
        for text in (OLD, NEW):
            ROUTER.reset()
            cls.wanted[SETTINGS, text] = ROUTER.load(SETTINGS, text)

    def setUp(self):
        subprocess.run(["pkill", "-KILL", "-x", "quenbyctl"], check=False)
        shutil.rmtree(KEPT, ignore_errors=True)
        GIVEN.write_text(GIVEN_LIST)
        FAULT.write_text("")
        self.make_old()

    @staticmethod
    def make_old():
        """A build takes longer than all else."""
        if not ApplyTest.is_old:
            ROUTER.reset()
            ROUTER.load(SETTINGS, OLD)
            NOTE.write_text("--load\n")
        ApplyTest.is_old = False

    def stored(self):
        self.assertFalse(any((KEPT / name).exists() for name in ("change", "taking-back")))
        return GLOBAL_FILE.read_text(), TARIFF_FILE.read_text()

    def check(self):
        """Files and kernel belong together. The tariffs that are stored."""
        files = self.stored()
        self.assertIn(files, self.wanted)
        lines = router_state.differences(self.wanted[files], router_state.read_state())
        self.assertFalse(lines, "\n" + "\n".join(lines))
        ApplyTest.is_old = files[1] == OLD
        return files[1]


class Apply(ApplyTest):
    def test_made(self):
        self.assertEqual((0, "applied\n", ""), apply("update", str(GIVEN)))
        self.assertEqual(NEW, self.check())

    def test_taken_back_by_time(self):
        status = apply("--confirm", "1", "update", str(GIVEN))[0]
        self.assertEqual((0, NEW), (status, TARIFF_FILE.read_text()))
        settle()
        self.assertEqual(OLD, self.check())

    def test_confirmed(self):
        self.assertEqual(0, apply("--confirm", "60", "update", str(GIVEN))[0])
        subprocess.run([CTL, "confirm"], check=True, stdout=subprocess.DEVNULL)
        settle()
        self.assertEqual(NEW, self.check())

    def test_to_another_interface_and_back(self):
        """What the former files do not name is taken down as well: an upload has no redirection
        that would tell."""
        devices = (WAN, LAN, "ifb_ingr")
        before = router_state.read_state(devices)
        GIVEN.write_text(f"[global]\nupload_speed=20000\nwan={LAN}\nenabled=true\n")
        self.assertEqual(0, apply("--confirm", "600", "global-update", str(GIVEN))[0])
        self.assertEqual(GIVEN.read_text(), GLOBAL_FILE.read_text())
        self.assertEqual((0, "taken back\n", ""), apply("--take-back"))
        self.assertFalse(router_state.differences(before, router_state.read_state(devices)))
        self.assertEqual(OLD, self.check())

    def test_the_first_set_up_fails(self):
        """There were no files, no shaping and no note of it."""
        ROUTER.reset()
        ROUTER.run("--stop")
        before = router_state.read_state()
        for path in (GLOBAL_FILE, TARIFF_FILE):
            path.unlink()
        NOTE.unlink()
        GIVEN.write_text(SETTINGS)
        FAULT.write_text(injected("fsync", "error=EIO", 1))
        self.assertEqual(1, apply("global-update", str(GIVEN))[0])
        self.assertFalse(GLOBAL_FILE.exists() or TARIFF_FILE.exists() or NOTE.exists())
        self.assertFalse(router_state.differences(before, router_state.read_state()))

    def test_drift_is_no_success(self):
        """Somebody has damaged what the change does not touch."""
        subprocess.run("tc class change dev eth1 parent 8000:1 classid 8000:5 htb rate 1mbit".split(),
                       check=True)
        GIVEN.write_text(AMY.replace("4000", "6000"))
        status, output, errors = apply("tariff-update", str(GIVEN))
        self.assertEqual((1, ""), (status, output))
        self.assertIn("eth1 class 8000:5: rate 125000 bytes/s, not 250000 bytes/s", errors)
        self.assertEqual(OLD, self.check())


class Program(ApplyTest):
    """The program fails or is killed at each of its requests and changes of a file."""

    def sweep(self, calls, effect, step):
        """How many calls there are."""
        for number in range(1, 400, step):
            self.make_old()
            FAULT.write_text(injected(calls, effect, number))
            status, _, errors = apply("update", str(GIVEN))
            with self.subTest(f"{effect} at {calls} {number}", errors=errors):
                tariffs = self.check()
                self.assertEqual(NEW if status == 0 else OLD, tariffs)
            if not was_injected():
                self.assertEqual((0, NEW), (status, tariffs))
                return number
        self.fail("there is always one more")

    def test_an_answer_does_not_come(self):
        self.assertGreater(self.sweep("recvmsg", "error=ENOMEM", 6), 40)

    def test_killed_at_a_request(self):
        self.assertGreater(self.sweep("sendmsg", "signal=KILL", 3), 15)

    def test_a_change_of_a_file_fails(self):
        self.assertGreater(self.sweep("fsync,rename", "error=EIO", 1), 2)

    def test_killed_at_a_change_of_a_file(self):
        self.assertGreater(self.sweep("fsync,rename", "signal=KILL", 1), 2)


class Command(ApplyTest):
    """quenbyctl itself fails at its requests, and is killed at any moment."""

    def expect_either(self, status):
        settle()
        tariffs = self.check()
        if status == 0:
            self.assertEqual(NEW, tariffs)
        elif status > 0:
            self.assertEqual(OLD, tariffs)

    def test_an_answer_does_not_come(self):
        """While it compares, and so it repairs."""
        for number in range(1, 400, 7):
            self.make_old()
            wrapper = injected("recvmsg", "error=ENOMEM", number).split()
            status, _, errors = apply("update", str(GIVEN), wrapper=wrapper)
            with self.subTest(number, errors=errors):
                self.expect_either(status)
            if not was_injected():
                break
        self.assertGreater(number, 14)

    def killed_after(self, seconds, group):
        process = subprocess.Popen([CTL, "apply", "update", str(GIVEN)], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        time.sleep(seconds)
        if process.poll() is None:
            (os.killpg if group else os.kill)(process.pid, signal.SIGKILL)
        return process.wait()

    def test_killed_at_many_moments(self):
        """Alone, and with the program that it has started."""
        begin = time.monotonic()
        apply("update", str(GIVEN))
        whole = time.monotonic() - begin
        statuses = []
        for part, group in itertools.product(range(1, 9), (False, True)):
            self.make_old()
            statuses.append(self.killed_after(whole * part / 8, group))
            with self.subTest(part=part, group=group, status=statuses[-1]):
                self.expect_either(statuses[-1])
        self.assertIn(-signal.SIGKILL, statuses)


if __name__ == "__main__":
    use_plain_sudo()
    use_legacy_iptables()
    ROUTER = Router(PROGRAM)
    install()
    unittest.main(verbosity=2)
