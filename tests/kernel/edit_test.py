#!/usr/bin/env python3
"""Each command that changes a running configuration, from a known start: the kernel's state
afterwards equals what was worked out by hand, and so do the stored files.

Call: scripts/lab tests/kernel/edit_test.py PROGRAM
"""

import json
import pathlib
import re
import unittest

import router_state
import state_test
from cases import state_lines
from packets import Connection
from router import (GLOBAL_FILE, TARIFF_FILE, Router, command, program_path, shell,
                    use_legacy_iptables, use_plain_sudo)
from tc_dump import htb_classes

GIVEN = pathlib.Path("/run/given.ini")

GLOBAL = "[global]\nwan=eth1\ndownload_speed=50000\nupload_speed=20000\nenabled=true\n"
ZED_FILE = ("[zed]\nid=4\nip=10.0.0.4\ndownload_speed=8000\nupload_speed=4000\n"
            "queuing_discipline=pfifo\n")
AMY_FILE = ("[amy]\nid=5\nip=10.0.1.5\ndownload_speed=4000\nupload_speed=2000\n"
            "queuing_discipline=sfq\n")
NEW_FILE = ("[bob]\nip=10.0.2.6\nip=10.0.2.7/32\ndownload_speed=20000\nupload_speed=10000\n"
            "queuing_discipline=fq_codel\n")
BOB_STORED = NEW_FILE.replace("[bob]\n", "[bob]\nid=6\n")

# 1 kbit/s = 125 bytes/s. A burst is 240 ms at the rate: bytes/s / 25 * 6.
LINE = """
ifb_ingr qdisc 8000: root htb default 2
ifb_ingr class 8000:1 root rate 6250000 ceil 6250000 burst 1500000 cburst 1500000
ifb_ingr class 8000:2 parent 8000:1 rate 8 ceil 6250000 burst 8 cburst 1500000
ifb_ingr qdisc 8002: parent 8000:2 fq_codel limit 800 quantum 300
eth1 qdisc 8000: root htb default 2
eth1 class 8000:1 root rate 2500000 ceil 2500000 burst 600000 cburst 600000
eth1 class 8000:2 parent 8000:1 rate 8 ceil 2500000 burst 8 cburst 600000
eth1 qdisc 8002: parent 8000:2 fq_codel limit 800 quantum 300
eth1 qdisc ffff: parent ffff:fff1 ingress
marking eth1
tracked
"""
CLASSIFIED = """
ifb_ingr filter 8000: pref 1 bpf class mark&80003fff if mark&80000000
eth1 filter 8000: pref 1 bpf class mark&80003fff if mark&80000000
eth1 filter ffff: pref 1 redirect ifb_ingr connmark
"""
UNCLASSIFIED = "eth1 filter ffff: pref 1 redirect ifb_ingr\n"
ZED = """
ifb_ingr class 8000:4 parent 8000:1 rate 1000000 ceil 1000000 burst 240000 cburst 240000
ifb_ingr qdisc 8004: parent 8000:4 pfifo limit 11000
eth1 class 8000:4 parent 8000:1 rate 500000 ceil 500000 burst 120000 cburst 120000
eth1 qdisc 8004: parent 8000:4 pfifo limit 11000
entry 10.0.0.4 4
"""
AMY = """
ifb_ingr class 8000:5 parent 8000:1 rate 500000 ceil 500000 burst 120000 cburst 120000
ifb_ingr qdisc 8005: parent 8000:5 sfq limit 127
eth1 class 8000:5 parent 8000:1 rate 250000 ceil 250000 burst 60000 cburst 60000
eth1 qdisc 8005: parent 8000:5 sfq limit 127
entry 10.0.1.5 5
"""
BOB = """
ifb_ingr class 8000:6 parent 8000:1 rate 2500000 ceil 2500000 burst 600000 cburst 600000
ifb_ingr qdisc 8006: parent 8000:6 fq_codel limit 800 quantum 300
eth1 class 8000:6 parent 8000:1 rate 1250000 ceil 1250000 burst 300000 cburst 300000
eth1 qdisc 8006: parent 8000:6 fq_codel limit 600 quantum 300
entry 10.0.2.6 6
entry 10.0.2.7 6
"""
SHAPED = LINE + CLASSIFIED


