#!/usr/bin/env python3
"""Open connections follow their subscriber: after every command that changes whose class an address
has, long downloads, uploads and UDP streams are in the right class within a second, and no other
class counts their packets. So they do after a repair that finds other addresses and numbers in the
stored file.

Call: scripts/lab tests/kernel/connections_test.py PROGRAM
"""

import collections
import contextlib
import ipaddress
import pathlib
import re
import subprocess
import sys
import threading
import time
import unittest

from packets import INET_ADDRESS, INET_ADDRESS6, Connection
from router import (IFB, TREE, WAN, Router, arrivals, program_path, shell, use_legacy_iptables,
                    use_plain_sudo)

sys.path.insert(0, str(TREE / "lab/demo"))
from traffic import Flow  # pylint: disable=wrong-import-position

ROUTER = None
GIVEN = pathlib.Path("/run/given.ini")
CONNECTIONS = pathlib.Path("/proc/net/nf_conntrack")
GLOBAL = ("[global]\nwan=eth1\nenabled=true\ndownload_speed=100000\nupload_speed=100000\n"
          "[defaultqosipqueue]\ndownload_speed=2000\nupload_speed=2000\n")
ADDRESSES = {"amy": "10.0.0.4", "bob": "10.0.0.5", "cat": "10.0.0.6", "dan": "10.0.0.7",
             "eve": "10.0.0.8"}
NUMBERS = {"idle": 4, "amy": 5, "bob": 6, "cat": 7, "dan": 8, "eve": 9}
STRANGERS = 3
MASK, FLAG = 0x80003FFF, 0x80000000
# A mark of somebody else, which stays on the connections.
FOREIGN = 0x00040000
FOREIGN_RULES = f"*mangle\n-I PREROUTING -j CONNMARK --set-xmark {FOREIGN}/{FOREIGN}\nCOMMIT\n"

SETTLE, WATCH = 1.0, 1.5


def section(name, *addresses, number=None):
    lines = [f"[{name}]", *([f"id={number}"] if number else []),
             *(f"{'ip6' if ':' in address else 'ip'}={address}" for address in addresses),
             "download_speed=2000", "upload_speed=2000", "queuing_discipline=pfifo", ""]
    return "\n".join(lines)


def tariffs():
    return section("idle", "10.0.0.100", number=NUMBERS["idle"]) + "".join(
        section(name, address, number=NUMBERS[name]) for name, address in ADDRESSES.items())


class Stream:
    """A UDP connection with packets in both directions all the time. With `outside` it begins with
    one from the internet."""

    def __init__(self, address, outside=False):
        self._connection = Connection(address)
        if outside:
            self._connection.answer(1)

    def push(self):
        self._connection.upload(1)
        self._connection.answer(1)

    def pull(self):
        pass

    def close(self):
        self._connection.close()


class Traffic:
    """Everybody's connections, moved by a thread."""

    def __init__(self):
        self._flows = [Flow(ADDRESSES["amy"], "download"), Flow(ADDRESSES["bob"], "upload"),
                       Flow(ADDRESSES["cat"], "download"), Flow(ADDRESSES["dan"], "upload"),
                       Stream(ADDRESSES["eve"]), Stream(ADDRESSES["eve"], outside=True)]
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        while not self._stop.wait(0.05):
            for flow in self._flows:
                flow.push()
                flow.pull()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._stop.set()
        self._thread.join()
        for flow in self._flows:
            flow.close()


def marks():
    """{subscriber's address: the marks of its connections with the internet host}."""
    found = {}
    for line in CONNECTIONS.read_text().splitlines():
        ends = [str(ipaddress.ip_address(end)) for end in re.findall(r"(?:src|dst)=(\S+)", line)[:2]]
        mark = re.search(r" mark=(\d+)", line)
        inner = [end for end in ends if end not in (INET_ADDRESS, INET_ADDRESS6)]
        if mark and len(inner) == 1:
            found.setdefault(inner[0], set()).add(int(mark[1]))
    return found


def moving(device):
    """The tariff classes that get packets now."""
    before = arrivals(device)
    time.sleep(WATCH)
    after = arrivals(device)
    return {number for number, count in after.items()
            if number > 2 and count != before.get(number, 0)}


