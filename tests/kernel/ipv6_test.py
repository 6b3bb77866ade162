#!/usr/bin/env python3
"""IPv6 subscribers are shaped by the classes of their tariffs: packets of prefixes, nested ones too,
are counted in the right class and in no other, whatever headers they have; a change touches nobody
else; the link learns its neighbours while every class is full.

Call: scripts/lab tests/kernel/ipv6_test.py PROGRAM
"""

import pathlib
import re
import socket
import struct
import time
import unittest

import guest
from netns import entered
from packets import _receive
from router import IFB, WAN, Router, arrivals, command, program_path, shell, use_plain_sudo
from tc_dump import htb_direct_packets

ROUTER = None
UP, DOWN = 5, 3
WAN_ADDRESS, INET_ADDRESS = "2001:db8:ffff::1", "2001:db8:ffff::2"
SET = "kavo_opt_shaper6"

GLOBAL = """[global]
wan=eth1
enabled=true
ipv6=true
download_speed=100000
upload_speed=100000
[defaultqosipqueue]
download_speed=800
upload_speed=800
"""
TARIFFS = """[house]
id=4
ip=10.0.0.4
ip6=2001:db8:1::/48
download_speed=8000
upload_speed=8000
[flat]
id=5
ip6=2001:db8:1:100::/56
download_speed=8000
upload_speed=8000
[room]
id=6
ip6=2001:db8:1:102::/64
download_speed=8000
upload_speed=8000
[host]
id=7
ip6=2001:db8:1:102::7
download_speed=8000
upload_speed=8000
"""
CLASS_OF = {"2001:db8:1::5": 4, "2001:db8:1:ff00::5": 4, "2001:db8:1:101::5": 5,
            "2001:db8:1:102::6": 6, "2001:db8:1:102::7": 7, "2001:db8:2::5": 3}

IPV6 = """
sysctl -q -w net.ipv6.conf.all.disable_ipv6=0 net.ipv6.conf.all.forwarding=1 \\
  net.ipv6.conf.eth1.disable_ipv6=0 net.ipv6.conf.eth2.disable_ipv6=0
for name in inet lan; do
  ip netns exec $name sysctl -q -w net.ipv6.conf.all.disable_ipv6=0 \\
    net.ipv6.conf.default.disable_ipv6=0 net.ipv6.conf.lo.disable_ipv6=0 \\
    net.ipv6.ip_nonlocal_bind=1
done
in_inet sysctl -q -w net.ipv6.conf.inet0.disable_ipv6=0
in_lan sysctl -q -w net.ipv6.conf.lan0.disable_ipv6=0
ip address add 2001:db8:ffff::1/64 dev eth1 nodad
ip -n inet address add 2001:db8:ffff::2/64 dev inet0 nodad
ip address add 2001:db8:fffe::1/64 dev eth2 nodad
ip -n lan address add 2001:db8:fffe::2/64 dev lan0 nodad
ip -n inet route add default via 2001:db8:ffff::1
ip -n lan route add default via 2001:db8:fffe::1
for block in 2001:db8:1::/48 2001:db8:2::/48; do
  ip -n lan route add local $block dev lo
  ip route add $block via 2001:db8:fffe::2
done
# Link-local chatter would show up in the counters: it has a second to settle.
sleep 3
"""

# Options that follow the header: destination options and hop-by-hop options of nothing but padding.
PADDING = bytes([0, 0, 1, 4, 0, 0, 0, 0])
IPV6_HOPOPTS, IPV6_DSTOPTS = 54, 59
# Three fragments.
LONG = b"x" * 4000
SHORT = b"x" * 72


def bound(namespace, address, options=()):
    with entered(namespace):
        sock = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    for option in options:
        sock.setsockopt(socket.IPPROTO_IPV6, option, PADDING)
    sock.bind((address, 0))
    return sock


class Connection:
    """One UDP connection from an inner address, whose outer end sends these options."""

    def __init__(self, address, namespace="lan", options=()):
        self.inner = bound(namespace, address, options)
        self.outer = bound("inet", INET_ADDRESS, options)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.inner.close()
        self.outer.close()

    def upload(self, count, data=SHORT):
        for _ in range(count):
            self.inner.sendto(data, self.outer.getsockname())
        return _receive(self.outer, count)[0]

    def answer(self, count, data=SHORT):
        for _ in range(count):
            self.outer.sendto(data, self.inner.getsockname())
        return _receive(self.inner, count)[0]


