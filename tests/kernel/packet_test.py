#!/usr/bin/env python3
"""Packets of every address, in both directions, are counted in the right class and in no other,
whatever the default section and the global speeds are.

Call: scripts/lab tests/kernel/packet_test.py PROGRAM
"""

import contextlib
import json
import pathlib
import subprocess
import unittest

from packets import WAN_ADDRESS, Connection
from router import IFB, IMQ, WAN, Router, arrivals, program_path, shell, use_plain_sudo
from tc_dump import htb_direct_packets

ROUTER = None
UP, DOWN = 7, 4

# Packets that HTB lets pass unshaped.
DIRECT = "direct"
ROOT_MINORS = (1, 0x8001)

TARIFFS = """
[a]
id=4
ip=10.0.0.4
ip=10.1.0.255
download_speed=8000
upload_speed=8000
queuing_discipline=pfifo
[b]
id=5
ip=10.0.0.5
download_speed=8000
upload_speed=8000
queuing_discipline=fq_codel
[last]
id=15000
ip=10.2.3.0
download_speed=8000
upload_speed=8000
"""
CLASS_OF = {"10.0.0.4": 4, "10.1.0.255": 4, "10.0.0.5": 5, "10.2.3.0": 15000}
STRANGER = "10.3.0.9"

# A mark of somebody else, on each packet and on its connection.
FOREIGN_MARKS = """*mangle
-I PREROUTING -j CONNMARK --set-xmark 0x00040000/0x00040000
-I PREROUTING -j MARK --set-xmark 0x00044000/0x00044000
COMMIT
"""


def counters(device):
    return {**arrivals(device), DIRECT: htb_direct_packets(device)}


def added(before, after):
    """What the leaf classes have got in between, without those that got nothing."""
    return {number: count - before.get(number, 0) for number, count in after.items()
            if number not in ROOT_MINORS and count != before.get(number, 0)}


def global_text(speed, default):
    lines = ["[global]", "wan=eth1", "enabled=true"]
    if speed:
        lines += [f"download_speed={speed}", f"upload_speed={speed}"]
    if default:
        lines += ["[defaultqosipqueue]", "download_speed=8000", "upload_speed=8000"]
    return "\n".join(lines) + "\n"


class PacketTest(unittest.TestCase):
    def setUp(self):
        ROUTER.reset()

    def exchange(self, address, namespace="lan"):
        """What one connection adds to the classes of both directions."""
        before = counters(WAN), counters(IFB)
        with Connection(address, namespace) as connection:
            self.assertEqual((UP, DOWN), (connection.upload(UP), connection.answer(DOWN)))
        return added(before[0], counters(WAN)), added(before[1], counters(IFB))

    def check_addresses(self, stranger_class, own_class):
        wanted = {**CLASS_OF, STRANGER: stranger_class}
        for address, number in wanted.items():
            with self.subTest(address=address):
                self.assertEqual(({number: UP}, {number: DOWN}), self.exchange(address))
        with self.subTest("the router's own traffic"):
            self.assertEqual(({own_class: UP}, {own_class: DOWN}),
                             self.exchange(WAN_ADDRESS, None))

    def check(self, speed, default, stranger_class, own_class):
        ROUTER.load(global_text(speed, default), TARIFFS)
        self.check_addresses(stranger_class, own_class)
        subprocess.run(["iptables-restore", "--noflush"], input=FOREIGN_MARKS, text=True,
                       check=True)
        with self.subTest("marks with foreign bits"):
            self.check_addresses(stranger_class, own_class)

    # Without a global speed there is no default class; without a default section there is no
    # class 3, and what is marked for it takes the default class.

    def test_unset_speed_with_default_tariff(self):
        self.check(None, True, 3, DIRECT)

    def test_unset_speed_without_default_tariff(self):
        self.check(None, False, DIRECT, DIRECT)

    def test_speed_below_link_with_default_tariff(self):
        self.check(100000, True, 3, 2)

    def test_speed_below_link_without_default_tariff(self):
        self.check(100000, False, 2, 2)

    def test_speed_of_link_with_default_tariff(self):
        self.check(1000000, True, 3, 2)

    def test_speed_of_link_without_default_tariff(self):
        self.check(1000000, False, 2, 2)

    def test_speed_above_link_with_default_tariff(self):
        self.check(1200000, True, 3, 2)

    def test_speed_above_link_without_default_tariff(self):
        self.check(1200000, False, 2, 2)

    def test_first_packet_from_outside_takes_the_default_class(self):
        ROUTER.load(global_text(100000, True), TARIFFS)
        before = counters(IFB)
        with Connection("10.0.0.4") as connection:
            self.assertEqual(1, connection.answer(1))
        self.assertEqual({2: 1}, added(before, counters(IFB)))


