#!/usr/bin/env python3
"""`quenbyctl verify` names exactly what somebody has damaged, and `quenbyctl repair` mends that and
nothing else.

Call: scripts/lab tests/kernel/drift_test.py PROGRAM
"""

import pathlib
import re
import subprocess
import unittest

import router_state
from router import IFB, IMQ, WAN, Router, program_path, shell, use_legacy_iptables, use_plain_sudo

ROUTER = None
PROGRAM = program_path()
CTL = pathlib.Path(PROGRAM).with_name("quenbyctl")

LINE = "download_speed=50000\nupload_speed=20000\n"
SETTINGS = f"[global]\nwan={WAN}\nenabled=true\n{LINE}"
DEFAULT = "[defaultqosipqueue]\ndownload_speed=3000\nupload_speed=2000\n"


def tariff(name, number, addresses, kind):
    lines = "".join(f"ip={address}\n" for address in addresses)
    return (f"[{name}]\nid={number}\n{lines}download_speed=4000\nupload_speed=1000\n"
            f"queuing_discipline={kind}\n")


TARIFFS = (tariff("amy", 4, ["10.0.0.4", "10.0.0.5"], "fq_codel")
           + tariff("bob", 5, ["10.0.0.6"], "pfifo") + tariff("eve", 6, ["10.0.0.7"], "sfq")
           + tariff("zed", 7, ["10.0.0.8"], "none"))

UP = f"tc class change dev {WAN} parent 8000:1 classid 8000:4 htb "
AMY = "rate 1mbit ceil 1mbit burst 30000 cburst 30000 quantum 12500"
BPF = "bytecode '1,6 0 0 0,'"
MANGLE = "iptables -t mangle"
OUT = "KAVO_QOS_FW_OUT_HOOK"
MARKS = "firewall rule mangle KAVO_QOS_FW_OUT_HOOK"
SET = "ipset -exist"
FEED = (f"tc filter add dev {WAN} parent ffff: protocol ip pref 1 u32 match u32 0 0 "
        "{}action mirred egress redirect dev ifb_ingr")
UNFEED = f"tc filter del dev {WAN} parent ffff: pref 1"

