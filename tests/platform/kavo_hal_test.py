"""The hardware tool's answers, to the byte, and what the program makes of them.

Call: unshare --map-root-user --mount python3 tests/platform/kavo_hal_test.py ANSWERS [TEST...]
      ANSWERS is the program hardware_answers.
"""

import pathlib
import subprocess
import sys
import unittest

import stand_in as s

GIGABIT = 125_000_000
BYTES_PER_MBIT = 125_000
MODES = ("10baseT/Half 10baseT/Full", "100baseT/Half 100baseT/Full", "1000baseT/Full",
         "2500baseT/Full")

answers = None


def call(*words):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return done.returncode, done.stdout, done.stderr


class ToolTest(unittest.TestCase):
    def setUp(self):
        s.clear()

    def has(self, port, mbit):
        """Both answers for the port, and the program's rate; None stands for an unknown speed."""
        known = b"0" if mbit is None else b"1"
        lines = b"Speed: 1000Mb/s\nKnown: no\n" if mbit is None else b"Speed: %dMb/s\n" % mbit
        rate = GIGABIT if mbit is None else mbit * BYTES_PER_MBIT
        with self.subTest(port):
            self.assertEqual(call(s.TOOL, "isSfpPlus", port), (0, known, b""))
            self.assertEqual(call(s.TOOL, "getEthPhysical", port), (0, lines, b""))
            self.assertEqual(call(answers, "speed", port), (0, b"%d\n" % rate, b""))


class Card(ToolTest):
    def test_speed(self):
        for speed in (10, 100, 1000, 2500, 5000, 10000, 25000, 40000, 400000):
            s.card("p%d" % speed, speed)
            self.has("p%d" % speed, speed)
        self.assertEqual(s.ethtool_calls(), [])

    def test_no_speed(self):
        for number, text in enumerate((None, -1, 0, "", 65535, 4294967295, "fast", "1e3", "0x64",
                                       "2500Mb/s", "2500 2500", "010", 99999999)):
            s.card("p%d" % number, text)
            self.has("p%d" % number, None)

    def test_speed_from_ethtool(self):
        for number, text in enumerate((None, -1, 65535)):
            s.card("p%d" % number, text)
            s.ethtool("p%d" % number, "2500Mb/s", MODES, MODES)
            self.has("p%d" % number, 2500)

    def test_no_speed_from_ethtool(self):
        for number, text in enumerate(("Unknown!", "Unknown! (65535)", "65535Mb/s", "0Mb/s", "",
                                       "fast", "-1Mb/s", "2500")):
            s.card("p%d" % number)
            s.ethtool("p%d" % number, text)
            self.has("p%d" % number, None)

    def test_without_ethtool(self):
        (s.PROGRAMS / "ethtool").unlink()
        s.card("eth0", 2500)
        s.card("eth1", -1)
        s.card("eth2", None, carrier=None)
        self.has("eth0", 2500)
        self.has("eth1", None)
        self.has("eth2", None)

    def test_switch_port_on_a_faster_card(self):
        s.card("eth0", 2500)
        s.card("wan", 100, lower=["eth0"])
        self.has("wan", 100)


class WithoutCable(ToolTest):
    def unplugged(self, name, sysfs=-1, carrier=0, **report):
        s.card(name, sysfs, carrier)
        s.ethtool(name, **report)

    def test_highest_mode(self):
        self.unplugged("eth0", supported=MODES)
        self.unplugged("eth1", supported=("1000baseKX/Full", "25000baseCR/Full 10000baseSR/Full"))
        self.has("eth0", 2500)
        self.has("eth1", 25000)

    def test_what_the_port_may_offer_counts(self):
        self.unplugged("eth0", supported=MODES, advertised=MODES[:3])
        self.has("eth0", 1000)

    def test_port_that_is_down(self):
        self.unplugged("eth0", None, None, supported=MODES)
        self.has("eth0", 2500)

    def test_last_speed_does_not_count(self):
        self.unplugged("eth0", 10, speed="10Mb/s", supported=MODES)
        self.has("eth0", 2500)

    def test_last_speed_without_modes(self):
        self.unplugged("eth0", 100)
        self.unplugged("eth1", speed="2500Mb/s")
        self.has("eth0", 100)
        self.has("eth1", 2500)

    def test_nothing_known(self):
        self.unplugged("eth0")
        s.card("eth1", None, None)
        self.has("eth0", None)
        self.has("eth1", None)