class BlockedTest(unittest.TestCase):
    """Directions with the speed 0. No packet passes, so only the other direction counts."""

    def setUp(self):
        ROUTER.reset()

    def passes(self, address):
        """Packets that arrived: of three uploads, then of three answers."""
        with Connection(address) as connection:
            return connection.upload(3), connection.answer(3)

    def test_upload_blocked(self):
        ROUTER.load("[global]\nwan=eth1\nenabled=true\nupload_speed=0\n", TARIFFS)
        self.assertEqual((0, 3), self.passes("10.0.0.4"))

    def test_download_blocked(self):
        ROUTER.load("[global]\nwan=eth1\nenabled=true\ndownload_speed=0\n", TARIFFS)
        self.assertEqual((3, 0), self.passes("10.0.0.4"))

    def test_default_download_blocked(self):
        ROUTER.load("[global]\nwan=eth1\nenabled=true\n[defaultqosipqueue]\n"
                    "download_speed=0\nupload_speed=8000\n",
                    "[a]\nid=4\nip=10.0.0.4\nupload_speed=8000\n")
        self.assertEqual((3, 3), self.passes("10.0.0.4"))
        self.assertEqual((3, 0), self.passes(STRANGER))

    def test_default_upload_blocked_after_the_first_packet(self):
        """The first packet's connection has no mark yet; all that follow are dropped."""
        ROUTER.load("[global]\nwan=eth1\nenabled=true\n[defaultqosipqueue]\n"
                    "download_speed=8000\nupload_speed=0\n",
                    "[a]\nid=4\nip=10.0.0.4\ndownload_speed=8000\n")
        self.assertEqual((3, 3), self.passes("10.0.0.4"))
        self.assertEqual((1, 3), self.passes(STRANGER))


class ImqPacketTest(unittest.TestCase):
    """The hash tree of the IMQ device: third octets 0, 15, 16 and 31 (16 shares the bucket of 0,
    31 that of 15) with the last octets 0 and 255, each of another class than its neighbours."""

    ADDRESSES = {"10.0.0.0": 4, "10.0.16.0": 5, "10.1.0.0": 6, "10.0.0.255": 5, "10.0.16.255": 7,
                 "10.0.15.255": 4, "10.0.31.255": 6, "10.0.15.0": 7, "10.0.31.0": 8}

    @classmethod
    def setUpClass(cls):
        ROUTER.reset()
        shell("imq_standin_up")

    @classmethod
    def tearDownClass(cls):
        shell("imq_standin_down")

    def load(self, default):
        tariffs = ""
        for number in sorted(set(self.ADDRESSES.values())):
            own = [address for address, value in self.ADDRESSES.items() if value == number]
            tariffs += "".join([f"[t{number}]\nid={number}\n", *(f"ip={a}\n" for a in own),
                                "download_speed=4000\nupload_speed=4000\n"])
        text = "[global]\nenabled=true\ndownload_speed=50000\nupload_speed=50000\n"
        if default:
            text += "[defaultqosipqueue]\ndownload_speed=8000\nupload_speed=8000\n"
        ROUTER.reset(imq=True)
        ROUTER.load(text, tariffs)

    def exchange(self, address):
        before = counters(IMQ)
        with Connection(address) as connection:
            self.assertEqual((UP, DOWN), (connection.upload(UP), connection.answer(DOWN)))
        return added(before, counters(IMQ))

    def check_addresses(self):
        for address, number in self.ADDRESSES.items():
            with self.subTest(address=address):
                self.assertEqual({number: DOWN, 0x8000 + number: UP}, self.exchange(address))

    def test_with_default_section(self):
        self.load(default=True)
        self.check_addresses()
        self.assertEqual({2: UP + DOWN}, self.exchange("10.0.32.0"))

    def test_without_default_section(self):
        self.load(default=False)
        self.check_addresses()
        self.assertEqual({DIRECT: UP + DOWN}, self.exchange("10.0.32.0"))


