#!/usr/bin/env python3
"""Whatever happened to a router, "quenby --stop" and then "quenby --load" bring it to what a load of
the stored files makes of a bare one; where the firewall was damaged, its rules included, of both
families. Whatever else builds something after a stop, the next stop removes it.

Call: scripts/lab tests/kernel/recovery_test.py PROGRAM
"""

import os
import pathlib
import subprocess
import unittest

import guest
import router_state
from faults import DEVICES, DOWN, FAULTS, LINE, MODES, SET6, UP, tariff
from router import (CONFIG, GLOBAL_FILE, IFB, IMQ, IPV6_NOTE, TARIFF_FILE, Router, make_device,
                    program_path, renew_devices, use_legacy_iptables, use_plain_sudo)

ROUTER = None
PROGRAM = program_path()
CONTROL = pathlib.Path(PROGRAM).with_name("quenbyctl")
OTHER = "ppp9"
GIVEN = pathlib.Path("/run/given.ini")
SUDO = pathlib.Path("/run/plain-sudo/sudo")
MODE = "both"
CHANGED = pathlib.Path("/run/changed.ini")


def broken(command, effect, when):
    """A command that ends at its request or change of a file number `when`."""
    calls = "sendmsg,write,fsync,rename,unlink"
    return (f"strace -qq -o /dev/null -e trace={calls} "
            f"-e inject={calls}:{effect}:when={when} $QUENBY {command}")


def edited(file, old, new):
    return f"sed -i 's/^{old}$/{new}/' {file}"


KILL = "signal=KILL"
FLUSH_RULES = "for table in mangle filter raw; do iptables -t $table -F; iptables -t $table -X; done"
FLUSH_RULES6 = FLUSH_RULES.replace("iptables", "ip6tables")
# Shell commands on the loaded router, in which $GIVEN names a file with a new tariff and $CHANGED
# one with other speeds for those that are stored.
ACCIDENTS = {
    "wan renamed": edited(GLOBAL_FILE, f"wan={LINE}", f"wan={OTHER}"),
    "wan renamed and ifb_ingr deleted":
        edited(GLOBAL_FILE, f"wan={LINE}", f"wan={OTHER}") + f"; ip link del {IFB}",
    "wan renamed and a reload killed":
        edited(GLOBAL_FILE, f"wan={LINE}", f"wan={OTHER}") + "; " + broken("--reload", KILL, 9),
    "one number twice": edited(TARIFF_FILE, "id=5", "id=4"),
    "a reserved number": edited(TARIFF_FILE, "id=5", "id=3"),
    "a fraction": edited(TARIFF_FILE, "download_speed=4000", "download_speed=1234.5"),
    "a factor that is taken back":
        edited(TARIFF_FILE, "id=5", "id=5\\naggregation=5\\naggregation=0"),
    "a burst that cannot be saved":
        edited(TARIFF_FILE, "id=5", "id=5\\ndownload_burst_size=3000000000"),
    "two sections of one name": f"sed 's/id=5/id=9/; s/0.5$/0.9/' {TARIFF_FILE} | tail -n 5 >/run/s; "
                                f"cat /run/s >>{TARIFF_FILE}",
    "an address deleted by hand": edited(TARIFF_FILE, "ip=10.0.0.5", "ip=10.0.0.50"),
    "leftovers of saves": f"touch {CONFIG}/tc_tariff.ini.tmp {CONFIG}/tc_tariff.ini-1a2b",
    "stop killed early": broken("--stop", KILL, 3),
    "stop killed late": broken("--stop", KILL, 7),
    "add killed": broken("--tariff-add $GIVEN", KILL, 14),
    "add refused memory": broken("--tariff-add $GIVEN", "error=ENOMEM", 12),
    "update killed": broken("--tariff-update $CHANGED", KILL, 16),
    "update killed in its save": broken("--tariff-update $CHANGED", KILL, 40),
    "delete killed": broken("--tariff-del zed", KILL, 12),
    "reload killed": broken("--reload", KILL, 20),
    "address set emptied": "ipset flush kavo_opt_shaper",
    "an address too many": "ipset add kavo_opt_shaper 10.9.9.9 skbmark 0x80000009/0x80003fff",
    "rules and chains flushed": FLUSH_RULES,
    "rules, chains and set gone": FLUSH_RULES + "; ipset destroy kavo_opt_shaper",
    "ifb_ingr set down": f"ip link set {IFB} down",
    "a class deleted": f"tc qdisc del dev {LINE} parent 8000:5; tc class del dev {LINE} classid 8000:5",
    "somebody else's filter": f"tc filter add dev {LINE} parent 8000: protocol ip prio 5 u32 "
                              "match u32 0 0 flowid 8000:5",
}
ACCIDENTS6 = {
    "IPv6 turned off": edited(GLOBAL_FILE, "ipv6=true", "ipv6=false"),
    "a prefix deleted by hand": edited(TARIFF_FILE, "ip6=2001:db8:1::5", "ip6=2001:db8:1::6"),
    "a prefix too many": f"ipset add {SET6} 2001:db8:9::/48 skbmark 0x80000009/0x80003fff",
    "rules of IPv6 flushed": FLUSH_RULES6,
    "rules of IPv6 and its set gone": FLUSH_RULES6 + f"; ipset destroy {SET6}",
    "an add with IPv6 killed": broken("--tariff-add $GIVEN", KILL, 22),
    "somebody else's filter of IPv6":
        f"tc filter add dev {LINE} parent 8000: protocol ipv6 prio 5 u32 match u32 0 0 "
        "flowid 8000:5",
}
# A stop is no accident, a set that is gone comes back with its rules, and others are much the same.
LEFT_OUT = ("stopped", "IPv6 set destroyed", "last prefix deleted", "load killed at its request 50",
            "load killed at its request 53")
