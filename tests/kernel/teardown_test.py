#!/usr/bin/env python3
"""A teardown leaves no device that feeds a deleted one: not when the line has another name in the
file, not when somebody deleted "ifb_ingr", and not when it is repeated after a kill at any of its
requests and commands, of both families. Firewall rules play no part.

Call: scripts/lab tests/kernel/teardown_test.py PROGRAM
"""

import signal
import subprocess
import unittest

import router_state
from packets import Connection
from router import (IFB, IPV6_NOTE, WAN, Router, program_path, shell, use_idle_sudo,
                    use_legacy_iptables)

ROUTER = None
PROGRAM = program_path()
OTHER = "ppp9"
DEVICES = (WAN, OTHER, IFB)
TARIFFS = "[amy]\nid=4\nip=10.0.0.4\ndownload_speed=4000\nupload_speed=2000\n"
TARIFFS6 = (TARIFFS.replace("ip=", "ip6=2001:db8:1::/48\nip=")
            + "[zed]\nid=5\nip6=2001:db8:1::5\ndownload_speed=4000\nupload_speed=2000\n")

# Every request is one sendmsg, every shell command begins with one of the others.
REQUESTS, COMMANDS = ("sendmsg",), ("clone", "clone3", "vfork")


def settings(wan, ipv6=False):
    return (f"[global]\nwan={wan}\nenabled=true\nipv6={'true' if ipv6 else 'false'}\n"
            "download_speed=50000\nupload_speed=20000\n")


def read():
    return router_state.read_state(DEVICES)


def tc(words):
    subprocess.run(["tc", *words.split()], check=True)