# What somebody does, and the lines that verify has for it.
DAMAGES = {
    "rate": (UP + AMY.replace("rate 1mbit", "rate 800kbit"),
             [f"different: {WAN} class 8000:4: rate 100000 bytes/s, not 125000 bytes/s"]),
    "ceiling": (UP + "rate 1mbit ceil 2mbit burst 30000 cburst 60000 quantum 12500",
                [f"different: {WAN} class 8000:4: ceil 250000 bytes/s, not 125000 bytes/s"]),
    "burst": (UP + AMY.replace("burst 30000 c", "burst 40000 c"),
              [f"different: {WAN} class 8000:4: burst 40000 bytes, not 30000 bytes"]),
    "quantum": (UP + AMY.replace("quantum 12500", "quantum 1500"),
                [f"different: {WAN} class 8000:4: quantum 1500 bytes, not 12500 bytes"]),
    "priority": (UP + AMY + " prio 3", [f"different: {WAN} class 8000:4: prio 3, not 0"]),
    "overhead": (UP + AMY + " overhead 20", [f"different: {WAN} class 8000:4: overhead 20, not 0"]),
    "link layer": (UP + AMY + " linklayer atm",
                   [f"different: {WAN} class 8000:4: linklayer 2, not 1"]),
    "smallest packet": (UP + AMY + " mpu 64", [f"different: {WAN} class 8000:4: mpu 64, not 0"]),
    "root class": (f"tc class change dev {IFB} parent 8000: classid 8000:1 htb rate 9mbit "
                   "ceil 9mbit burst 270000 cburst 270000",
                   [f"different: {IFB} class 8000:1: rate 1125000 bytes/s, not 6250000 bytes/s, "
                    "ceil 1125000 bytes/s, not 6250000 bytes/s"]),
    "class": (f"tc class del dev {IFB} classid 8000:5", [f"missing: {IFB} class 8000:5"]),
    "default tariff's class": (f"tc class del dev {IFB} classid 8000:3",
                               [f"missing: {IFB} class 8000:3"]),
    "class of nobody's": (f"tc class add dev {WAN} parent 8000:1 classid 8000:77 htb rate 1mbit",
                          [f"unwanted: {WAN} class 8000:77"]),
    "class under a tariff's": (f"tc class add dev {WAN} parent 8000:7 classid 8000:78 htb rate 8kbit",
                               [f"unwanted: {WAN} class 8000:78"]),
    "leaf": (f"tc qdisc del dev {IFB} parent 8000:4", [f"missing: {IFB} qdisc 8004:"]),
    "another leaf": (f"tc qdisc replace dev {IFB} parent 8000:5 handle 9: fq_codel",
                     [f"different: {IFB} qdisc 8005: fq_codel 9:, not pfifo"]),
    "limit of fq_codel": (f"tc qdisc change dev {WAN} parent 8000:4 handle 8004: fq_codel limit 7",
                          [f"different: {WAN} qdisc 8004: limit 7, not 600"]),
    "ecn of fq_codel": (f"tc qdisc change dev {WAN} parent 8000:4 handle 8004: fq_codel ecn",
                        [f"different: {WAN} qdisc 8004: ecn 1, not 0"]),
    "limit of pfifo": (f"tc qdisc change dev {WAN} parent 8000:5 handle 8005: pfifo limit 7",
                       [f"different: {WAN} qdisc 8005: limit 7, not 11000"]),
    "limit of sfq": (f"tc qdisc del dev {WAN} parent 8000:6; "
                     f"tc qdisc add dev {WAN} parent 8000:6 handle 8006: sfq limit 7",
                     [f"different: {WAN} qdisc 8006: limit 7, not 127"]),
    "leaf that nobody wants": (f"tc qdisc add dev {WAN} parent 8000:7 handle 77: pfifo",
                               [f"unwanted: {WAN} qdisc 77:"]),
    "root": (f"tc qdisc del dev {WAN} root", [f"missing: {WAN} qdisc 8000:"]),
    "another root": (f"tc qdisc replace dev {IFB} root handle 7: pfifo",
                     [f"different: {IFB} qdisc 8000: pfifo 7:, not htb"]),
    "default of the root": (f"tc qdisc del dev {IFB} root; tc qdisc add dev {IFB} root handle 8000: "
                            "htb default 5",
                            [f"different: {IFB} qdisc 8000: default 5, not 2"]),
    "classifier": (f"tc filter del dev {WAN} parent 8000:", [f"missing: {WAN} filter by mark"]),
    "classifier of another program":
        (f"tc filter del dev {WAN} parent 8000:; "
         f"tc filter add dev {WAN} parent 8000: protocol ip pref 1 bpf {BPF}",
         [f"unwanted: {WAN} filter bpf of priority 1", f"missing: {WAN} filter by mark"]),
    "classifier of one mark":
        (f"tc filter del dev {WAN} parent 8000:; "
         f"tc filter add dev {WAN} parent 8000: protocol ip pref 1 handle 5 fw classid 8000:4",
         [f"unwanted: {WAN} filter fw of priority 1", f"missing: {WAN} filter by mark"]),
    "classifier of nobody's":
        (f"tc filter add dev {IFB} parent 8000: protocol all pref 9 matchall classid 8000:4",
         [f"unwanted: {IFB} filter matchall of priority 9"]),
    "match of nobody's":
        (f"tc filter add dev {IFB} parent 8000: protocol ip pref 5 u32 match ip dst 10.0.0.9 "
         "classid 8000:4",
         [f"unwanted: {IFB} u32 0:0:800 at 16 match 10.0.0.9 class 8000:4"]),
    "ingress": (f"tc qdisc del dev {WAN} ingress",
                [f"missing: {WAN} qdisc ffff:", f"missing: {WAN} redirection to ifb_ingr"]),
    "redirection": (UNFEED, [f"missing: {WAN} redirection to ifb_ingr"]),
    "redirection without marks":
        (UNFEED + ";" + FEED.format(""),
         [f"different: {WAN} redirection to ifb_ingr: without marks, not with them"]),
    "second redirection": (FEED.format("action connmark "),
                           [f"unwanted: {WAN} redirection to ifb_ingr"]),
    "redirection elsewhere":
        ("tc qdisc add dev eth2 ingress; " + FEED.format("").replace(WAN, "eth2"),
         ["unwanted: eth2 redirection to ifb_ingr"]),
    "ifb_ingr": (f"ip link del {IFB}",
                 [f"missing: {IFB}", f"unwanted: {WAN} redirection to a device that is gone",
                  f"missing: {WAN} redirection to ifb_ingr"]),
    "ifb_ingr is down": (f"ip link set {IFB} down", [f"different: {IFB} link: down, not up"]),
    "address": (f"{SET} del kavo_opt_shaper 10.0.0.6", ["missing: set address 10.0.0.6"]),
    "address of nobody's":
        (f"{SET} add kavo_opt_shaper 10.9.9.9 skbmark 0x80000004/0x80003fff",
         ["unwanted: set address 10.9.9.9"]),
    "mark of an address":
        (f"{SET} add kavo_opt_shaper 10.0.0.4 skbmark 0x80000005/0x80003fff",
         ["different: set address 10.0.0.4: mark 0x80000005/0x80003fff, not "
          "0x80000004/0x80003fff"]),
    "mark with another mask":
        (f"{SET} add kavo_opt_shaper 10.0.0.4 skbmark 0x80000004/0xffffffff",
         ["different: set address 10.0.0.4: mark 0x80000004/0xffffffff, not "
          "0x80000004/0x80003fff"]),
    "rule": (f"{MANGLE} -D {OUT} 4",
             [f"missing: {MARKS} -m mark ! --mark 0x0/0x80003fff -j RETURN"]),
    "rule of nobody's": (f"{MANGLE} -I {OUT} 2 -s 10.9.9.9 -j ACCEPT",
                         [f"unwanted: {MARKS} -s 10.9.9.9/32 -j ACCEPT"]),
    "rules in another order":
        (f"{MANGLE} -D {OUT} 1; {MANGLE} -A {OUT} ! -o {WAN} -j RETURN",
         [f"unwanted: {MARKS} ! -o {WAN} -j RETURN", f"missing: {MARKS} ! -o {WAN} -j RETURN"]),
    "marking rules": (f"{MANGLE} -F {OUT}", [f"missing: {MARKS} .*"] * 7),
    "rule of the other chain": (f"{MANGLE} -A KAVO_QOS_FW_IN_HOOK -j ACCEPT",
                                ["unwanted: firewall rule mangle KAVO_QOS_FW_IN_HOOK -j ACCEPT"]),
    "jump to the marking rules": (f"{MANGLE} -D POSTROUTING -j {OUT}",
                                  [f"missing: firewall jump to mangle {OUT}"]),
    "marking chain": (f"{MANGLE} -D POSTROUTING -j {OUT}; {MANGLE} -F {OUT}; {MANGLE} -X {OUT}",
                      [f"missing: firewall chain mangle {OUT}"]),
    "tracking": ("iptables -t raw -R QOS_CONNTRACK 1 -j RETURN",
                 ["different: firewall rule raw QOS_CONNTRACK 1: -j RETURN, not -j ACCEPT"]),
    "dropping": ("iptables -N KAVO_OPT_QOS_HOOK; iptables -A KAVO_OPT_QOS_HOOK -j DROP; "
                 "iptables -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK",
                 ["unwanted: firewall rule filter KAVO_OPT_QOS_HOOK -j DROP",
                  "unwanted: firewall rule filter OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK"]),
}

