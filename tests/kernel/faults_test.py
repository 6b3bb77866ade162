#!/usr/bin/env python3
"""An edit finds that something it relies on is missing, and builds everything: afterwards the
kernel holds what a load of the stored files makes of a bare router. Firewall rules play no part;
building makes them the same way whatever brought it about.

Call: scripts/lab tests/kernel/faults_test.py PROGRAM
"""

import pathlib
import subprocess
import unittest

import router_state
from router import (GLOBAL_FILE, IFB, IMQ, TARIFF_FILE, Router, program_path, use_idle_sudo,
                    use_legacy_iptables)

ROUTER = None
PROGRAM = program_path()
GIVEN = pathlib.Path("/run/given.ini")
LINE = "ppp0"
DEVICES = (LINE, IFB, IMQ)
DOWN, UP = "download_speed", "upload_speed"


def tariff(name, number, address, keys):
    """A section with a speed in the directions of `keys`; number None: a new one."""
    own = "" if number is None else f"id={number}\n"
    speeds = "".join(f"{key}={4000 if key in keys else 0}\n" for key in (DOWN, UP))
    return f"[{name}]\n{own}ip={address}\n{speeds}queuing_discipline=pfifo\n"


class Mode:
    """Which directions are shaped, and how the device is named."""

    def __init__(self, wan, lines, keys):
        self.settings = f"[global]\n{wan}enabled=true\n{lines}"
        self.tariffs = tariff("amy", 4, "10.0.0.4", keys) + tariff("zed", 5, "10.0.0.5", keys)
        self.added = tariff("bob", None, "10.0.0.6", keys)
        self.stored = self.tariffs + self.added.replace("]\n", "]\nid=6\n")


WAN = f"wan={LINE}\n"
MODES = {
    "both": Mode(WAN, f"{DOWN}=50000\n{UP}=20000\n", (DOWN, UP)),
    "download only": Mode(WAN, f"{DOWN}=50000\n", (DOWN,)),
    "upload only": Mode(WAN, f"{UP}=20000\n", (UP,)),
    "upload blocked": Mode(WAN, f"{DOWN}=50000\n{UP}=0\n", (DOWN,)),
    "imq both": Mode("", f"{DOWN}=50000\n{UP}=20000\n", (DOWN, UP)),
    "imq download only": Mode("", f"{DOWN}=50000\n", (DOWN,)),
}
def killed_load(when):
    """A load that is killed at its request number `when`."""
    return f"strace -qq -o /dev/null -e inject=sendmsg:signal=KILL:when={when} {PROGRAM} --load"


# What happens to a router: shell commands, whether it was loaded before, in which modes.
FAULTS = {
    "stopped": (f"{PROGRAM} --stop", True, list(MODES)),
    "never loaded": ("", False, ["download only"]),
    "line came back": (f"ip link del {LINE}; ip link add {LINE} type dummy; ip link set {LINE} up",
                       True, ["both", "download only", "upload only"]),
    "load killed at its 5th request": (killed_load(5), False, ["both", "upload only"]),
    "load killed at its 10th request": (killed_load(10), False, ["download only"]),
    "load killed at its 22nd request": (killed_load(22), False, ["both"]),
    "ifb_ingr deleted":
        (f"ip link del {IFB}", True, ["both", "download only", "upload blocked"]),
    "ifb_ingr deleted and made again":
        (f"ip link del {IFB}; ip link add {IFB} type ifb; "
         f"tc qdisc add dev {IFB} root handle 8000: htb", True, ["download only"]),
    "redirection deleted":
        (f"tc filter del dev {LINE} parent ffff:", True, ["both", "download only"]),
    "redirection to another device":
        (f"tc filter del dev {LINE} parent ffff:; tc filter add dev {LINE} parent ffff: protocol "
         "ip pref 1 u32 match u32 0 0 action mirred egress redirect dev eth2", True, ["both"]),
    "ingress qdisc deleted":
        (f"tc qdisc del dev {LINE} ingress", True, ["both", "download only", "upload only"]),
    "root of the line deleted":
        (f"tc qdisc del dev {LINE} root", True, ["both", "upload only", "upload blocked"]),
    "root of the line is another":
        (f"tc qdisc replace dev {LINE} root handle 7: fq_codel", True, ["both"]),
    "root of ifb_ingr deleted":
        (f"tc qdisc del dev {IFB} root", True, ["both", "download only"]),
    "root of imq0 deleted":
        (f"tc qdisc del dev {IMQ} root", True, ["imq both", "imq download only"]),
}


def reset():
    """The bare router with a fresh line."""
    ROUTER.reset(imq=True)
    subprocess.run(["ip", "-force", "-batch", "-"], input=(
        f"link del {LINE}\nlink add {LINE} type dummy\nlink set {LINE} up\n"), text=True,
        capture_output=True, check=False)


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
    ROUTER = Router(PROGRAM)
    subprocess.run(["ip", "link", "add", IMQ, "type", "ifb"], check=True)
    subprocess.run(["ip", "link", "set", IMQ, "up"], check=True)
    unittest.main(verbosity=2)