def renumbered(text, old, new):
    """A tariff's lines with another class number."""
    for before, after in ((f"8000:{old} ", f"8000:{new} "), (f"800{old}:", f"800{new}:")):
        text = text.replace(before, after)
    return "\n".join(f"{line[:-1]}{new}" if line.startswith("entry") else line
                     for line in text.splitlines())


class EditTest(state_test.StateTest):
    GLOBAL = GLOBAL
    TARIFFS = ZED_FILE + AMY_FILE

    def setUp(self):
        super().setUp()
        state_test.ROUTER.load(self.GLOBAL, self.TARIFFS)

    def run_program(self, *options, output=""):
        self.assertEqual((0, output), state_test.ROUTER.run(*options)[:2])

    def give(self, option, text):
        GIVEN.write_text(text, encoding="ascii")
        self.run_program(option, str(GIVEN))

    def assert_kernel(self, text):
        self.assert_state(state_lines(text), router_state.read_state())

    def assert_tariffs(self, text):
        self.assertEqual(text, TARIFF_FILE.read_text(encoding="ascii"))

    def assert_pristine(self):
        self.assertEqual([], router_state.differences(state_test.ROUTER.pristine,
                                                      router_state.read_state()))


ADD, UPDATE, DELETE, REPLACE = "--tariff-add", "--tariff-update", "--tariff-del", "--update"
CHANGED_ZED = ("[zed]\nip=10.0.0.9\ndownload_speed=10000\nupload_speed=4000\n"
               "queuing_discipline=fq_codel\n")
# 999.9 kbit/s are 124987 bytes/s; the file keeps 999, which are 124875.
ODD = "[odd]\nip=10.0.3.7\ndownload_speed={}\nupload_speed=1000\n"

# Options with the tariff's name or file, then the kernel's state and the tariff file, if there is
# one: all of them are wanted after the last option.
EDITS = {
    "none": ((), SHAPED + ZED + AMY, ZED_FILE + AMY_FILE),
    "add": (((ADD, NEW_FILE),), SHAPED + ZED + AMY + BOB, ZED_FILE + AMY_FILE + BOB_STORED),
    "delete": (((DELETE, "zed"),), SHAPED + AMY, AMY_FILE),
    "delete all one by one": (((DELETE, "zed"), (DELETE, "amy")), LINE + UNCLASSIFIED, None),
    "delete all one by one and add":
        (((DELETE, "zed"), (DELETE, "amy"), (ADD, NEW_FILE)), SHAPED + renumbered(BOB, 6, 4),
         BOB_STORED.replace("id=6", "id=4")),
    "change speed, address and leaf kind": (((UPDATE, CHANGED_ZED),), SHAPED + AMY + """
ifb_ingr class 8000:4 parent 8000:1 rate 1250000 ceil 1250000 burst 300000 cburst 300000
ifb_ingr qdisc 8004: parent 8000:4 fq_codel limit 600 quantum 300
eth1 class 8000:4 parent 8000:1 rate 500000 ceil 500000 burst 120000 cburst 120000
eth1 qdisc 8004: parent 8000:4 fq_codel limit 600 quantum 300
entry 10.0.0.9 4
""", AMY_FILE + CHANGED_ZED.replace("[zed]\n", "[zed]\nid=4\n")),
    "change to the same":
        (((UPDATE, AMY_FILE),), SHAPED + ZED + AMY, ZED_FILE + AMY_FILE),
    "change the prefix length alone":
        (((UPDATE, AMY_FILE.replace("10.0.1.5", "10.0.1.5/24")),), SHAPED + ZED + AMY,
         ZED_FILE + AMY_FILE.replace("10.0.1.5", "10.0.1.5/24")),
    "replace the list":
        (((REPLACE, NEW_FILE + AMY_FILE),), SHAPED + AMY + BOB, AMY_FILE + BOB_STORED),
    "replace the list by itself":
        (((REPLACE, ZED_FILE + AMY_FILE),), SHAPED + ZED + AMY, AMY_FILE + ZED_FILE),
    "replace the list by nothing": (((REPLACE, ""),), LINE + UNCLASSIFIED, None),
    "delete all at once": ((("--tariffs-del", None),), LINE + UNCLASSIFIED, None),
    "add a speed that is rounded":
        (((ADD, ODD.format("999.9")),), SHAPED + ZED + AMY + """
ifb_ingr class 8000:6 parent 8000:1 rate 124875 ceil 124875 burst 29970 cburst 29970
eth1 class 8000:6 parent 8000:1 rate 125000 ceil 125000 burst 30000 cburst 30000
entry 10.0.3.7 6
""", ZED_FILE + AMY_FILE + ODD.format("999").replace("[odd]\n", "[odd]\nid=6\n")),
    "number by name":
        ((("--reload", None),), SHAPED + renumbered(AMY, 5, 4) + renumbered(ZED, 4, 5),
         AMY_FILE.replace("id=5", "id=4") + ZED_FILE.replace("id=4", "id=5")),
    "add after a stop":
        ((("--stop", None), (ADD, NEW_FILE)), SHAPED + ZED + AMY + BOB,
         ZED_FILE + AMY_FILE + BOB_STORED),
}


