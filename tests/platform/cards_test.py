#!/usr/bin/env python3
"""The hardware tool on real drivers: a card of 2.5 Gbit/s, one of 100 Mbit/s, what Linux stacks on
them, and the root class that the program makes of the answers.

Call: scripts/lab --device virtio-net-pci,speed=2500,duplex=full --device rtl8139
      python3 tests/platform/cards_test.py PROGRAM
"""

import os
import pathlib
import shutil
import subprocess
import sys
import time
import unittest

import pppoe

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TREE / "tests/kernel"))

import router  # noqa: E402
from tc_dump import htb_classes  # noqa: E402

NET = pathlib.Path("/sys/class/net")
TOOL = "/usr/sbin/kavo-hal"
CARDS = {"virtio_net": "fast0", "8139cp": "slow0"}
BYTES_PER_MBIT = 125_000
ROOT_CLASS, TARIFF_CLASS = 0x80000001, 0x80000005

program = None


def ip(*words):
    subprocess.run(["ip", "link", *words], check=True)


def driver(device):
    return os.path.basename(os.path.realpath(NET / device / "device/driver"))


def wait_for(condition, what):
    for _ in range(100):
        if condition():
            return
        time.sleep(0.1)
    raise RuntimeError(what)


def load_drivers():
    for module, name in CARDS.items():
        subprocess.run(["modprobe", module], check=True)
        wait_for(lambda: module in map(driver, os.listdir(NET)), "no card for " + module)
        ip("set", next(card for card in os.listdir(NET) if driver(card) == module), "name", name)
    # Without this the module makes devices on its own.
    subprocess.run(["modprobe", "bonding", "max_bonds=0"], check=True)


def connected(device):
    return (NET / device / "carrier").read_text() == "1\n"


def set_up(*devices):
    for device in devices:
        ip("set", device, "up")
    wait_for(lambda: all(map(connected, devices)), "no carrier: " + " ".join(devices))


def kernel_speed(device):
    return int((NET / device / "speed").read_text())


