#!/usr/bin/env python3
"""What the kernel makes of a class's values, and of classes and leaves that stand already.

Call: scripts/lab tests/kernel/class_test.py PROGRAM
"""

import pathlib
import re
import subprocess
import unittest

import router_state
import state_test
from cases import load_cases
from edit_test import AMY, BOB, GIVEN, NEW_FILE, SHAPED, ZED, EditTest
from router import IFB, WAN, Router, program_path, use_legacy_iptables, use_plain_sudo
from tc_dump import htb_classes

HARDWARE_TOOL = pathlib.Path("/usr/sbin/kavo-hal")
TEN_GIGABIT_PORT = """#!/bin/sh
case $1 in
  isSfpPlus) printf 1 ;;
  getEthPhysical) echo "Speed: 10000Mb/s" ;;
esac
"""


def tc(*words):
    subprocess.run(["tc", *words], check=True)


def kernel_log():
    log = subprocess.run(["dmesg"], capture_output=True, text=True, check=True).stdout
    return [line for line in log.splitlines() if re.search("htb|quantum|sch_", line, re.I)]


class QuantumTest(state_test.StateTest):
    """Classes from 8 bytes/s to 10 Gbit/s take turns by what the kernel would choose."""

    # kbit/s; a tenth of a rate leaves the range of the quantum below 80 and above 16000.
    SPEEDS = (0, 1, 79, 80, 81, 1000, 15999, 16000, 16001, 100000, 8000000)
    GLOBAL = "[global]\nwan=eth1\ndownload_speed=10000000\nupload_speed=10000000\nenabled=true\n"
    PLAIN = "plain"

    def setUp(self):
        super().setUp()
        HARDWARE_TOOL.write_text(TEN_GIGABIT_PORT, encoding="ascii")
        HARDWARE_TOOL.chmod(0o755)
        self.addCleanup(HARDWARE_TOOL.unlink)

    def load(self, speeds):
        """The leaf classes of both devices that these make."""
        text = "".join(f"[t{i}]\nid={4 + i}\nip=10.0.0.{4 + i}\ndownload_speed={speed}\n"
                       f"upload_speed={speed}\n" for i, speed in enumerate(speeds))
        state_test.ROUTER.load(self.GLOBAL, text)
        return [c for device in (WAN, IFB) for c in htb_classes(device).values()
                if c.parent != 0xFFFFFFFF]

    def chosen_by_the_kernel(self, rates):
        """The quantum of each rate when nobody names one."""
        subprocess.run(["ip", "link", "add", self.PLAIN, "type", "ifb"], check=True)
        try:
            tc("qdisc", "add", "dev", self.PLAIN, "root", "handle", "8000:", "htb")
            for number, rate in enumerate(rates, 1):
                tc("class", "add", "dev", self.PLAIN, "parent", "8000:",
                   "classid", f"8000:{number:x}", "htb", "rate", f"{rate}bps")
            return {c.rate: c.quantum for c in htb_classes(self.PLAIN).values()}
        finally:
            subprocess.run(["ip", "link", "del", self.PLAIN], check=True)

    def test_quantum_is_the_kernels_and_the_log_is_silent(self):
        before = kernel_log()
        found = self.load(self.SPEEDS) + self.load([10000000])
        self.assertEqual(before, kernel_log())
        self.assertEqual({8, *(125 * speed for speed in self.SPEEDS if speed), 1250000000},
                         {c.rate for c in found})
        chosen = self.chosen_by_the_kernel(sorted({c.rate for c in found}))
        self.assertEqual([(c.rate, chosen[c.rate]) for c in found],
                         [(c.rate, c.quantum) for c in found])
        self.assertIn("quantum of class", "\n".join(kernel_log()[len(before):]))


class RepeatTest(EditTest):
    """A --tariff-add of number 6 where an earlier one ended half-way."""

    # What stands in the place of the fq_codel leaves that edit_test.py has.
    KINDS = {"pfifo": "pfifo limit 11000", "sfq": "sfq limit 127", "fq_codel": r"\g<0>"}

    def half_made(self, kind):
        for device in (WAN, IFB):
            tc("class", "add", "dev", device, "parent", "8000:1", "classid", "8000:6", "htb",
               "rate", "1mbit")
            tc("qdisc", "add", "dev", device, "parent", "8000:6", "handle", "8006:", kind)

    def new_state(self, kind):
        return SHAPED + ZED + AMY + re.sub(r"fq_codel .*", self.KINDS[kind], BOB)

    def test_every_kind_over_every_other(self):
        for standing in self.KINDS:
            for kind in self.KINDS:
                with self.subTest(standing=standing, kind=kind):
                    self.half_made(standing)
                    self.give("--tariff-add", NEW_FILE.replace("fq_codel", kind))
                    self.assert_kernel(self.new_state(kind))
                    self.run_program("--tariff-del", "bob")

    def test_the_same_command_again(self):
        """Uploads are made first; then somebody's qdisc has the handle of the download's leaf."""
        tc("class", "add", "dev", IFB, "parent", "8000:1", "classid", "8000:3fff", "htb",
           "rate", "1mbit")
        tc("qdisc", "add", "dev", IFB, "parent", "8000:3fff", "handle", "8006:", "pfifo")
        GIVEN.write_text(NEW_FILE.replace("fq_codel", "sfq"), encoding="ascii")
        self.assertEqual(
            (1, "", "Error: ifb_ingr failed to add sfq qdisc(Invalid input data or parameter)\n"),
            state_test.ROUTER.run("--tariff-add", str(GIVEN)))
        tc("class", "del", "dev", IFB, "classid", "8000:3fff")
        self.run_program("--tariff-add", str(GIVEN))
        self.assert_kernel(self.new_state("sfq"))


class ImqRepeatTest(state_test.ImqTest):
    """Upload leaves of high numbers keep their handles from load to load."""

    def setUp(self):
        super().setUp()
        self.case = next(case for case in load_cases() if case.name == "imq_high")

    def test_each_load_makes_the_same(self):
        """A handle that the kernel chose would collide at the third load."""
        for _ in range(3):
            self.check(self.case)

    def test_deleted_tariffs_leave_nothing(self):
        self.check(self.case)
        for name in ("a", "b", "c"):
            self.assertEqual((0, "", ""), state_test.ROUTER.run("--tariff-del", name))
        theirs = re.compile(r"class 8000:(31d|31e|b1d|b1e)|parent 8000:(31d|31e|b1d|b1e)")
        self.assert_state([line for line in self.case.state if not theirs.search(line)],
                          router_state.read_state())


if __name__ == "__main__":
    use_plain_sudo()
    use_legacy_iptables()
    state_test.ROUTER = Router(program_path())
    unittest.main(verbosity=2)
