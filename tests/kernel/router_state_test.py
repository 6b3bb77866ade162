#!/usr/bin/env python3
"""Checks of the reading and comparing of states that need no kernel.

Call: tests/kernel/router_state_test.py
"""

import unittest

from cases import state_lines
from router_state import differences, filter_line, read_filters
from u32_tree import tree_lines


def class_line(burst, rate=1250000, handle="8000:4"):
    return (f"eth1 class {handle} parent 8000:1 rate {rate} ceil {rate} "
            f"burst {burst} cburst 300000")


class FilterLineTest(unittest.TestCase):
    def redirection(self, **target):
        actions = [{"kind": "connmark"}, {"kind": "mirred", "mirred_action": "redirect", **target}]
        return filter_line("eth1 filter ffff: pref 1", {"options": {"actions": actions}})

    def test_redirection(self):
        self.assertEqual("eth1 filter ffff: pref 1 redirect ifb_ingr connmark",
                         self.redirection(to_dev="ifb_ingr"))

    def test_redirection_to_a_device_that_has_gone(self):
        self.assertEqual("eth1 filter ffff: pref 1 redirect * connmark", self.redirection())


class Ip6FilterTest(unittest.TestCase):
    """As tc lists them: a hash table, which is none, a filter of two matches, one of none."""

    MATCHES = ('"match":{"value":"0","mask":"ff00","offmask":"","off":4},'
               '"match":{"value":"2c000000","mask":"ff000000","offmask":"","off":40},')
    TEXT = ('[{"protocol":"ipv6","pref":2,"kind":"u32","chain":0},'
            '{"protocol":"ipv6","pref":2,"kind":"u32","options":{"fh":"802:","ht_divisor":1}},'
            '{"protocol":"ipv6","pref":2,"kind":"u32","options":{"fh":"802::800",'
            '"fwmark_value":"0","fwmark_mask":"0x80003fff",' + MATCHES + '"actions":[{"kind":"ct"},'
            '{"kind":"skbedit","mark":1,"mask":"80003fff"},{"kind":"mirred","mirred_action":"redirect",'
            '"direction":"ingress","to_dev":"eth1"}]}},'
            '{"protocol":"ipv6","pref":2,"kind":"u32","options":{"fh":"802::801","flowid":"8000:",'
            '"match":{"value":"3aff","mask":"ffff","offmask":"","off":4}}}]\n')

    def test_all_matches_show_in_their_order(self):
        self.assertEqual(
            ["eth1 filter ffff: pref 2 ipv6 u32 1: mark 0/0x80003fff 0/ff00 at 4 "
             "2c000000/ff000000 at 40 ingress redirect eth1 ct skbedit mark 1/80003fff", "eth1 filter ffff: pref 2 ipv6 u32 2: 3aff/ffff at 4 "
             "class 8000:"], list(read_filters([("eth1", "ffff:")], self.TEXT)))


class DifferencesTest(unittest.TestCase):
    def assert_equal(self, wanted, found):
        self.assertEqual([], differences(wanted, found))

    def assert_different(self, wanted, found):
        self.assertNotEqual([], differences(wanted, found))

    def test_burst_within_a_microsecond(self):
        """1 us is 1.25 bytes at this rate, a tick 0.08, rounding up to 1."""
        self.assert_equal([class_line(300000)], [class_line(299998)])
        self.assert_equal([class_line(300000)], [class_line(300002)])

    def test_burst_beyond_a_microsecond(self):
        self.assert_different([class_line(300000)], [class_line(299997)])
        self.assert_different([class_line(300000)], [class_line(300003)])

    def test_rate_and_handle_have_no_tolerance(self):
        self.assert_different([class_line(300000)], [class_line(300000, rate=1250001)])
        self.assert_different([class_line(300000)], [class_line(300000, handle="8000:5")])

    def test_quantum_has_no_tolerance(self):
        line = class_line(300000) + " quantum 125000"
        self.assert_equal([line], [class_line(299998) + " quantum 125000"])
        self.assert_different([line], [class_line(300000) + " quantum 125001"])
        self.assert_different([line], [class_line(300000)])

    def test_missing_surplus_and_double_lines(self):
        lines = [class_line(300000), "eth1 qdisc 8004: parent 8000:4 sfq limit 127"]
        self.assert_different(lines, lines[:1])
        self.assert_different(lines[:1], lines)
        self.assert_different(lines, [*lines, lines[1]])

    def test_order_counts_only_among_the_rules_of_a_chain(self):
        one, two = "mangle -A CHAIN -j RETURN", "mangle -A CHAIN -j ACCEPT"
        other, entry = "raw -A CHAIN -j RETURN", "set kavo_opt_shaper 10.0.0.1"
        self.assert_equal([one, two, other, entry], [entry, other, one, two])
        self.assert_different([one, two], [two, one])