class Stacked(ToolTest):
    def test_vlan_and_macvlan(self):
        s.card("eth0", 2500)
        s.device("eth0.7", 2500, lower=["eth0"])
        s.device("eth0.7.9", -1, lower=["eth0.7"])
        s.device("macvlan0", None, None, lower=["eth0.7.9"])
        for port in ("eth0.7", "eth0.7.9", "macvlan0"):
            self.has(port, 2500)

    def test_the_speed_is_that_below(self):
        s.bridge("br0", "eth0", "veth0")
        s.card("eth0", 1000)
        s.device("veth0", 10000)
        s.device("br0.7", 10000, lower=["br0"])
        self.has("br0.7", 1000)

    def test_without_a_cable_and_without_a_speed(self):
        s.card("eth0", -1, 0)
        s.ethtool("eth0", supported=MODES)
        s.device("eth0.7", -1, 0, lower=["eth0"])
        s.card("eth1", -1)
        s.device("eth1.7", -1, lower=["eth1"])
        self.has("eth0.7", 2500)
        self.has("eth1.7", None)

    def test_several_devices_below_speak_for_themselves(self):
        s.card("eth0", 1000)
        s.card("eth1", 1000)
        s.device("team0", 2000, lower=["eth0", "eth1"])
        self.has("team0", 2000)

    def test_loops_end(self):
        s.device("eth0", 2500, lower=["eth0"])
        s.device("a", 2500, lower=["b"])
        s.device("b", 2500, lower=["a"])
        self.has("eth0", None)
        self.has("a", None)

    def test_loops_among_many_end(self):
        names = ["br%d" % number for number in range(4)]
        for name in names:
            s.bridge(name, *names)
        self.has("br0", None)
        s.card("eth0", 2500)
        (s.NET / "br3/lower_eth0").symlink_to("../eth0")
        self.has("br0", 2500)

    def test_device_below_that_is_gone(self):
        s.device("eth0.7", 2500, lower=["eth0"])
        self.has("eth0.7", 2500)


class Bond(ToolTest):
    MODES = ("balance-rr 0", "balance-xor 2", "802.3ad 4", "balance-tlb 5", "balance-alb 6")

    def test_sum_of_what_is_up(self):
        for number, mode in enumerate(self.MODES):
            names = ["%d-%d" % (number, port) for port in range(4)]
            s.card(names[0], 2500, member="active")
            s.card(names[1], 1000, member="active")
            s.card(names[2], 1000, member="backup")
            s.card(names[3], 1000, carrier=0, member="active")
            s.bond("bond%d" % number, mode, *names)
            self.has("bond%d" % number, 3500)

    def test_active_backup(self):
        s.card("eth0", 10000, member="backup")
        s.card("eth1", 1000, member="active")
        s.bond("bond0", "active-backup 1", "eth0", "eth1")
        self.has("bond0", 1000)

    def test_broadcast(self):
        s.card("eth0", 10000, member="active")
        s.card("eth1", 1000, member="active")
        s.bond("bond0", "broadcast 3", "eth0", "eth1")
        self.has("bond0", 1000)

    def test_monitor_takes_a_member_out(self):
        s.card("eth0", 10000, member="active")
        s.card("eth1", 1000, member="active")
        s.write(s.NET / "eth0/bonding_slave/mii_status", "going back\n")
        s.bond("bond0", "balance-rr 0", "eth0", "eth1")
        self.has("bond0", 1000)

    def test_without_a_monitor_the_cable_decides(self):
        s.card("eth0", -1, 0, member="active")
        s.ethtool("eth0", supported=MODES)
        s.write(s.NET / "eth0/bonding_slave/mii_status", "up\n")
        s.card("eth1", 1000, member="active")
        s.bond("bond0", "balance-rr 0", "eth0", "eth1")
        self.has("bond0", 1000)

    def test_all_cables_out(self):
        for mode, name, mbit in (("802.3ad 4", "a", 3500), ("active-backup 1", "b", 2500),
                                 ("broadcast 3", "c", 1000)):
            members = [name + "0", name + "1"]
            for member, offered in zip(members, (MODES, MODES[:3])):
                s.card(member, -1, 0, member="backup")
                s.ethtool(member, supported=offered)
            s.bond(name, mode, *members)
            self.has(name, mbit)

    def test_no_members_or_no_speeds(self):
        s.bond("bond0", "balance-rr 0")
        s.card("eth0", -1, member="active")
        s.bond("bond1", "balance-rr 0", "eth0")
        self.has("bond0", None)
        self.has("bond1", None)

    def test_vlan_on_it(self):
        s.card("eth0", 10000, member="active")
        s.card("eth1", 10000, member="active")
        s.bond("bond0", "802.3ad 4", "eth0", "eth1")
        s.device("bond0.7", 20000, lower=["bond0"])
        self.has("bond0.7", 20000)


