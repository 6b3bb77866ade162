#!/usr/bin/env python3
"""Packets of every address, in both directions, are counted in the right class and in no other,
whatever the default section and the global speeds are.

Call: scripts/lab tests/kernel/packet_test.py PROGRAM
"""

import contextlib
import functools
import json
import pathlib
import subprocess
import unittest

from packets import WAN_ADDRESS, Connection
from router import IFB, IMQ, NET_DEVICES, WAN, Router, arrivals, program_path, shell, use_plain_sudo
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

    def check_who(self, address, upload, download):
        """`quenbyctl who` names these minor numbers, or says that packets pass unshaped."""
        one, = who(address)
        classes = {way: minor for way, (_, minor) in named(one).items()}
        said = [classes.get(way) if one[way] == "class" else None for way in ("upload", "download")]
        self.assertEqual([upload, download], said, one)

    def check_addresses(self):
        for address, number in self.ADDRESSES.items():
            with self.subTest(address=address):
                self.assertEqual({number: DOWN, 0x8000 + number: UP}, self.exchange(address))

    def test_with_default_section(self):
        self.load(default=True)
        self.check_addresses()
        self.check_who("10.0.32.0", 2, 2)
        self.assertEqual({2: UP + DOWN}, self.exchange("10.0.32.0"))

    def test_without_default_section(self):
        self.load(default=False)
        self.check_addresses()
        self.check_who("10.0.32.0", None, None)
        self.assertEqual({DIRECT: UP + DOWN}, self.exchange("10.0.32.0"))

    def test_address_of_two_tariffs(self):
        tariff = "[%s]\nid=%d\nip=10.0.0.9\ndownload_speed=4000\nupload_speed=4000\n"
        ROUTER.reset(imq=True)
        ROUTER.load("[global]\nenabled=true\ndownload_speed=50000\nupload_speed=50000\n",
                    tariff % ("a", 4) + tariff % ("b", 5))
        self.check_who("10.0.0.9", 0x8004, 4)
        self.assertEqual({4: DOWN, 0x8004: UP}, self.exchange("10.0.0.9"))


def who(*addresses):
    """What `quenbyctl who` says of each address."""
    program = pathlib.Path(ROUTER.program).with_name("quenbyctl")
    done = subprocess.run([program, "who", "--json", *addresses], stdout=subprocess.PIPE,
                          check=False)
    found = json.loads(done.stdout)["addresses"]
    assert done.returncode == int(any(one["problems"] for one in found)), done
    return found


@functools.cache
def add_ipv6():
    shell("network_add_ipv6; network_add_subscribers 2001:db8:0:1000::/52")


def named(one):
    """The device and minor number of each class that was named."""
    return {c["direction"]: (c["device"], int(c["class"].split(":")[1], 16))
            for c in one["classes"]}


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
        add_ipv6()
        tariffs = TARIFFS
        for name, prefix in cls.PREFIXES.items():
            tariffs = tariffs.replace(f"[{name}]\n", f"[{name}]\nip6={prefix}\n")
        settings = global_text(100000, True).replace("enabled=true\n", "enabled=true\nipv6=true\n")
        ROUTER.load(settings, tariffs)

    def test_of_both_families(self):
        with contextlib.ExitStack() as stack:
            counted = {}
            for address in self.ADDRESSES:
                before = counters(WAN), counters(IFB)
                connection = stack.enter_context(Connection(address))
                self.assertEqual((UP, DOWN), (connection.upload(UP), connection.answer(DOWN)))
                counted[address] = (added(before[0], counters(WAN)), added(before[1], counters(IFB)))
            for one in who(*self.ADDRESSES):
                with self.subTest(one["address"]):
                    self.check(one, counted[one["address"]])

    def check(self, one, counted):
        tariff, number = self.ADDRESSES[one["address"]]
        self.assertEqual(({number: UP}, {number: DOWN}), counted)
        self.assertEqual({"upload": (WAN, number), "download": (IFB, number)}, named(one))
        self.assertEqual([tariff] if tariff else [], one["tariffs"])
        mark = 0x80000000 + number
        self.assertEqual((mark, mark if tariff else None, []),
                         (one["mark"], one["set_mark"], one["problems"]))
        self.assertEqual([mark], [connection["mark"] for connection in one["connections"]])
        # Of IPv4 there are those of the other tests too.
        if ":" in one["address"]:
            self.assertEqual((self.PREFIXES.get(tariff), 1),
                             (one["prefix"], one["connections"][0]["count"]))