def options_header(following, size=8):
    """An extension header with one option, of a number that whoever does not know it passes over."""
    return bytes([following, size // 8 - 1, 0x1E, size - 4]) + bytes(size - 4)


def routing_header(following, _=8):
    """One that has no hop left."""
    return bytes([following, 0, 0, 0]) + bytes(4)


HEADERS = {socket.IPPROTO_HOPOPTS: options_header, socket.IPPROTO_DSTOPTS: options_header,
           socket.IPPROTO_ROUTING: routing_header}


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF or 0xFFFF


def udp_datagram(source, target, data):
    """A datagram of an even length from one socket's name to another's."""
    length = 8 + len(data)
    ends = b"".join(socket.inet_pton(socket.AF_INET6, name[0]) for name in (source, target))
    head = struct.pack("!HHH", source[1], target[1], length)
    pseudo = ends + struct.pack("!II", length, socket.IPPROTO_UDP)
    return head + struct.pack("!H", checksum(pseudo + head + bytes(2) + data)) + data


class FragmentedConnection(Connection):
    """A connection whose ends send each packet as three fragments behind these headers, each of which
    has this many bytes where it has a choice."""

    identity = 0

    def __init__(self, address, headers, size=8):
        super().__init__(address)
        self.headers, self.size = headers, size
        self.raw = {}
        for namespace in ("lan", "inet"):
            with entered(namespace):
                self.raw[namespace] = socket.socket(socket.AF_INET6, socket.SOCK_RAW,
                                                    socket.IPPROTO_RAW)

    def __exit__(self, *_):
        super().__exit__()
        for sock in self.raw.values():
            sock.close()

    def chain(self):
        """The headers up to that of a fragment, and the number of the first."""
        following, made = socket.IPPROTO_FRAGMENT, b""
        for number in reversed(self.headers):
            made, following = HEADERS[number](following, self.size) + made, number
        return following, made

    def packets(self, source, target, data):
        first, chain = self.chain()
        datagram, part = udp_datagram(source, target, data), 1352
        type(self).identity += 1
        for offset in range(0, len(datagram), part):
            more = offset + part < len(datagram)
            payload = chain + struct.pack("!BxHI", socket.IPPROTO_UDP, offset | more,
                                          self.identity) + datagram[offset:offset + part]
            yield (struct.pack("!IHBB", 6 << 28, len(payload), first, 64)
                   + b"".join(socket.inet_pton(socket.AF_INET6, name[0])
                              for name in (source, target)) + payload)

    def send(self, namespace, source, target, data):
        for packet in self.packets(source.getsockname(), target.getsockname(), data):
            self.raw[namespace].sendto(packet, (target.getsockname()[0], 0))

    def upload(self, count, data=LONG):
        for _ in range(count):
            self.send("lan", self.inner, self.outer, data)
        return _receive(self.outer, count)[0]

    def answer(self, count, data=LONG):
        for _ in range(count):
            self.send("inet", self.outer, self.inner, data)
        return _receive(self.inner, count)[0]


def added(before, after):
    """What the leaf classes have got in between, without those that got nothing."""
    return {number: count - before.get(number, 0) for number, count in after.items()
            if number != 1 and count != before.get(number, 0)}


def counters():
    return arrivals(WAN), arrivals(IFB)


def entries():
    members = command("ipset", "list", SET).split("Members:\n")[1]
    return sorted(line.split(" skbmark ")[0] for line in members.splitlines())


def rules():
    return [line for line in command("ip6tables-save").splitlines()
            if "-A KAVO" in line or "OSTREA" in line and "-j KAVO" in line]


def filters():
    return [line for where in ((WAN,), (WAN, "parent", "ffff:"))
            for line in command("tc", "filter", "show", "dev", *where).splitlines()
            if "ipv6" in line]


class Ipv6Test(unittest.TestCase):
    def setUp(self):
        ROUTER.configure(GLOBAL, TARIFFS)
        guest.load(ROUTER.program)

    def run_program(self, *options):
        self.assertEqual((0, "", ""), tuple(ROUTER.run(*options)))

    def exchange(self, address, namespace="lan", options=(), data=SHORT):
        return self.exchange_on(Connection(address, namespace, options), data)

    def exchange_on(self, new_connection, data):
        before = counters()
        with new_connection as connection:
            self.assertEqual((UP, DOWN), (connection.upload(UP, data),
                                          connection.answer(DOWN, data)))
        return [added(one, other) for one, other in zip(before, counters())]

    def verified(self):
        program = pathlib.Path(ROUTER.program).with_name("quenbyctl")
        self.assertEqual((0, "", ""), tuple(guest.run(program, "verify")))


class Classes(Ipv6Test):
    @classmethod
    def setUpClass(cls):
        ROUTER.configure(GLOBAL, TARIFFS)
        guest.load(ROUTER.program)

    def setUp(self):
        pass

    def test_the_longest_prefix_names_the_class(self):
        for address, number in CLASS_OF.items():
            with self.subTest(address=address):
                self.assertEqual([{number: UP}, {number: DOWN}], self.exchange(address))
        with self.subTest("the router's own traffic"):
            self.assertEqual([{2: UP}, {2: DOWN}], self.exchange(WAN_ADDRESS, None))
        self.verified()

    def test_extension_headers(self):
        for options in ((IPV6_DSTOPTS,), (IPV6_HOPOPTS,), (IPV6_DSTOPTS, IPV6_HOPOPTS)):
            with self.subTest(options=options):
                self.assertEqual([{6: UP}, {6: DOWN}],
                                 self.exchange("2001:db8:1:102::6", options=options))

    def test_fragments(self):
        """The router sends three for each packet, and puts together what comes in."""
        for options in ((), (IPV6_DSTOPTS,), (IPV6_HOPOPTS,)):
            with self.subTest(options=options):
                self.assertEqual([{6: 3 * UP}, {6: DOWN}],
                                 self.exchange("2001:db8:1:102::6", options=options, data=LONG))

    def test_fragments_behind_headers(self):
        before = (socket.IPPROTO_HOPOPTS, socket.IPPROTO_ROUTING, socket.IPPROTO_DSTOPTS)
        several = ((socket.IPPROTO_HOPOPTS, socket.IPPROTO_DSTOPTS),
                   (socket.IPPROTO_HOPOPTS, socket.IPPROTO_ROUTING),
                   (socket.IPPROTO_DSTOPTS, socket.IPPROTO_ROUTING))
        for headers in ((), *((one,) for one in before), *several):
            for size in (8, 16) if headers else (8,):
                with self.subTest(headers=headers, size=size):
                    connection = FragmentedConnection("2001:db8:1:102::6", headers, size)
                    self.assertEqual([{6: 3 * UP}, {6: DOWN}],
                                     self.exchange_on(connection, LONG))


class Changes(Ipv6Test):
    def test_a_nested_tariff_comes_and_goes(self):
        with Connection("2001:db8:1:200::9") as connection:
            self.assertEqual((1, 1), (connection.upload(1), connection.answer(1)))
            before = counters()
            guest.write_file(guest.CONFIG / "new.ini", "[new]\nip6=2001:db8:1:200::/56\n"
                             "download_speed=8000\nupload_speed=8000\n")
            self.run_program("--tariff-add", str(guest.CONFIG / "new.ini"))
            self.assertEqual((UP, DOWN), (connection.upload(UP), connection.answer(DOWN)))
            self.assertEqual([{8: UP}, {8: DOWN}],
                             [added(one, other) for one, other in zip(before, counters())])
            self.verified()
            before = counters()
            self.run_program("--tariff-del", "new")
            self.assertEqual((UP, DOWN), (connection.upload(UP), connection.answer(DOWN)))
            after = counters()
            self.assertEqual([UP, DOWN], [now[4] - former[4]
                                          for former, now in zip(before, after)])
            self.assertNotIn(8, after[0])
        self.verified()

    def test_turned_off_by_hand(self):
        self.assertEqual(["2001:db8:1:100::/56", "2001:db8:1:102::/64", "2001:db8:1:102::7",
                          "2001:db8:1::/48"], entries())
        self.assertEqual((7, True), (len(rules()), bool(filters())))
        ROUTER.configure(GLOBAL.replace("ipv6=true", "ipv6=false"), TARIFFS)
        self.run_program("--reload")
        self.assertEqual(([], [], []), (entries(), rules(), filters()))
        self.assertIn("ip6=2001:db8:1:102::7", guest.TARIFF_FILE.read_text(encoding="utf-8"))
        self.verified()

    def test_a_teardown_leaves_nothing(self):
        for option in ("--stop", "--clear"):
            ROUTER.configure(GLOBAL, TARIFFS)
            guest.load(ROUTER.program)
            self.run_program(option)
            self.assertEqual(([], [], []), (entries(), rules(), filters()))

    def test_without_a_wan_name_it_is_said_once(self):
        text = GLOBAL.replace("wan=eth1\n", "")
        self.run_program("--stop")
        ROUTER.configure(text, None)
        guest.make_device("imq0", "ifb")
        result = ROUTER.run("--reload", "--load")
        command("ip", "link", "del", "imq0")
        self.assertEqual("IPv6 is not shaped: no WAN interface is named\n",
                         "".join(line + "\n" for line in result.err.splitlines()
                                 if "IPv6" in line))


class Discovery(Ipv6Test):
    def setUp(self):
        pass

    def assert_learns(self):
        """The internet host finds the router again, and the router the host: each asks once and is
        answered."""
        command("sysctl", "-q", "-w", f"net.ipv6.neigh.{WAN}.mcast_solicit=1")
        command("ip", "netns", "exec", "inet", "sysctl", "-q", "-w",
                "net.ipv6.neigh.inet0.mcast_solicit=1")
        for learner, device, neighbour in ((("-n", "inet"), "inet0", WAN_ADDRESS),
                                           ((), WAN, INET_ADDRESS)):
            command("ip", "-6", "neighbour", "flush", "dev", WAN)
            command("ip", "-n", "inet", "-6", "neighbour", "flush", "dev", "inet0")
            # What a packet for it brings about, without a packet: some directions are closed.
            command("ip", *learner, "-6", "neighbour", "replace", neighbour, "dev", device, "nud",
                    "none", "use")
            self.assertRegex(self.state_of(learner, neighbour), r" lladdr \S+ .*REACHABLE")

    @staticmethod
    def state_of(learner, neighbour):
        """What the learner knows of its neighbour when it asks no longer."""
        end, state = time.monotonic() + 20, ""
        while time.monotonic() < end and not re.search("REACHABLE|FAILED", state):
            state = command("ip", *learner, "-6", "neighbour", "show", neighbour)
        return state

    def test_while_every_class_is_full(self):
        """The guarantees fill the line, and far more than that waits, the router's own too."""
        full = GLOBAL.replace("=100000", "=400").replace("=800", "=8")
        tariffs = TARIFFS.replace("=8000", "=98")
        ROUTER.configure(full, tariffs)
        guest.load(ROUTER.program)
        ends = [Connection(WAN_ADDRESS, None), *map(Connection, CLASS_OF)]
        for connection in ends:
            connection.upload(1)
            connection.answer(1)
        direct = htb_direct_packets(WAN), htb_direct_packets(IFB)
        for connection in ends:
            for _ in range(150):
                connection.inner.sendto(b"x" * 1400, connection.outer.getsockname())
                connection.outer.sendto(b"x" * 1400, connection.inner.getsockname())
        self.assert_learns()
        self.assertGreater(htb_direct_packets(WAN), direct[0])
        self.assertGreater(htb_direct_packets(IFB), direct[1])
        for connection in ends:
            connection.__exit__()

    def test_while_a_direction_is_closed(self):
        for way in ("download", "upload"):
            with self.subTest(way=way):
                ROUTER.configure(f"[global]\nwan=eth1\nenabled=true\nipv6=true\n{way}_speed=0\n",
                                 TARIFFS)
                guest.load(ROUTER.program)
                self.assert_learns()
                with Connection("2001:db8:1::5") as connection:
                    passed = connection.upload(2), connection.answer(2)
                self.assertEqual((2, 0) if way == "download" else (0, 2), passed)
                self.verified()


if __name__ == "__main__":
    use_plain_sudo()
    ROUTER = Router(program_path())
    shell(IPV6)
    unittest.main(verbosity=2)