class Bridge(ToolTest):
    def test_fastest_that_is_up(self):
        s.card("eth0", 100)
        s.card("eth1", 2500)
        s.card("eth2", 10000, carrier=0)
        s.bridge("br0", "eth0", "eth1", "eth2")
        self.has("br0", 2500)

    def test_made_up_speeds_of_guests_do_not_count(self):
        s.device("veth0", 10000)
        s.card("eth0", 2500)
        s.bridge("br0", "veth0", "eth0")
        s.card("eth1", -1, 0)
        s.ethtool("eth1", supported=MODES)
        s.bridge("br1", "veth0", "eth1")
        s.bridge("br2", "veth0")
        self.has("br0", 2500)
        self.has("br1", 2500)
        self.has("br2", 10000)

    def test_bond_and_vlan_on_it(self):
        s.card("eth0", 2500, member="active")
        s.card("eth1", 2500, member="active")
        s.bond("bond0", "802.3ad 4", "eth0", "eth1")
        s.card("eth2", 1000)
        s.device("eth2.7", 1000, lower=["eth2"])
        s.bridge("br0", "bond0", "eth2.7")
        self.has("br0", 5000)

    def test_no_members_or_no_speeds(self):
        s.bridge("br0")
        s.card("eth0", -1)
        s.bridge("br1", "eth0")
        self.has("br0", None)
        self.has("br1", None)


class Ppp(ToolTest):
    def setUp(self):
        super().setUp()
        s.card("eth0", 1000)
        s.card("eth1", 2500)
        s.device("eth1.7", 2500, lower=["eth1"])
        s.card("eth2", 2500)

    def test_one_session(self):
        for number, name in enumerate(("eth1", "eth1.7")):
            s.sessions(name)
            s.ppp("ppp%d" % number)
            self.has("ppp%d" % number, 2500)

    def test_several_sessions_of_equal_speed(self):
        s.sessions("eth1", "eth1.7", "eth2")
        s.ppp("ppp0")
        self.has("ppp0", 2500)

    def test_command_line_decides(self):
        s.sessions("eth0", "eth1.7")
        s.ppp("ppp0", "/usr/sbin/pppd", "plugin", "rp-pppoe.so", "eth1.7", "unit", "0")
        s.ppp("ppp1", "/usr/sbin/pppd", "plugin", "rp-pppoe.so", "nic-eth0", "unit", "1")
        self.has("ppp1", 1000)
        s.write(s.PROC / "4242/cmdline", "pppd\0nic-eth1.7\0")
        self.has("ppp0", 2500)

    def test_undecided_sessions(self):
        s.sessions("eth0", "eth1.7")
        s.ppp("ppp0")
        self.has("ppp0", None)
        s.ppp("ppp1", "pppd", "call", "provider")
        self.has("ppp1", None)
        s.ppp("ppp2", "cat", "eth1.7", program="cat")
        self.has("ppp2", None)
        s.write(s.PROC / "4242/comm", "pppd\n")
        self.has("ppp2", 2500)
        for pid in ("4242/.", "4243", "", "-1"):
            s.write(s.RUN / "ppp2.pid", pid + "\n")
            self.has("ppp2", None)

    def test_program_of_its_own(self):
        s.ppp("ppp0", "pppd", "user", "eth0", "pty", "pppoe -p /run/x -I eth1.7 -T 80 -m 1412")
        self.has("ppp0", 2500)
        s.sessions()
        self.has("ppp0", 2500)

    def test_no_carrier_known(self):
        s.ppp("ppp0")
        self.has("ppp0", None)
        for number, command in enumerate((("pppd", "/dev/ttyUSB0", "115200"), ("pppd", "-I"),
                                          ("pppd", "-I", "eth9"), ("pppd", "-I", "../eth1"),
                                          ("pppd", "-I", "ppp5")), 1):
            s.ppp("ppp%d" % number, *command)
            self.has("ppp%d" % number, None)

    def test_session_on_itself_ends(self):
        s.sessions("ppp0")
        s.ppp("ppp0")
        self.has("ppp0", None)