def unmatch(number):
    """Deletes the first filter that ends in this class."""
    return (f"tc filter del dev {IMQ} parent 8000: pref 1 protocol ip handle $(tc filter show "
            f"dev {IMQ} parent 8000: | sed -n 's/.* fh \\([0-9a-f:]*\\) .*flowid 8000:{number} .*/\\1/p' "
            "| head -n 1) u32")


IMQ_DAMAGES = {
    "match": (unmatch(4),
              [f"missing: {IMQ} u32 .* at 16 match 10.0.0.4 class 8000:4"]),
    "match to another class":
        (unmatch(4) + "; "
         f"tc filter add dev {IMQ} parent 8000: protocol ip pref 1 u32 ht 3:4: match ip dst "
         "10.0.0.4 classid 8000:5",
         [f"unwanted: {IMQ} u32 .* at 16 match 10.0.0.4 class 8000:5",
          f"missing: {IMQ} u32 .* at 16 match 10.0.0.4 class 8000:4"]),
    "all filters": (f"tc filter del dev {IMQ} parent 8000:", [f"missing: {IMQ} .*"] * 18),
    "class": (unmatch(5) + f"; tc class del dev {IMQ} classid 8000:5",
              [f"missing: {IMQ} class 8000:5",
               f"missing: {IMQ} u32 .* at 16 match 10.0.0.6 class 8000:5"]),
    "root": (f"tc qdisc del dev {IMQ} root", [f"missing: {IMQ} qdisc 8000:"]),
}

BLOCKED_DAMAGES = {
    "plain queue": (f"tc qdisc del dev {WAN} root", [f"missing: {WAN} qdisc 1:"]),
    "its limit": (f"tc qdisc change dev {WAN} root handle 1: fq_codel limit 5",
                  [f"different: {WAN} qdisc 1: limit 5, not 0"]),
    "drop rule": ("iptables -F KAVO_OPT_QOS_HOOK",
                  [f"missing: firewall rule filter KAVO_OPT_QOS_HOOK -o {WAN} -j DROP"]),
    "jump to it": ("iptables -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK",
                   ["missing: firewall rule filter OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK"]),
    "second jump": ("iptables -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK",
                    ["unwanted: firewall rule filter OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK"]),
}