class TeardownTest(unittest.TestCase):
    def setUp(self):
        ROUTER.reset()
        subprocess.run(["ip", "link", "add", OTHER, "type", "dummy"], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", OTHER], check=True)
        self.bare = read()

    def run_program(self, option):
        self.assertEqual((0, ""), ROUTER.run(option)[:2])

    def assert_state(self, wanted):
        lines = router_state.differences(wanted, read())
        self.assertFalse(lines, "\n" + "\n".join(lines))

    def assert_packets_pass(self):
        for address in ("10.0.0.4", "2001:db8:1::5"):
            with Connection(address) as connection:
                self.assertEqual((1, 1), (connection.upload(1), connection.answer(1)), address)

    def assert_bare(self):
        self.assert_state(self.bare)
        self.assertFalse(IPV6_NOTE.exists())
        self.assert_packets_pass()

    def load_and_rename(self, name=OTHER):
        """Loaded on WAN, but the file names another line since."""
        ROUTER.load(settings(WAN), TARIFFS)
        ROUTER.configure(settings(name), TARIFFS)


class OtherLine(TeardownTest):
    def test_stop(self):
        self.load_and_rename()
        self.run_program("--stop")
        self.assert_bare()

    def test_stop_when_the_new_line_is_missing(self):
        self.load_and_rename("ppp8")
        self.run_program("--stop")
        self.assert_bare()

    def test_reload(self):
        ROUTER.load(settings(OTHER), TARIFFS)
        wanted = read()
        self.run_program("--stop")
        self.load_and_rename()
        self.run_program("--reload")
        self.assert_state(wanted)
        self.assert_packets_pass()


class DeletedByHand(TeardownTest):
    def test_device(self):
        ROUTER.load(settings(WAN), TARIFFS)
        subprocess.run(["ip", "link", "del", IFB], check=True)
        with Connection("10.0.0.4") as connection:
            self.assertEqual((1, 0), (connection.upload(1), connection.answer(1)))
        self.run_program("--stop")
        self.assert_bare()

    def test_device_while_the_file_names_another_line(self):
        self.load_and_rename()
        subprocess.run(["ip", "link", "del", IFB], check=True)
        self.run_program("--stop")
        self.assert_bare()


class ForeignObjects(TeardownTest):
    """What is not of our shape stays, and the ingress qdisc with it."""

    def assert_kept(self, kept):
        self.assertTrue(kept)
        self.assert_state([*self.bare, *kept])
        self.assert_packets_pass()

    def test_filters_beside_ours(self):
        self.load_and_rename()
        before = set(read())
        tc(f"filter add dev {WAN} parent ffff: protocol ip pref 1 u32 match ip src 192.0.2.1/32 "
           "action drop")
        tc(f"filter add dev {WAN} parent ffff: protocol ip pref 5 u32 match u32 0 0 action mirred "
           "egress mirror dev eth2")
        added = set(read()) - before
        self.assertEqual(2, len(added))
        self.run_program("--stop")
        self.assert_kept([*added, f"{WAN} qdisc ffff: parent ffff:fff1 ingress"])

    def check_other(self, qdisc, place, target):
        """A device that is none of ours, with a redirection from its incoming packets."""
        ROUTER.load(settings(WAN), TARIFFS)
        tc(f"qdisc add dev {OTHER} {qdisc}")
        tc(f"filter add dev {OTHER} {place} protocol ip pref 1 u32 match u32 0 0 "
           f"action mirred egress redirect dev {target}")
        tc(f"qdisc add dev {OTHER} root handle 8000: htb")
        kept = {line for line in read() if line.startswith(OTHER)}
        self.run_program("--stop")
        self.assert_kept(kept)

    def test_ingress_qdisc_of_somebody_else(self):
        self.check_other("ingress", "parent ffff:", WAN)

    def test_clsact(self):
        self.check_other("clsact", "ingress", IFB)


class Killed(TeardownTest):
    def killed_stop(self, calls, when):
        """Whether the run was killed; otherwise it came to its end."""
        status = subprocess.run(
            ["strace", "-qq", "-o", "/dev/null", "-e", f"trace={','.join(calls)}", "-e",
             f"inject={','.join(calls)}:signal=KILL:when={when}", PROGRAM, "--stop"],
            check=False, stderr=subprocess.DEVNULL).returncode
        self.assertIn(status, (0, -signal.SIGKILL, 128 + signal.SIGKILL))
        return status != 0

    def check(self, prepare, calls, at_least):
        when = 1
        prepare()
        while self.killed_stop(calls, when):
            with self.subTest(killed_at=when):
                self.run_program("--stop")
                self.assert_bare()
            when += 1
            prepare()
        self.assert_bare()
        self.assertGreater(when, at_least)

    def load(self):
        ROUTER.load(settings(WAN), TARIFFS)

    def load_with_ipv6(self):
        ROUTER.load(settings(WAN, True), TARIFFS6)

    def load_with_ipv6_and_turn_off(self):
        self.load_with_ipv6()
        ROUTER.configure(settings(OTHER), TARIFFS)

    # Of the requests, one each lists the links, empties the set, asks for the filters of a link,
    # and deletes WAN's root and ingress qdisc and "ifb_ingr".

    def test_at_each_request(self):
        self.check(self.load, REQUESTS, 8)

    def test_at_each_request_while_the_file_names_another_line(self):
        self.check(self.load_and_rename, REQUESTS, 8)

    def test_at_each_command(self):
        self.check(self.load, COMMANDS, 1)

    # One more empties the set of IPv6.

    def test_at_each_request_with_ipv6(self):
        self.check(self.load_with_ipv6, REQUESTS, 9)

    def test_at_each_request_when_ipv6_is_off_since(self):
        self.check(self.load_with_ipv6_and_turn_off, REQUESTS, 9)

    def test_at_each_command_with_ipv6(self):
        self.check(self.load_with_ipv6, COMMANDS, 2)


if __name__ == "__main__":
    use_idle_sudo()
    use_legacy_iptables()
    ROUTER = Router(PROGRAM, ipv6=True)
    shell("network_add_ipv6; network_add_subscribers 2001:db8:1::/48")
    unittest.main(verbosity=2)
