#!/usr/bin/env python3
"""An edit finds that something it relies on is missing, and builds everything: afterwards the
kernel holds what a load of the stored files makes of a bare router. Firewall rules play no part;
building makes them the same way whatever brought it about.

Call: scripts/lab tests/kernel/faults_test.py PROGRAM
"""

import os
import pathlib
import subprocess
import unittest

import router_state
from faults import DEVICES, EDITED_OTHERWISE, FAULTS, LINE, MODES, REQUESTS6
from router import (GLOBAL_FILE, IMQ, TARIFF_FILE, Router, make_device, program_path,
                    renew_devices, use_idle_sudo, use_legacy_iptables)

ROUTER = None
PROGRAM = program_path()
GIVEN = pathlib.Path("/run/given.ini")


def reset():
    """The bare router with a fresh line."""
    ROUTER.reset(imq=True)
    renew_devices(LINE)


class Faults(unittest.TestCase):
    """Gets a test for each fault in each mode."""

    wanted = {}

    def read(self):
        return router_state.read_state(DEVICES)

    def wanted_state(self, mode, stored):
        """What a load makes of the files as they are after the edit."""
        key = mode.settings, stored
        if key not in self.wanted:
            reset()
            ROUTER.load(*key)
            self.wanted[key] = self.read()
        return self.wanted[key]

    def check(self, commands, loaded, mode, edit):
        wanted = self.wanted_state(mode, edit.stored)
        reset()
        ROUTER.configure(mode.settings, mode.tariffs)
        if loaded:
            self.assertEqual((0, ""), ROUTER.run("--load")[:2])
        subprocess.run(["bash", "-c", commands], check=False, stderr=subprocess.DEVNULL)
        GIVEN.write_text(edit.given or "", encoding="ascii")
        self.assertEqual((0, ""), ROUTER.run(edit.option, str(GIVEN) if edit.given else "zed")[:2])
        lines = router_state.differences(wanted, self.read())
        self.assertFalse(lines, "\n" + "\n".join(lines))
        self.assertEqual(edit.stored, TARIFF_FILE.read_text(encoding="ascii"))
        self.assertEqual(mode.settings, GLOBAL_FILE.read_text(encoding="ascii"))

    def test_requests_of_a_load_with_ipv6(self):
        """A load that is killed at a number is killed where it should be."""
        reset()
        ROUTER.configure(MODES["ipv6"].settings, MODES["ipv6"].tariffs)
        trace = pathlib.Path("/run/requests")
        result = ROUTER.run("--load", wrapper=("strace", "-qq", "-o", trace, "-e", "trace=sendmsg"))
        self.assertEqual((0, ""), result[:2])
        sent = [line for line in trace.read_text(encoding="utf-8", errors="replace").splitlines()
                if line.startswith("sendmsg(")]
        for number, request in REQUESTS6.items():
            for word in request.split():
                self.assertRegex(sent[number - 1], rf"\b{word}\b")
        prefixes = [number for number, line in enumerate(sent, 1)
                    if "IPSET_CMD_ADD" in line and "AF_INET6" in line]
        self.assertEqual((50, 53), (prefixes[0], prefixes[-1]))


def add_test(fault, mode, edit):
    commands, loaded, _ = FAULTS[fault]
    beside = "" if edit == "add" else f" then {edit}"
    name = f"test_{fault} in {mode}{beside}".replace(" ", "_").replace(".", "")
    setattr(Faults, name,
            lambda self: self.check(commands, loaded, MODES[mode], MODES[mode].edits[edit]))


for fault_name, (_, _, modes) in FAULTS.items():
    for mode_name in modes:
        add_test(fault_name, mode_name, "add")
for fault_name, edited in EDITED_OTHERWISE.items():
    for mode_name, edit_names in edited.items():
        for edit_name in edit_names:
            add_test(fault_name, mode_name, edit_name)


if __name__ == "__main__":
    use_idle_sudo()
    use_legacy_iptables()
    os.environ["QUENBY"] = PROGRAM
    ROUTER = Router(PROGRAM, ipv6=True)
    make_device(IMQ, "ifb")
    unittest.main(verbosity=2)
