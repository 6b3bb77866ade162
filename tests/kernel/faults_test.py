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
from faults import DEVICES, FAULTS, LINE, MODES
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

    def wanted_state(self, name):
        """What a load makes of the files as they are after the edit."""
        if name not in self.wanted:
            reset()
            ROUTER.load(MODES[name].settings, MODES[name].stored)
            self.wanted[name] = self.read()
        return self.wanted[name]

    def check(self, commands, loaded, name):
        mode, wanted = MODES[name], self.wanted_state(name)
        reset()
        ROUTER.configure(mode.settings, mode.tariffs)
        if loaded:
            self.assertEqual((0, ""), ROUTER.run("--load")[:2])
        subprocess.run(["bash", "-c", commands], check=False, stderr=subprocess.DEVNULL)
        GIVEN.write_text(mode.added, encoding="ascii")
        self.assertEqual((0, ""), ROUTER.run("--tariff-add", str(GIVEN))[:2])
        lines = router_state.differences(wanted, self.read())
        self.assertFalse(lines, "\n" + "\n".join(lines))
        self.assertEqual(mode.stored, TARIFF_FILE.read_text(encoding="ascii"))
        self.assertEqual(mode.settings, GLOBAL_FILE.read_text(encoding="ascii"))


def test_name(fault, mode):
    return "test_" + f"{fault} in {mode}".replace(" ", "_").replace(".", "")


for fault_name, (shell_commands, is_loaded, modes) in FAULTS.items():
    for mode_name in modes:
        setattr(Faults, test_name(fault_name, mode_name),
                lambda self, arguments=(shell_commands, is_loaded, mode_name):
                    self.check(*arguments))


if __name__ == "__main__":
    use_idle_sudo()
    use_legacy_iptables()
    os.environ["QUENBY"] = PROGRAM
    ROUTER = Router(PROGRAM)
    make_device(IMQ, "ifb")
    unittest.main(verbosity=2)