class QuantumTest(unittest.TestCase):
    """What is added to the lines of a case."""

    def test_leaf_classes_get_one(self):
        for rate, quantum in ((8, 1000), (9999, 1000), (10000, 1000), (10010, 1001),
                              (1999999, 199999), (2000000, 200000), (1250000000, 200000)):
            line = class_line(1600, rate)
            self.assertEqual([f"{line} quantum {quantum}"], state_lines(line))

    def test_other_lines_stay(self):
        for line in ("eth1 class 8000:1 root rate 8 ceil 8 burst 8 cburst 8",
                     "eth1 qdisc 8002: parent 8000:2 fq_codel limit 600 quantum 300"):
            self.assertEqual([line], state_lines(line))


def link(handle, table, mask):
    return {"fh": handle, "link": f"{table}:", "hash_mask": mask, "hash_off": 16,
            "match": {"value": "0", "mask": "0", "offmask": "", "off": 16}}


def leaf(handle, value):
    return {"fh": handle, "flowid": "8000:4",
            "match": {"value": value, "mask": "ffffffff", "offmask": "", "off": 16}}


class TreeTest(unittest.TestCase):
    """10.0.17.9: the third octet 17 leads to bucket 1, the last to bucket 9."""

    ROOT = link("800::800", 2, "ff00")
    BUCKET = link("2:1:800", 4, "ff")

    def assert_tree(self, wanted, nodes):
        tables = [{"fh": "800:", "ht_divisor": 1}, {"fh": "2:", "ht_divisor": 16},
                  {"fh": "4:", "ht_divisor": 256}]
        self.assertEqual(wanted, tree_lines(tables + nodes))

    def test_reached(self):
        for handle in ("4:9:800", "4:9:801", "4:9:1"):
            self.assert_tree(["dst 10.0.17.9 class 8000:4"],
                             [leaf(handle, "a001109"), self.BUCKET, self.ROOT])

    def test_bucket_and_node_zero(self):
        self.assert_tree(["dst 10.0.16.0 class 8000:4"],
                         [leaf("3::800", "a001000"), link("2::800", 3, "ff"), self.ROOT])

    def test_wrong_bucket_is_lost(self):
        self.assert_tree(["dst 10.0.17.9 class 8000:4 lost"],
                         [leaf("4:8:800", "a001109"), self.BUCKET, self.ROOT])
        self.assert_tree(["dst 10.0.17.9 class 8000:4 lost"],
                         [leaf("4:9:800", "a001109"), link("2:2:800", 4, "ff"), self.ROOT])

    def test_missing_link_is_lost(self):
        self.assert_tree(["dst 10.0.17.9 class 8000:4 lost"],
                         [leaf("4:9:800", "a001109"), self.BUCKET])
        self.assert_tree(["dst 10.0.17.9 class 8000:4 lost"],
                         [leaf("4:9:800", "a001109"), self.ROOT])

    def test_two_filters_for_one_address_both_show(self):
        self.assert_tree(["dst 10.0.17.9 class 8000:4"] * 2,
                         [leaf("4:9:800", "a001109"), leaf("4:9:801", "a001109"), self.BUCKET,
                          self.ROOT])


if __name__ == "__main__":
    unittest.main()