class WhoTest(unittest.TestCase):
    """The class that `quenbyctl who` names for an address is the one that counts its packets."""

    PREFIXES = {"a": "2001:db8:0:1200::/56", "b": "2001:db8:0:1203::/64",
                "last": "2001:db8:0:1203::5"}
    # Each with its tariff, if it has one, and the class number.
    ADDRESSES = {"10.0.0.4": ("a", 4), "10.0.0.5": ("b", 5), "10.2.3.0": ("last", 15000),
                 STRANGER: (None, 3), "2001:db8:0:12ff::9": ("a", 4),
                 "2001:db8:0:1203::6": ("b", 5), "2001:db8:0:1203::5": ("last", 15000),
                 "2001:db8:0:1300::9": (None, 3)}

    @classmethod
    def setUpClass(cls):
        ROUTER.reset()
        shell("network_add_ipv6; network_add_subscribers 2001:db8:0:1000::/52")
        tariffs = TARIFFS
        for name, prefix in cls.PREFIXES.items():
            tariffs = tariffs.replace(f"[{name}]\n", f"[{name}]\nip6={prefix}\n")
        settings = global_text(100000, True).replace("enabled=true\n", "enabled=true\nipv6=true\n")
        ROUTER.load(settings, tariffs)

    def who(self, *addresses):
        program = pathlib.Path(ROUTER.program).with_name("quenbyctl")
        done = subprocess.run([program, "who", "--json", *addresses], stdout=subprocess.PIPE,
                              check=True)
        return json.loads(done.stdout)["addresses"]

    @staticmethod
    def named(one):
        """The device and minor number of each class."""
        return {c["direction"]: (c["device"], int(c["class"].split(":")[1], 16))
                for c in one["classes"]}

    def test_of_both_families(self):
        with contextlib.ExitStack() as stack:
            counted = {}
            for address in self.ADDRESSES:
                before = counters(WAN), counters(IFB)
                connection = stack.enter_context(Connection(address))
                self.assertEqual((UP, DOWN), (connection.upload(UP), connection.answer(DOWN)))
                counted[address] = (added(before[0], counters(WAN)), added(before[1], counters(IFB)))
            for one in self.who(*self.ADDRESSES):
                with self.subTest(one["address"]):
                    self.check(one, counted[one["address"]])

    def check(self, one, counted):
        tariff, number = self.ADDRESSES[one["address"]]
        self.assertEqual(({number: UP}, {number: DOWN}), counted)
        self.assertEqual({"upload": (WAN, number), "download": (IFB, number)}, self.named(one))
        self.assertEqual([tariff] if tariff else [], one["tariffs"])
        mark = 0x80000000 + number
        self.assertEqual((mark, mark if tariff else None, []),
                         (one["mark"], one["set_mark"], one["problems"]))
        self.assertEqual([mark], [connection["mark"] for connection in one["connections"]])
        # Of IPv4 there are those of the other tests too.
        if ":" in one["address"]:
            self.assertEqual((self.PREFIXES.get(tariff), 1),
                             (one["prefix"], one["connections"][0]["count"]))


if __name__ == "__main__":
    use_plain_sudo()
    ROUTER = Router(program_path())
    unittest.main(verbosity=2)