class Tariffs(EditTest):
    """Gets a test for each edit."""

    def check(self, steps, state, stored):
        for option, argument in steps:
            if argument is None or option == DELETE:
                self.run_program(option, *filter(None, [argument]))
            else:
                self.give(option, argument)
        self.assert_kernel(state)
        found = TARIFF_FILE.read_text(encoding="ascii") if TARIFF_FILE.exists() else None
        self.assertEqual(stored, found)

    def test_oversubscribing_rescales_everybody(self):
        # Download guarantees 8000 + 4000 + 76000 = 88000 of 50000 kbit/s, in bytes/s 11000000 of
        # 6250000: 1000000 becomes 568181, 500000 becomes 284090, 9500000 becomes 5397727.
        # The new tariff's ceiling is the line's speed. Upload stays within 20000.
        self.give(ADD, "[huge]\nip=10.0.3.7\ndownload_speed=76000\nupload_speed=1000\n")
        found = re.findall(r"^ifb_ingr class (\S+) .*?rate (\d+)",
                           "\n".join(router_state.read_state()), re.M)
        rates = dict(found)
        self.assertEqual({"8000:1": "6250000", "8000:2": "8", "8000:4": "568181",
                          "8000:5": "284090", "8000:6": "5397727"}, rates)

    def test_a_plan_sees_what_is_missing(self):
        program = pathlib.Path(state_test.ROUTER.program)
        GIVEN.write_text(NEW_FILE, encoding="ascii")
        missing = ("anew", "rebuild: something that a change relies on is missing")
        standing = ("in place", "only the changed tariffs' own objects differ")
        for change, wanted in (("true", standing), ("ipset flush kavo_opt_shaper", missing),
                               (f"{program} --load", standing),
                               ("tc qdisc del dev eth1 root", missing)):
            with self.subTest(change):
                shell(change)
                planned = json.loads(command(program.with_name("quenbyctl"), "plan", "--json",
                                             "tariff-add", GIVEN))
                self.assertEqual(wanted, (planned["way"], planned["reason"]))


for edit_name, edit in EDITS.items():
    setattr(Tariffs, "test_" + edit_name.replace(" ", "_").replace(",", ""),
            lambda self, arguments=edit: self.check(*arguments))


class RootBurst(EditTest):
    # 1000000 bytes at no burst rate, more than the 600000 of the line's own upload.
    BURSTY = ZED_FILE.replace("queuing", "upload_burst_size=1000000\nqueuing")
    TARIFFS = BURSTY + AMY_FILE

    def assert_upload_burst(self, burst):
        found = [line for line in router_state.read_state() if line.startswith("eth1 class 8000:1 ")]
        wanted = f"eth1 class 8000:1 root rate 2500000 ceil 2500000 burst {burst} cburst 600000"
        self.assertEqual([], router_state.differences([wanted], found))

    def test_covers_tariffs_that_were_there_before(self):
        self.assert_upload_burst(1000000)
        self.give("--tariff-add", NEW_FILE)
        self.assert_upload_burst(1000000)

    def test_shrinks_with_the_tariff_that_needed_it(self):
        self.run_program("--tariff-del", "zed")
        self.assert_upload_burst(600000)


