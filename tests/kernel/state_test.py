#!/usr/bin/env python3
"""The kernel's state after --load equals what was worked out by hand, for each case of
state_cases/ and for 300 tariffs.

Call: scripts/lab tests/kernel/state_test.py PROGRAM
"""

import unittest

import router_state
from cases import load_cases, state_lines
from router import Router, TARIFF_FILE, program_path, shell, use_legacy_iptables, use_plain_sudo

ROUTER = None
MAX_SHOWN = 60

# The chains that the shaper fills. What else there is of sets and rules is the platform's and
# stays as it was.
OUR_CHAINS = ("KAVO_QOS_FW_OUT_HOOK", "KAVO_QOS_FW_IN_HOOK", "KAVO_OPT_QOS_HOOK",
              "OSTREA_FW_OUT_HOOK", "OSTREA_FW_IN_HOOK", "QOS_CONNTRACK")


def is_platform(line):
    words = line.split()
    if words[0] in router_state.TABLES:
        return words[1] == "-N" or words[2] not in OUR_CHAINS
    return words[0] == "set" and words[2] == "hash:ip"


class StateTest(unittest.TestCase):
    IMQ = False

    def setUp(self):
        ROUTER.reset(self.IMQ)

    def assert_state(self, wanted, found):
        platform = [line for line in ROUTER.pristine if is_platform(line)]
        lines = router_state.differences([*platform, *wanted], found)
        shown = lines[:MAX_SHOWN] + [f"... {len(lines)} lines"] * (len(lines) > MAX_SHOWN)
        self.assertFalse(lines, "\n" + "\n".join(shown))

    def check(self, case):
        self.assert_state(case.state, ROUTER.load(case.global_text, case.tariff_text))


class MarkTest(StateTest):
    """Gets a test for each case that shapes devices by mark."""

    def test_reset_is_complete(self):
        self.assertEqual(ROUTER.pristine, router_state.read_state())
        self.assertTrue([line for line in ROUTER.pristine if is_platform(line)])


class ImqTest(StateTest):
    """The same for the cases that shape the stand-in of the IMQ device."""

    IMQ = True

    @classmethod
    def setUpClass(cls):
        shell("imq_standin_up")

    @classmethod
    def tearDownClass(cls):
        shell("imq_standin_down")


def add_cases():
    for case in load_cases():
        kind = ImqTest if case.name.startswith("imq_") else MarkTest
        setattr(kind, f"test_{case.name}", lambda self, case=case: self.check(case))


class FileTest(StateTest):
    """What a load does to the stored file."""

    GLOBAL = "[global]\nwan=eth1\nenabled=true\n"

    def test_consistent_numbers_leave_the_file_alone(self):
        text = "[b]\nid=9\nip = 10.0.0.9\n\n[a]\nid=4\nip=10.0.0.4\n"
        ROUTER.load(self.GLOBAL, text)
        self.assertEqual(text, TARIFF_FILE.read_text(encoding="ascii"))

    def test_reserved_number_renumbers_the_file(self):
        ROUTER.load(self.GLOBAL, "[b]\nid=9\nip=10.0.0.9\n[a]\nid=3\nip=10.0.0.4\n")
        text = TARIFF_FILE.read_text(encoding="ascii")
        self.assertRegex(text, r"(?s)^\[a\]\nid=4\nip=10\.0\.0\.4\n.*\[b\]\nid=5\nip=10\.0\.0\.9\n")


class ManyTest(StateTest):
    """300 tariffs of four addresses: tariff number i has class 4 + i, 1000 + i kbit/s down and
    500 + i up, and takes the leaf kinds in turn."""

    COUNT = 300
    KINDS = ("pfifo limit 11000", "sfq limit 127", "fq_codel limit 600 quantum 300", "")

    @staticmethod
    def addresses(i):
        return [f"10.{k}.{i // 256}.{i % 256}" for k in range(4)]

    def tariffs(self):
        for i in range(self.COUNT):
            kind = self.KINDS[i % 4].split(" ")[0] or "none"
            yield "".join([f"[t{i:03}]\nid={4 + i}\n", *(f"ip={a}\n" for a in self.addresses(i)),
                           f"download_speed={1000 + i}\nupload_speed={500 + i}\n",
                           f"queuing_discipline={kind}\n"])

    def tariff_lines(self, i):
        """1 kbit/s is 125 bytes/s; the burst is 240 ms of it, which is over 1600 bytes here."""
        for device, kbit in (("ifb_ingr", 1000 + i), ("eth1", 500 + i)):
            rate, burst = kbit * 125, kbit * 30
            yield (f"{device} class 8000:{4 + i:x} parent 8000:1 rate {rate} ceil {rate} "
                   f"burst {burst} cburst {burst}")
            if self.KINDS[i % 4]:
                yield (f"{device} qdisc {0x8004 + i:x}: parent 8000:{4 + i:x} {self.KINDS[i % 4]}")
        for address in self.addresses(i):
            yield f"entry {address} {4 + i}"

    # The global speeds are unset, so the root takes the sum of the tariffs. Download: 300 x 1000
    # + (0 + ... + 299) = 344850 kbit/s = 43106250 bytes/s; upload: 300 x 500 + 44850 = 194850
    # kbit/s = 24356250 bytes/s. A burst of 240 ms is 10345500 and 5845500 bytes.
    BASE = """
ifb_ingr qdisc 8000: root htb default 0
ifb_ingr class 8000:1 root rate 43106250 ceil 43106250 burst 10345500 cburst 10345500
ifb_ingr filter 8000: pref 1 bpf class mark&80003fff if mark&80000000
eth1 qdisc 8000: root htb default 0
eth1 class 8000:1 root rate 24356250 ceil 24356250 burst 5845500 cburst 5845500
eth1 filter 8000: pref 1 bpf class mark&80003fff if mark&80000000
eth1 qdisc ffff: parent ffff:fff1 ingress
eth1 filter ffff: pref 1 redirect ifb_ingr connmark
marking eth1
tracked
"""

    def test_all_tariffs(self):
        lines = [line for i in range(self.COUNT) for line in self.tariff_lines(i)]
        found = ROUTER.load("[global]\nwan=eth1\nenabled=true\n", "".join(self.tariffs()))
        self.assert_state(state_lines(self.BASE + "\n".join(lines)), found)


if __name__ == "__main__":
    add_cases()
    use_plain_sudo()
    use_legacy_iptables()
    ROUTER = Router(program_path())
    unittest.main(verbosity=2)