class Virtual(ToolTest):
    def test_what_sysfs_says(self):
        s.device("veth0", 10000)
        s.device("dummy0")
        s.device("lo", kind=772)
        s.device("wg0", kind=65534)
        self.has("veth0", 10000)
        self.has("dummy0", None)
        self.has("lo", None)
        self.has("wg0", None)

    def test_tun_of_an_old_kernel(self):
        tun = (("tun_flags", "0x1001"),)
        s.device("tun0", 10, files=tun)
        s.device("tun1", files=tun)
        s.ethtool("tun1", "10Mb/s")
        s.device("tun2", 100, files=tun)
        s.device("tun3", 10000, files=tun)
        self.has("tun0", None)
        self.has("tun1", None)
        self.has("tun2", 100)
        self.has("tun3", 10000)


class OddNames(ToolTest):
    """Each would have a speed for a tool that takes the name as a part of a path or a command."""

    NAMES = ("", ".", "..", "sub/eth0", "eth0/", "/eth0", "../net/eth0", "/sys/class/net/eth0",
             "-a", "--help", "a b", " eth0", "eth0 ", "a\tb", "eth0\n", "eth0\neth0", "*", "eth?",
             "$(id)", "`id`", ";id", "eth0;id", "'", "\\", "eth9", "x" * 300)

    def setUp(self):
        super().setUp()
        s.card("eth0", 2500)
        s.write(s.NET / "sub/eth0/speed", "2500\n")
        s.write(s.NET / "speed", "2500\n")
        s.write(s.NET / "carrier", "1\n")
        for name in ("-a", "--help", "a b", " eth0", "eth0 ", "a\tb", "eth0\n"):
            s.card(name, 2500)
            s.ethtool(name, "2500Mb/s")

    def test_are_unknown_ports(self):
        for name in self.NAMES:
            self.has(name, None)
        self.assertEqual(s.ethtool_calls(), [])

    def test_no_name(self):
        self.assertEqual(call(s.TOOL, "isSfpPlus"), (0, b"0", b""))
        self.assertEqual(call(s.TOOL, "getEthPhysical"),
                         (0, b"Speed: 1000Mb/s\nKnown: no\n", b""))

    def test_ordinary_ones_that_look_odd(self):
        for name in ("Speed", "Known:", "0", "*", "eth0@x", "[a-z]*", "$(id)", "\\"):
            s.card(name, 2500)
            s.device("v." + name, lower=[name])
            self.has(name, 2500)
            self.has("v." + name, 2500)


class Calls(ToolTest):
    def test_board(self):
        self.assertEqual(call(s.TOOL, "getBoardShortName"), (0, b"Linux", b""))
        self.assertEqual(call(answers, "steering"), (0, b"\n", b""))

    def test_others(self):
        usage = b"Usage: kavo-hal isSfpPlus|getEthPhysical PORT, or getBoardShortName\n"
        for words in ((), ("",), ("isSfpPlus", "eth0", "eth1"), ("getEthPhysical", "a", "b"),
                      ("getBoardShortName", "eth0"), ("issfpplus", "eth0"), ("--help",),
                      ("1:isSfpPlus",), ("eth0", "isSfpPlus"), ("*",)):
            with self.subTest(words):
                self.assertEqual(call(s.TOOL, *words), (2, b"", usage))

    def test_environment_changes_nothing(self):
        s.card("eth0", 2500)
        environment = {"PATH": "/nowhere", "NET": "/run", "IFS": "e1", "LC_ALL": "de_DE.UTF-8",
                       "figure": "7", "CDPATH": "/run"}
        s.bridge("br0", "eth0")
        done = subprocess.run([s.TOOL, "getEthPhysical", "br0"], env=environment,
                              stdout=subprocess.PIPE)
        self.assertEqual(done.stdout, b"Speed: 2500Mb/s\n")

    def test_other_shells(self):
        s.card("eth0", -1, 0, member="backup")
        s.ethtool("eth0", supported=MODES)
        s.card("eth1", 1000, member="active")
        s.bond("bond0", "802.3ad 4", "eth0", "eth1")
        s.sessions("bond0")
        s.ppp("ppp0", "pppd", "nic-bond0")
        for shell in (["dash"], ["bash", "--posix"], ["bash"], ["busybox", "sh"]):
            with self.subTest(shell):
                self.assertEqual(call(*shell, s.TOOL, "isSfpPlus", "ppp0"), (0, b"1", b""))
                self.assertEqual(call(*shell, s.TOOL, "getEthPhysical", "ppp0"),
                                 (0, b"Speed: 1000Mb/s\n", b""))
                self.assertEqual(call(*shell, s.TOOL, "getEthPhysical", "eth0"),
                                 (0, b"Speed: 2500Mb/s\n", b""))


if __name__ == "__main__":
    answers = sys.argv.pop(1)
    s.cover(pathlib.Path(__file__).resolve().parents[2] / "platform/kavo-hal")
    unittest.main()