class Global(EditTest):
    def test_replace(self):
        self.give("--global-update", "[global]\nwan=eth1\nenabled=true\nupload_speed=8000\n"
                                     "download_speed=16000\n")
        # 16000 and 8000 kbit/s.
        self.assert_kernel(CLASSIFIED + ZED + AMY + """
ifb_ingr qdisc 8000: root htb default 2
ifb_ingr class 8000:1 root rate 2000000 ceil 2000000 burst 480000 cburst 480000
ifb_ingr class 8000:2 parent 8000:1 rate 8 ceil 2000000 burst 8 cburst 480000
ifb_ingr qdisc 8002: parent 8000:2 fq_codel limit 800 quantum 300
eth1 qdisc 8000: root htb default 2
eth1 class 8000:1 root rate 1000000 ceil 1000000 burst 240000 cburst 240000
eth1 class 8000:2 parent 8000:1 rate 8 ceil 1000000 burst 8 cburst 240000
eth1 qdisc 8002: parent 8000:2 fq_codel limit 600 quantum 300
eth1 qdisc ffff: parent ffff:fff1 ingress
marking eth1
tracked
""")
        self.assertEqual("[global]\ndownload_speed=16000\nupload_speed=8000\nwan=eth1\n"
                         "enabled=true\n", GLOBAL_FILE.read_text(encoding="ascii"))

    def test_disable(self):
        self.give("--global-update", GLOBAL.replace("true", "false"))
        self.assert_pristine()
        self.assertIn("enabled=false\n", GLOBAL_FILE.read_text(encoding="ascii"))
        self.give("--tariff-add", NEW_FILE)
        self.run_program("--tariff-del", "zed")
        self.assert_pristine()
        self.assert_tariffs(AMY_FILE + BOB_STORED)

    def test_restore_wants_the_right_interface(self):
        state_test.ROUTER.reset()
        self.run_program("--restore-if-cfg", "--if-name", "eth2")
        self.assert_pristine()
        self.run_program("--restore-if-cfg", "--if-name", "eth1")
        self.assert_kernel(SHAPED + renumbered(AMY, 5, 4) + renumbered(ZED, 4, 5))


class MissingWan(EditTest):
    """The line is down: the files and the address set follow, no device is asked."""

    GLOBAL = GLOBAL.replace("eth1", "ppp0")

    def test_every_edit(self):
        self.assert_kernel("entry 10.0.0.4 4\nentry 10.0.1.5 5\nnot tracked\n")
        self.give("--tariff-add", NEW_FILE)
        self.give("--tariff-update", AMY_FILE.replace("10.0.1.5", "10.0.1.6"))
        self.run_program("--tariff-del", "zed")
        self.assert_kernel("entry 10.0.1.6 5\nentry 10.0.2.6 6\nentry 10.0.2.7 6\nnot tracked\n")
        self.assert_tariffs(BOB_STORED + AMY_FILE.replace("10.0.1.5", "10.0.1.6"))


class Imq(EditTest):
    IMQ = True
    GLOBAL = GLOBAL.replace("wan=eth1\n", "")
    TREE = """
imq0 qdisc 8000: root htb default 0
imq0 class 8000:1 root rate 6250000 ceil 6250000 burst 1500000 cburst 1500000
imq0 class 8000:8001 root rate 2500000 ceil 2500000 burst 600000 cburst 600000
"""
    # The leaf of upload class N is (8000 + 20000 decimal + N):0.
    ZED = """
imq0 class 8000:4 parent 8000:1 rate 1000000 ceil 1000000 burst 240000 cburst 240000
imq0 qdisc 8004: parent 8000:4 pfifo limit 11000
imq0 class 8000:8004 parent 8000:8001 rate 500000 ceil 500000 burst 120000 cburst 120000
imq0 qdisc ce24: parent 8000:8004 pfifo limit 11000
imq0 filter 8000: pref 1 dst 10.0.0.4 class 8000:4
imq0 filter 8000: pref 1 src 10.0.0.4 class 8000:8004
"""

    @classmethod
    def setUpClass(cls):
        shell("imq_standin_up")

    @classmethod
    def tearDownClass(cls):
        shell("imq_standin_down")

    def ours(self):
        """Lines of the IMQ device; the stand-in's feed is the lab's own."""
        return [line for line in router_state.read_state() if line.startswith("imq0 ")]

    def assert_device(self, text):
        self.assertEqual([], router_state.differences(state_lines(text), self.ours()))

    def test_delete(self):
        self.run_program("--tariff-del", "amy")
        self.assert_device(self.TREE + self.ZED)

    def test_delete_all_and_add_again(self):
        self.run_program("--tariff-del", "amy", "--tariff-del", "zed")
        self.assert_device(self.TREE)
        self.give("--tariff-add", ZED_FILE)
        self.assert_device(self.TREE + self.ZED)

    def test_change_into_a_shared_bucket(self):
        # Third octets 0 and 16 share a bucket, and so do the equal last octets.
        self.give("--tariff-update", AMY_FILE.replace("10.0.1.5", "10.0.16.4"))
        found = [line for line in self.ours() if " filter " in line]
        self.assertEqual(sorted(found), [
            "imq0 filter 8000: pref 1 dst 10.0.0.4 class 8000:4",
            "imq0 filter 8000: pref 1 dst 10.0.16.4 class 8000:5",
            "imq0 filter 8000: pref 1 src 10.0.0.4 class 8000:8004",
            "imq0 filter 8000: pref 1 src 10.0.16.4 class 8000:8005"])