# Where IPv6 has an object of its own in what went.
OF_BOTH = ("line came back",)
# What the comparison does not show until the recovery is over.
UNSEEN = (ACCIDENTS["leftovers of saves"], ACCIDENTS["ifb_ingr set down"])
IFB_FLAGS = pathlib.Path(f"/sys/class/net/{IFB}/flags")


def reset():
    """The bare router with fresh lines."""
    ROUTER.reset(imq=True)
    renew_devices(LINE, OTHER)


def use_sudo(real):
    """Commands of the firewall take longer than all the rest, so they run where it was damaged."""
    SUDO.unlink()
    SUDO.symlink_to("/usr/bin/env" if real else "/usr/bin/true")


def read(rules):
    lines = router_state.read_state((*DEVICES, OTHER))
    return [*lines, *router_state.ip6_rule_lines()] if rules else lines


class RouterTest(unittest.TestCase):
    def run_program(self, *options):
        self.assertEqual((0, "", ""), ROUTER.run(*options))

    def assert_same(self, wanted, found):
        lines = router_state.differences(wanted, found)
        self.assertFalse(lines, "\n" + "\n".join(lines))


class AfterAStop(RouterTest):
    """The second stop finds what was built since the first, of both families."""

    def check(self, tariffs, build):
        use_sudo(True)
        reset()
        bare = read(True)
        ROUTER.configure(MODES["ipv6"].settings, tariffs)
        self.run_program("--load")
        loaded = read(True)
        self.run_program("--stop")
        self.assert_same(bare, read(True))
        build()
        built = read(True)
        self.run_program("--stop")
        self.assert_same(bare, read(True))
        self.assertFalse(IPV6_NOTE.exists())
        return loaded, built

    def test_repair(self):
        def repair():
            self.assertEqual((0, ""), guest.run(CONTROL, "repair")[::2])
        self.assert_same(*self.check(MODES["ipv6"].tariffs, repair))

    def test_the_last_tariff_is_deleted(self):
        last = tariff("zed", 4, ["10.0.0.5", "2001:db8:1::/48"], (DOWN, UP))
        _, built = self.check(last, lambda: self.run_program("--tariff-del", "zed"))
        self.assertTrue([line for line in built if " ipv6 " in line])


class Recovery(RouterTest):
    """Gets a test for each fault in the first of its modes, and one for each accident."""

    # What a load makes of a bare router, by the two files and whether the firewall's commands run.
    wanted = {}

    def check(self, commands, loaded, name):
        mode, rules = MODES[name], any(word in commands for word in ("tables -t", "ipv6="))
        use_sudo(rules)
        before = self.wanted_of(mode.settings, mode.tariffs, rules)
        reset()
        bare = read(rules)
        ROUTER.configure(mode.settings, mode.tariffs)
        if loaded:
            self.run_program("--load")
        GIVEN.write_text(mode.added.replace("pfifo", "sfq"), encoding="ascii")
        CHANGED.write_text(mode.tariffs.replace("4000", "3000"), encoding="ascii")
        subprocess.run(["bash", "-c", commands], check=False, stderr=subprocess.DEVNULL)
        if commands not in UNSEEN:
            self.assertNotEqual((before, mode.settings, mode.tariffs), (read(rules), *self.files()))
        self.assertEqual((0, ""), ROUTER.run("--stop")[:2])
        self.assert_same(bare, read(rules))
        self.run_program("--load")
        self.assertTrue(int(IFB_FLAGS.read_text(), 16) & 1, "ifb_ingr is down")
        found = read(rules)
        self.assert_same(self.wanted_of(*self.files(), rules), found)

    def wanted_of(self, *key):
        if key not in self.wanted:
            reset()
            ROUTER.load(*key[:2])
            self.wanted[key] = read(key[2])
        return self.wanted[key]

    @staticmethod
    def files():
        return tuple(path.read_text(encoding="ascii") for path in (GLOBAL_FILE, TARIFF_FILE))


def add_test(name, *arguments):
    setattr(Recovery, "test_" + name.replace(" ", "_").replace(",", ""),
            lambda self: self.check(*arguments))


for fault, (shell_commands, is_loaded, modes) in FAULTS.items():
    # The rules of an IMQ device need a target that no kernel of Debian has.
    if modes[0] in ("both", "download only", "ipv6") and fault not in LEFT_OUT:
        add_test(fault, shell_commands, is_loaded, modes[0])
    if "ipv6" in modes[1:] and fault in OF_BOTH:
        add_test(fault + " with IPv6", shell_commands, is_loaded, "ipv6")
for accident, shell_commands in ACCIDENTS.items():
    add_test(accident, shell_commands, True, MODE)
for accident, shell_commands in ACCIDENTS6.items():
    add_test(accident, shell_commands, True, "ipv6")


if __name__ == "__main__":
    os.environ.update(QUENBY=PROGRAM, GIVEN=str(GIVEN), CHANGED=str(CHANGED))
    use_plain_sudo()
    use_legacy_iptables()
    ROUTER = Router(PROGRAM, ipv6=True)
    make_device(IMQ, "ifb")
    unittest.main(verbosity=2)