class Connections(unittest.TestCase):
    def setUp(self):
        ROUTER.reset()
        subprocess.run(["iptables-restore", "--noflush"], input=FOREIGN_RULES, text=True,
                       check=True)
        ROUTER.load(GLOBAL, tariffs())

    def run_program(self, *options, file=None):
        if file is not None:
            GIVEN.write_text(file, encoding="ascii")
            options = (*options, str(GIVEN))
        self.assertEqual((0, "", ""), ROUTER.run(*options))

    def check(self, changes):
        """Each subscriber's connections are where NUMBERS and `changes` say."""
        numbers = {name: {**NUMBERS, **changes}[name] for name in ADDRESSES}
        time.sleep(SETTLE)
        for device in (WAN, IFB):
            self.assertEqual(set(numbers.values()), moving(device), device)
        wanted = {ADDRESSES[name]: {FLAG | FOREIGN | number} for name, number in numbers.items()}
        self.assertEqual(wanted, {address: found for address, found in marks().items()
                                  if address in wanted})

    def test_a_day_of_changes(self):
        with Traffic():
            self.check({})
            with self.subTest("a deleted tariff's connections go to the default tariff"):
                self.run_program("--tariff-del", "eve")
                self.check({"eve": STRANGERS})
            with self.subTest("and stay there when its number is given to another"):
                self.run_program("--tariff-add", file=section("fay", "10.0.0.101"))
                self.assertIn("[fay]\nid=9\n", pathlib.Path("/config/tc/tc_tariff.ini").read_text())
                self.check({"eve": STRANGERS})
            with self.subTest("an address that moves takes its connections along"):
                self.run_program("--tariff-update", file=section("amy") +
                                 section("fay", "10.0.0.101", ADDRESSES["amy"]))
                self.check({"eve": STRANGERS, "amy": 9})
            with self.subTest("a new tariff takes over its address's open connections"):
                self.run_program("--tariff-add", file=section("eve", ADDRESSES["eve"]))
                self.check({"eve": 10, "amy": 9})
            with self.subTest("of two tariffs with an address the last one has its connections"):
                self.run_program("--tariff-add", file=section("gil", ADDRESSES["cat"]))
                self.check({"eve": 10, "amy": 9, "cat": 11})
                self.run_program("--tariff-del", "gil")
                self.check({"eve": 10, "amy": 9})
            with self.subTest("new numbers for all"):
                # In the order of names: amy, bob, cat, dan, eve, fay, idle.
                self.run_program("--reload")
                self.check({"amy": 9, "bob": 5, "cat": 6, "dan": 7, "eve": 8})
            with self.subTest("no tariff is left"):
                self.run_program("--tariffs-del")
                self.check(dict.fromkeys(ADDRESSES, STRANGERS))

    def test_connections_that_begin_during_a_change(self):
        """The program is slowed down, so that many begin while the address is not in the set."""
        GIVEN.write_text(section("amy", ADDRESSES["amy"]).replace("2000", "3000"), encoding="ascii")
        slow = subprocess.Popen(
            ["strace", "-qq", "-o", "/dev/null", "-e", "trace=sendmsg",
             "-e", "inject=sendmsg:delay_exit=100000", ROUTER.program, "--tariff-update",
             str(GIVEN)])
        begun, strangers = 0, 0
        while slow.poll() is None:
            with Connection(ADDRESSES["amy"]) as connection:
                connection.upload(1)
            begun += 1
            strangers += FLAG | FOREIGN | STRANGERS in marks().get(ADDRESSES["amy"], set())
        self.assertEqual(0, slow.returncode)
        self.assertGreater(strangers, 0, f"none of {begun} met the change")
        self.assertEqual({FLAG | FOREIGN | NUMBERS["amy"]}, marks()[ADDRESSES["amy"]])


# The numbers and addresses of tariffs, before an edit by hand and after it: amy and cat change their
# numbers, what bob has becomes cat's and what nobody has bob's, dan goes, and what was eve's lies in
# a prefix of amy's.
BEFORE = {"amy": (4, "10.0.0.4", "2001:db8:1::/48"), "bob": (5, "10.0.0.5", "2001:db8:1:5::/64"),
          "cat": (6, "10.0.0.6", "2001:db8:2::7"), "dan": (7, "10.0.0.7", "2001:db8:3::/48"),
          "eve": (8, "10.0.0.8", "2001:db8:1:8::/61")}
AFTER = {"amy": (6, "10.0.0.4", "2001:db8:1::/48"), "bob": (5, "10.0.0.9", "2001:db8:9::9"),
         "cat": (4, "10.0.0.6", "2001:db8:2::7", "10.0.0.5", "2001:db8:1:5::/64"),
         "eve": (8, "10.0.0.8")}