class GlobalDelete(EditTest):
    def test_tariffs_move_to_the_imq_device(self):
        shell("imq_standin_up 2>/dev/null || true")
        self.addCleanup(shell, "imq_standin_down")
        self.run_program("--global-del")
        self.assertFalse(GLOBAL_FILE.exists())
        found = [line for line in router_state.read_state() if line.startswith("imq0 class")]
        # Without global speeds the root is what the tariffs need together.
        wanted = """
imq0 class 8000:1 root rate 1500000 ceil 1500000 burst 360000 cburst 360000
imq0 class 8000:8001 root rate 750000 ceil 750000 burst 180000 cburst 180000
imq0 class 8000:4 parent 8000:1 rate 1000000 ceil 1000000 burst 240000 cburst 240000
imq0 class 8000:5 parent 8000:1 rate 500000 ceil 500000 burst 120000 cburst 120000
imq0 class 8000:8004 parent 8000:8001 rate 500000 ceil 500000 burst 120000 cburst 120000
imq0 class 8000:8005 parent 8000:8001 rate 250000 ceil 250000 burst 60000 cburst 60000
"""
        self.assertEqual([], router_state.differences(state_lines(wanted), found))

    def test_without_tariffs_leaves_nothing(self):
        self.run_program("--tariffs-del")
        self.run_program("--global-del")
        self.assert_pristine()


class Statistics(EditTest):
    """After a history that leaves names, numbers and file order at odds."""

    def setUp(self):
        super().setUp()
        self.give("--tariff-add", NEW_FILE)
        self.give("--tariff-update", AMY_FILE.replace("sfq", "pfifo"))
        self.run_program("--tariff-del", "zed")

    def statistics(self):
        status, output, _ = state_test.ROUTER.run("--stat")
        self.assertEqual(0, status)
        lines = [line.split(",") for line in output.splitlines()]
        return {name: [int(number) for number in numbers] for name, *numbers in lines}

    def test_names_every_class(self):
        self.assertEqual({f"{direction} {name}" for direction in ("upload", "download")
                          for name in ("system", "amy", "bob")}, set(self.statistics()))

    def test_counts_what_was_sent_and_what_the_kernel_counted(self):
        with Connection("10.0.2.6") as connection:
            self.assertEqual((7, 4), (connection.upload(7), connection.answer(4)))
        found = self.statistics()
        # 72 bytes after 14 of Ethernet, 20 of IP and 8 of UDP.
        self.assertEqual([7, 7 * 114], found["upload bob"][:2])
        self.assertEqual([4, 4 * 114], found["download bob"][:2])
        self.assertEqual([0, 0], found["upload amy"][:2])
        for device, direction in (("eth1", "upload"), ("ifb_ingr", "download")):
            for minor, name in ((2, "system"), (5, "amy"), (6, "bob")):
                entry = htb_classes(device)[0x80000000 | minor]
                packets, octets, _, _, drops, _ = found[f"{direction} {name}"]
                self.assertEqual((entry.packets, entry.bytes, entry.drops),
                                 (packets, octets, drops), f"{direction} {name}")


if __name__ == "__main__":
    use_plain_sudo()
    use_legacy_iptables()
    state_test.ROUTER = Router(program_path())
    unittest.main(verbosity=2)