IP6_TARIFFS = (tariff("amy", 4, ["10.0.0.4"], "fq_codel").replace("ip=", "ip6=2001:db8:1::/48\nip=")
               + tariff("bob", 5, [], "pfifo").replace("down", "ip6=2001:db8:1:2::/64\ndown", 1))
SET6 = f"{SET} {{}} kavo_opt_shaper6 "

IP6_DAMAGES = {
    "prefix": (SET6.format("del") + "2001:db8:1::/48", ["missing: set prefix 2001:db8:1::/48"]),
    "prefix of nobody's": (SET6.format("add") + "2001:db8:9::/64 skbmark 0x80000004/0x80003fff",
                           ["unwanted: set prefix 2001:db8:9::/64"]),
    "mark of a prefix": (SET6.format("add") + "2001:db8:1:2::/64 skbmark 0x80000004/0x80003fff",
                         ["different: set prefix 2001:db8:1:2::/64: mark 0x80000004/0x80003fff, "
                          "not 0x80000005/0x80003fff"]),
    "note": ("rm /run/quenby-ipv6", ["missing: note /run/quenby-ipv6"]),
    "marking rules": (f"ip6tables -t mangle -F {OUT}",
                      [f"missing: {MARKS.replace('rule', 'IPv6 rule')} .*"] * 7),
    "jump to the marking rules": (f"ip6tables -t mangle -D POSTROUTING -j {OUT}",
                                  [f"missing: firewall IPv6 jump to mangle {OUT}"]),
    "tracking": ("ip6tables -t raw -R QOS_CONNTRACK 1 -j RETURN",
                 ["different: firewall IPv6 rule raw QOS_CONNTRACK 1: -j RETURN, not -j ACCEPT"]),
    "classifier": (f"tc filter del dev {WAN} parent 8000: pref 4",
                   [f"missing: {WAN} IPv6 filter by mark"]),
    "discovery": (f"tc filter del dev {IFB} parent 8000: pref 3",
                  [f"missing: {IFB} filter of IPv6 discovery"]),
    "classifier of nobody's":
        (f"tc filter add dev {IFB} parent 8000: protocol ipv6 pref 9 matchall classid 8000:4",
         [f"unwanted: {IFB} IPv6 filter matchall of priority 9"]),
    "redirection": (f"tc filter del dev {WAN} parent ffff: pref 2",
                    [f"missing: {WAN} IPv6 redirection to ifb_ingr"]),
    "one of the redirections":
        (f"tc filter del dev {WAN} parent ffff: pref 2 protocol ipv6 handle $(tc filter show dev {WAN} "
         "parent ffff: pref 2 | sed -n 's/.* fh \\([0-9a-f]*::[0-9a-f]*\\) .*/\\1/p' | head -n 1) u32",
         [f"different: {WAN} IPv6 redirection to ifb_ingr: other filters, or in another order"]),
    "class of prefixes alone": (f"tc class del dev {IFB} classid 8000:5",
                                [f"missing: {IFB} class 8000:5"]),
}

# Requests that change something, and processes that do.
CHANGING = re.compile(r"nlmsg_type=(RTM_NEW|RTM_DEL|NFNL_SUBSYS_IPSET<<8\|IPSET_CMD_(ADD|DEL|CREATE|"
                      r"FLUSH)|NFNL_SUBSYS_CTNETLINK<<8\|IPCTNL_MSG_CT_NEW)|\"-[AIDRFNX]\"|/tc\"")


def ctl(*arguments):
    done = subprocess.run([CTL, *arguments], capture_output=True, text=True, check=False)
    return done.returncode, done.stdout.splitlines(), done.stderr


class DriftTest(unittest.TestCase):
    maxDiff = None

    TARIFFS = TARIFFS
    # Whether the last test has left what it found.
    clean = False

    def setUp(self):
        if not self.clean:
            self.begin()
        type(self).clean = False

    @classmethod
    def begin(cls):
        ROUTER.reset(cls.IMQ)
        cls.state = ROUTER.load(cls.SETTINGS, cls.TARIFFS)

    @staticmethod
    def read():
        return router_state.read_state()

    def found(self):
        """Status, lines and errors of verify, without what this kernel has not got."""
        status, lines, errors = ctl("verify")
        lines = [line for line in lines if "-j IMQ" not in line]
        return status if lines or not self.IMQ else 0, lines, errors

    def check(self, commands, expected):
        subprocess.run(["bash", "-c", commands], check=False, stderr=subprocess.DEVNULL)
        status, lines, errors = self.found()
        self.assertEqual((1, ""), (status, errors), lines)
        self.assertEqual(len(lines), len(expected), lines)
        for line, wanted in zip(sorted(lines), sorted(expected)):
            self.assertTrue(line == wanted or re.fullmatch(wanted, line), f"{line}\n{wanted}")
        status, lines, errors = ctl("repair")
        if not self.IMQ:
            self.assertEqual((0, ""), (status, errors), lines)
        self.assertEqual((0, [], ""), self.found())
        lines = router_state.differences(self.state, self.read())
        self.assertFalse(lines, "\n" + "\n".join(lines))
        type(self).clean = True