class WhoWithoutClassTest(unittest.TestCase):
    """The same of addresses that have no class of their own, in one direction or in both."""

    ADDRESS6 = "2001:db8:0:1203::6"
    HALF = "[half]\nid=6\nip=10.0.0.6\ndownload_speed=8000\n"
    NOTHING = "[nothing]\nid=7\nip=10.0.0.7\n"

    def setUp(self):
        add_ipv6()
        ROUTER.reset()

    @staticmethod
    def counted():
        return [counters(device) if (NET_DEVICES / device).exists() else {}
                for device in (WAN, IFB)]

    def exchange(self, address):
        """Packets that arrived and, of each direction, the classes that they took."""
        before = self.counted()
        with Connection(address) as connection:
            passed = connection.upload(UP), connection.answer(DOWN)
        return passed, [added(*pair) for pair in zip(before, self.counted())]

    def check(self, address, upload, download):
        """Both are class numbers or words."""
        one, = who(address)
        classes = {way: minor for way, (_, minor) in named(one).items()}
        self.assertEqual([], one["problems"])
        self.assertEqual((upload, download),
                         tuple(classes.get(way, one[way]) for way in ("upload", "download")))
        passed, counted = self.exchange(address)
        self.assertEqual((UP if upload != "dropped" else 0, DOWN if download != "dropped" else 0),
                         passed)
        for said, packets, count in zip((upload, download), (UP, DOWN), counted):
            if said == "unshaped":
                self.assertIn(count, ({}, {DIRECT: packets}))
            else:
                self.assertEqual({} if said == "dropped" else {said: packets}, count)

    def test_without_default_tariff(self):
        ROUTER.load(global_text(100000, False), TARIFFS + self.HALF + self.NOTHING)
        self.check("10.0.0.4", 4, 4)
        self.check(STRANGER, 2, 2)
        self.check("10.0.0.6", 2, 6)
        self.check("10.0.0.7", 2, 2)
        self.check(self.ADDRESS6, 2, "unshaped")

    def test_with_default_tariff(self):
        ROUTER.load(global_text(100000, True), TARIFFS + self.HALF + self.NOTHING)
        self.check(STRANGER, 3, 3)
        self.check("10.0.0.6", 2, 6)
        self.check("10.0.0.7", 2, 2)

    def test_without_line_speed(self):
        ROUTER.load(global_text(None, False), TARIFFS + self.HALF)
        self.check(STRANGER, "unshaped", "unshaped")
        self.check("10.0.0.6", "unshaped", 6)
        self.check(self.ADDRESS6, "unshaped", "unshaped")

    def test_upload_closed(self):
        ROUTER.load(global_text(100000, True).replace("upload_speed=100000", "upload_speed=0"),
                    TARIFFS)
        self.check("10.0.0.4", "dropped", 2)
        self.check(STRANGER, "dropped", 2)
        self.check(self.ADDRESS6, "dropped", "unshaped")

    def test_download_closed(self):
        ROUTER.load(global_text(100000, True).replace("download_speed=100000", "download_speed=0"),
                    TARIFFS)
        self.check("10.0.0.4", 4, "dropped")
        self.check(STRANGER, 3, "dropped")
        self.check(self.ADDRESS6, 2, "unshaped")

    def test_default_tariff_closed(self):
        ROUTER.load("[global]\nwan=eth1\nenabled=true\n[defaultqosipqueue]\ndownload_speed=0\n"
                    "upload_speed=8000\n", "[a]\nid=4\nip=10.0.0.4\nupload_speed=8000\n")
        self.check("10.0.0.4", 4, "unshaped")
        self.check(STRANGER, 3, "dropped")

    def test_switched_off(self):
        ROUTER.load(global_text(100000, True).replace("enabled=true", "enabled=false"), TARIFFS)
        self.check("10.0.0.4", "unshaped", "unshaped")


class WhoRemedyTest(unittest.TestCase):
    """What `quenbyctl who` names as that which mends its problems does."""

    # What a repair cannot mend, as somebody might do it.
    DAMAGES = {
        "a set of another type":
            ("iptables -t mangle -F KAVO_QOS_FW_OUT_HOOK; ipset destroy kavo_opt_shaper; "
             "ipset create kavo_opt_shaper hash:ip,port",
             "different: set kavo_opt_shaper: type hash:ip,port"),
        "an ingress qdisc of another kind":
            (f"tc qdisc del dev {WAN} ingress; tc qdisc add dev {WAN} clsact",
             f"different: {WAN} qdisc ffff: clsact, not ingress"),
    }

    @staticmethod
    def bash(commands):
        """Runs commands that call both programs by name."""
        program = pathlib.Path(ROUTER.program).resolve()
        names = f"quenby() {{ {program} \"$@\"; }}; quenbyctl() {{ {program}ctl \"$@\"; }}; "
        return subprocess.run(["bash", "-c", names + commands], stdout=subprocess.PIPE, text=True,
                              check=False)

    def said(self, word):
        prefix = f"  {word}: "
        lines = self.bash("quenbyctl who 10.0.0.4").stdout.splitlines()
        return [line.removeprefix(prefix) for line in lines if line.startswith(prefix)]

    def test_each(self):
        for name, (damage, problem) in self.DAMAGES.items():
            with self.subTest(name):
                ROUTER.reset()
                ROUTER.load(global_text(100000, True), TARIFFS)
                self.assertEqual([], self.said("problem"))
                self.assertEqual(0, self.bash(damage).returncode)
                self.assertIn(problem, self.said("problem"))
                self.bash("quenbyctl repair")
                self.assertIn(problem, self.said("problem"))
                for remedy in self.said("mended by"):
                    self.assertEqual(0, self.bash(remedy).returncode, remedy)
                self.assertEqual([], self.said("problem"))


if __name__ == "__main__":
    use_plain_sudo()
    ROUTER = Router(program_path())
    unittest.main(verbosity=2)