# Whose class an address has before and after.
MOVES = {"10.0.0.4": (4, 6), "10.0.0.5": (5, 4), "10.0.0.6": (6, 4), "10.0.0.7": (7, STRANGERS),
         "10.0.0.8": (8, 8), "10.0.0.9": (STRANGERS, 5), "2001:db8:1::4": (4, 6),
         "2001:db8:1:5::5": (5, 4), "2001:db8:2::7": (6, 4), "2001:db8:3::7": (7, STRANGERS),
         "2001:db8:1:8::8": (8, 6), "2001:db8:9::9": (STRANGERS, 5)}


class EditedByHand(unittest.TestCase):
    """The stored tariffs were edited by hand while connections of both families were open."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        shell("network_add_ipv6; network_add_subscribers 2001:db8::/44")

    @staticmethod
    def write(tariffs_of):
        ROUTER.configure(GLOBAL.replace("enabled=true\n", "enabled=true\nipv6=true\n"), "".join(
            section(name, *addresses, number=number)
            for name, (number, *addresses) in tariffs_of.items()))

    def setUp(self):
        ROUTER.reset()
        # What stays of this would build IPv6 rules for the tests without.
        self.addCleanup(ROUTER.run, "--stop")
        self.write(BEFORE)
        self.assertEqual((0, "", ""), ROUTER.run("--load"))
        for program in ("iptables", "ip6tables"):
            subprocess.run([f"{program}-restore", "--noflush"], input=FOREIGN_RULES, text=True,
                           check=True)
        self.addCleanup(subprocess.run, ["ip6tables", "-t", "mangle", "-D", "PREROUTING", "1"],
                        check=True)
        self.connections = []
        closing = self.enterContext(contextlib.ExitStack())
        for address in MOVES:
            for outside in (False, True):
                connection = closing.enter_context(Connection(address))
                self.assertEqual(1, connection.answer(1) if outside else connection.upload(1))
                self.connections.append((address, connection))
        # Those that began outside have their mark since the first packet to the internet.
        self.exchange()
        self.assert_marks({address: before for address, (before, _) in MOVES.items()})

    def exchange(self):
        for address, connection in self.connections:
            self.assertEqual((1, 1), (connection.upload(1), connection.answer(1)), address)

    def assert_marks(self, numbers):
        wanted = {address: {FLAG | FOREIGN | number} for address, number in numbers.items()}
        self.assertEqual(wanted, {address: found for address, found in marks().items()
                                  if address in wanted})

    def assert_classes(self, numbers):
        """Each connection's next packets are counted in these classes."""
        wanted = collections.Counter(numbers[address] for address, _ in self.connections)
        before = arrivals(WAN), arrivals(IFB)
        self.exchange()
        for former, now in zip(before, (arrivals(WAN), arrivals(IFB))):
            self.assertEqual(wanted, {number: count - former[number]
                                      for number, count in now.items()
                                      if number >= STRANGERS and count != former[number]})

    def control(self, *words):
        program = pathlib.Path(ROUTER.program).with_name("quenbyctl")
        done = subprocess.run([program, *words], capture_output=True, text=True, check=False)
        self.assertEqual((0, ""), (done.returncode, done.stderr), done.stdout)
        return done.stdout

    def repair(self, *options):
        self.write(AFTER)
        self.assertIn("mended ", self.control("repair", *options))
        self.assertEqual("", self.control("verify"))

    def test_repair(self):
        self.repair()
        numbers = {address: after for address, (_, after) in MOVES.items()}
        self.assert_marks(numbers)
        self.assert_classes(numbers)

    def test_repair_that_leaves_connections_alone(self):
        self.repair("--no-connections")
        self.assert_marks({address: before for address, (before, _) in MOVES.items()})

    def test_repair_where_only_connections_are_wrong(self):
        self.repair("--no-connections")
        self.assertEqual("", self.control("repair"))
        self.assert_marks({address: after for address, (_, after) in MOVES.items()})


class Kernel(unittest.TestCase):
    def test_without_connection_tracking_over_netlink(self):
        """The module cannot be loaded: no command fails for that."""
        ROUTER.reset()
        pathlib.Path("/etc/modprobe.d/quenby-test.conf").write_text(
            "install nf_conntrack_netlink /bin/false\n")
        subprocess.run(["modprobe", "-r", "nf_conntrack_netlink"], check=True)
        ROUTER.load(GLOBAL, tariffs())
        self.assertEqual((0, "", ""), ROUTER.run("--tariff-del", "eve"))
        self.assertNotIn("nf_conntrack_netlink", pathlib.Path("/proc/modules").read_text())


if __name__ == "__main__":
    use_plain_sudo()
    use_legacy_iptables()
    ROUTER = Router(program_path())
    unittest.main(verbosity=2)