class Marks(DriftTest):
    """Gets a test for each damage."""

    IMQ = False
    SETTINGS = SETTINGS + DEFAULT

    def test_a_right_router_gets_no_changing_request(self):
        log = pathlib.Path("/run/requests")
        done = subprocess.run(["strace", "-f", "-s", "200", "-o", log, "-e", "trace=sendmsg,execve",
                               CTL, "repair"], capture_output=True, text=True, check=False)
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))
        lines = log.read_text(encoding="utf-8", errors="replace").splitlines()
        self.assertTrue([line for line in lines if "RTM_GETTCLASS" in line], "nothing was traced")
        self.assertTrue([line for line in lines if "iptables" in line], "no process was traced")
        self.assertFalse([line for line in lines if CHANGING.search(line)])

    def test_damage_is_a_changing_request(self):
        subprocess.run(["bash", "-c", UP + AMY.replace("1500", "3000").replace("12500", "1500")],
                       check=True)
        log = pathlib.Path("/run/requests")
        subprocess.run(["strace", "-f", "-s", "200", "-o", log, "-e", "trace=sendmsg,execve", CTL,
                        "repair"], check=False, stdout=subprocess.DEVNULL)
        changes = [line for line in log.read_text(encoding="utf-8", errors="replace").splitlines()
                   if CHANGING.search(line)]
        self.assertEqual(len(changes), 1, changes)
        self.assertIn("RTM_NEWTCLASS", changes[0])

    def test_a_class_keeps_its_counters_and_its_queue(self):
        def counters(number):
            text = subprocess.run(["tc", "-s", "class", "show", "dev", WAN, "classid", number],
                                  capture_output=True, text=True, check=True).stdout
            return re.search(r"leaf (\S+)", text)[1], re.search(r"Sent (\d+)", text)[1]
        subprocess.run(["bash", "-c", "source lab/network.sh; in_lan ping -c 3 -i 0.01 -I 10.0.0.4 "
                        "$NETWORK_INET_ADDRESS >/dev/null"], check=True)
        before = counters("8000:4")
        self.assertNotEqual("0", before[1])
        subprocess.run(["bash", "-c", UP + AMY.replace("rate 1mbit", "rate 800kbit")], check=True)
        self.assertEqual(0, ctl("repair")[0])
        self.assertEqual(before, counters("8000:4"))


class ImqMatches(DriftTest):
    IMQ = True
    SETTINGS = f"[global]\nenabled=true\n{LINE}"

    @classmethod
    def setUpClass(cls):
        shell("imq_standin_up")

    @classmethod
    def tearDownClass(cls):
        ROUTER.reset(True)
        shell("imq_standin_down")


class Blocked(DriftTest):
    IMQ = False
    SETTINGS = SETTINGS.replace("upload_speed=20000", "upload_speed=0")


class Ip6(DriftTest):
    IMQ = False
    SETTINGS = SETTINGS + "ipv6=true\n" + DEFAULT
    TARIFFS = IP6_TARIFFS

    @classmethod
    def begin(cls):
        ROUTER.run("--stop")
        super().begin()
        cls.state = cls.read()

    @classmethod
    def tearDownClass(cls):
        ROUTER.run("--stop")

    @staticmethod
    def read():
        return [*router_state.read_state(), *router_state.ip6_rule_lines()]


def add_damages(case, damages):
    for name, (commands, expected) in damages.items():
        test = "test_" + re.sub(r"\W+", "_", name)
        setattr(case, test, lambda self, c=commands, e=expected: self.check(c, e))


if __name__ == "__main__":
    add_damages(Marks, DAMAGES)
    add_damages(ImqMatches, IMQ_DAMAGES)
    add_damages(Blocked, BLOCKED_DAMAGES)
    add_damages(Ip6, IP6_DAMAGES)
    use_plain_sudo()
    use_legacy_iptables()
    ROUTER = Router(PROGRAM)
    unittest.main(verbosity=2)