def tool(*words):
    done = subprocess.run([TOOL, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return done.stdout


class CardTest(unittest.TestCase):
    def setUp(self):
        set_up(*CARDS.values())

    def tearDown(self):
        for name in os.listdir(NET):
            if name not in ("lo", *CARDS.values()) and (NET / name).is_dir():
                subprocess.run(["ip", "link", "delete", name], stderr=subprocess.DEVNULL)
        for card in CARDS.values():
            ip("set", card, "down")

    def has(self, port, mbit):
        self.assertEqual((tool("isSfpPlus", port), tool("getEthPhysical", port)),
                         (b"1", b"Speed: %dMb/s\n" % mbit), port)

    def is_unknown(self, port):
        self.assertEqual((tool("isSfpPlus", port), tool("getEthPhysical", port)),
                         (b"0", b"Speed: 1000Mb/s\nKnown: no\n"), port)


class Card(CardTest):
    def test_connected(self):
        self.has("fast0", 2500)
        self.has("slow0", 100)

    def test_down(self):
        for card in CARDS.values():
            ip("set", card, "down")
            self.assertRaises(OSError, (NET / card / "speed").read_text)
        self.has("fast0", 2500)
        self.has("slow0", 100)

    def test_down_with_fewer_modes_on_offer(self):
        subprocess.run(["ethtool", "-s", "slow0", "advertise", "0x003"], check=True)
        self.addCleanup(subprocess.run, ["ethtool", "-s", "slow0", "advertise", "0x00f"])
        ip("set", "slow0", "down")
        self.has("slow0", 10)

    def test_speed_that_the_operator_states(self):
        for mbit in (25000, 2500):
            subprocess.run(["ethtool", "-s", "fast0", "speed", str(mbit), "duplex", "full"],
                           check=True)
            self.has("fast0", mbit)


class Stacked(CardTest):
    def test_vlan_and_macvlan(self):
        ip("add", "link", "fast0", "name", "fast0.7", "type", "vlan", "id", "7")
        ip("add", "link", "fast0.7", "name", "fast0.7.9", "type", "vlan", "id", "9")
        ip("add", "link", "fast0.7", "name", "macvlan0", "type", "macvlan")
        ports = ("fast0.7", "fast0.7.9", "macvlan0")
        set_up(*ports)
        for port in reversed(ports):
            self.has(port, kernel_speed(port))
            ip("set", port, "down")
            self.has(port, 2500)

    def test_bond_is_as_the_kernel_sums_it_up(self):
        speeds = {}
        for mode in ("balance-rr", "active-backup", "broadcast", "802.3ad"):
            ip("add", "bond0", "type", "bond", "mode", mode, "miimon", "50")
            for card in CARDS.values():
                ip("set", card, "down")
                ip("set", card, "master", "bond0")
            set_up("bond0")
            wait_for(lambda: all((NET / card / "bonding_slave/mii_status").read_text() == "up\n"
                                 for card in CARDS.values()), "a member stays down")
            wait_for(lambda: kernel_speed("bond0") > 0, "the bond has no speed")
            speeds[mode] = kernel_speed("bond0")
            with self.subTest(mode):
                self.has("bond0", speeds[mode])
            ip("delete", "bond0")
        self.assertEqual(speeds["balance-rr"], 2600)
        self.assertEqual(speeds["broadcast"], 100)
        self.assertIn(speeds["active-backup"], (100, 2500))

    def test_bridge(self):
        ip("add", "br0", "type", "bridge")
        ip("add", "veth0", "type", "veth", "peer", "name", "veth1")
        set_up("br0", "veth1", "veth0")
        for port in ("veth0", "slow0"):
            ip("set", port, "master", "br0")
        self.has("br0", 100)
        ip("set", "fast0", "master", "br0")
        self.has("br0", 2500)
        ip("set", "fast0", "down")
        self.has("br0", 100)

    def test_pppoe(self):
        ip("add", "link", "fast0", "name", "fast0.7", "type", "vlan", "id", "7")
        set_up("fast0.7")
        subprocess.run(["modprobe", "-a", "ppp_generic", "pppoe"], check=True)
        port = pppoe.Port(1, "fast0.7")
        self.addCleanup(port.close)
        self.has(port.name, 2500)
        other = pppoe.Port(2, "slow0")
        self.addCleanup(other.close)
        self.is_unknown(port.name)
        self.is_unknown(other.name)


class Virtual(CardTest):
    def test_made_up_and_unknown(self):
        ip("add", "veth0", "type", "veth", "peer", "name", "veth1")
        ip("add", "dummy0", "type", "dummy")
        set_up("dummy0", "veth1", "veth0")
        self.has("veth0", 10000)
        self.is_unknown("dummy0")
        self.is_unknown("lo")


class Program(CardTest):
    """What the program makes of it: the root class on the WAN interface and a tariff of 2 Gbit/s,
    beside one that may use the whole line."""

    TARIFFS = ("[max]\nid=4\nip=10.0.0.1\nupload_speed=max\n"
               "[two]\nid=5\nip=10.0.0.2\nupload_speed=2000000\ndownload_speed=2000000\n")

    def loads(self, wan, mbit, tariff_mbit):
        router.Router.configure(f"[global]\nenabled=true\nwan={wan}\n", self.TARIFFS)
        done = subprocess.run([program, "--load"], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        classes = htb_classes(wan)
        self.assertEqual(classes[ROOT_CLASS].ceil, mbit * BYTES_PER_MBIT)
        self.assertEqual(classes[TARIFF_CLASS].ceil, tariff_mbit * BYTES_PER_MBIT)
        subprocess.run([program, "--stop"], check=True)

    def test_cards(self):
        self.loads("fast0", 2500, 2000)
        self.loads("slow0", 100, 100)

    def test_vlan(self):
        ip("add", "link", "fast0", "name", "fast0.7", "type", "vlan", "id", "7")
        set_up("fast0.7")
        self.loads("fast0.7", 2500, 2000)

    def test_card_that_is_down(self):
        ip("set", "slow0", "down")
        self.loads("slow0", 100, 100)


if __name__ == "__main__":
    program = router.program_path()
    if os.environ.get("QUENBY_IN_LAB") != "guest":
        sys.exit("Error: only inside the lab's guest, with the two cards")
    shutil.copy(TREE / "platform/kavo-hal", TOOL)
    router.use_plain_sudo()
    router.shell("platform_install; modprobe ifb numifbs=0; "
                 "/opt/ostrea/sbin/firewall.init start opt-qos")
    load_drivers()
    unittest.main()
