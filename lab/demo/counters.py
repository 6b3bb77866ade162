"""Which class counted which packets, and how many there really were.

Every packet of a subscriber that leaves the shaper arrives at one end of the
miniature network, where a rule for each address counts it. A class must have
counted exactly the packets and bytes of its own subscribers, to the last one.
"""

import re
import subprocess
import time
from collections import namedtuple

from plan import DIRECTIONS, FAMILIES, family

Count = namedtuple("Count", "packets bytes")

DEVICES = {"download": "ifb_ingr", "upload": "eth1"}
# Where packets arrive: namespace, device and the rule's name for a subscriber.
_ENDS = {"download": ("lan", "lan0", "-d"), "upload": ("inet", "inet0", "-s")}
_TABLES = {"IPv4": "iptables", "IPv6": "ip6tables"}
ROOT_CLASS = 1
SYSTEM_CLASS = 2  # takes what no classifier sends elsewhere
# A queueing discipline counts the Ethernet header, the rules at the ends do not.
ETHERNET_HEADER = 14

_CLASS = re.compile(r"^class htb 8000:([0-9a-f]+) .*?Sent (\d+) bytes (\d+) pkt", re.M | re.S)
_RULE = re.compile(r"^\[(\d+):(\d+)\] -A PREROUTING -[sd] ([0-9a-f.:]+)/(?:32|128) ", re.M)


def _in_namespace(direction, *command):
    return ["ip", "netns", "exec", _ENDS[direction][0], *command]


def watch_addresses(addresses):
    """Makes the counting rules at both ends."""
    for direction, (_, device, match) in _ENDS.items():
        for kind, table in _TABLES.items():
            lines = [f"-A PREROUTING {match} {address} -i {device}" for address in addresses
                     if family(address) == kind]
            rules = "\n".join(["*mangle", *lines, "COMMIT", ""])
            command = _in_namespace(direction, f"{table}-restore", "--noflush")
            subprocess.run(command, input=rules, text=True, check=True)


def _outputs(commands):
    """Runs commands side by side; their outputs."""
    running = [subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
               for command in commands]
    outputs = [process.communicate()[0] for process in running]
    for process in running:
        if process.returncode != 0:
            raise subprocess.CalledProcessError(process.returncode, process.args)
    return outputs


def parse_classes(text):
    """{class number: Count} of what tc prints."""
    return {int(number, 16): Count(int(packets), int(size))
            for number, size, packets in _CLASS.findall(text)}


def parse_rules(text):
    """{address: Count} of what iptables-save prints."""
    return {address: Count(int(packets), int(size))
            for packets, size, address in _RULE.findall(text)}


class Snapshot:
    """All counters at one moment, each a dictionary by direction."""

    def __init__(self):
        outputs = _outputs(
            [["tc", "-s", "class", "show", "dev", DEVICES[direction]] for direction in DIRECTIONS]
            + [_in_namespace(direction, f"{_TABLES[kind]}-save", "-c", "-t", "mangle")
               for kind in FAMILIES for direction in DIRECTIONS])
        self.classes = dict(zip(DIRECTIONS, map(parse_classes, outputs[:2])))
        self.arrived = {direction: {**parse_rules(old), **parse_rules(new)}
                        for direction, old, new in zip(DIRECTIONS, outputs[2:4], outputs[4:])}

    def __eq__(self, other):
        return self.classes == other.classes and self.arrived == other.arrived


def _settled_snapshot():
    """A snapshot of a line on which nothing moves any more."""
    limit = time.monotonic() + 20
    before, now = Snapshot(), Snapshot()
    while before != now:
        if time.monotonic() > limit:
            raise RuntimeError("packets keep moving after the end of all connections")
        before, now = now, Snapshot()
    return now


def _less(after, before):
    return Count(after.packets - before.packets, after.bytes - before.bytes)


class Difference:
    """What was counted between two snapshots."""

    def __init__(self, before, after):
        nothing = Count(0, 0)
        self.classes = {
            direction: {number: _less(count, before.classes[direction].get(number, nothing))
                        for number, count in after.classes[direction].items()}
            for direction in DIRECTIONS}
        self.arrived = {
            direction: {address: _less(count, before.arrived[direction][address])
                        for address, count in after.arrived[direction].items()}
            for direction in DIRECTIONS}

    def counted(self, direction, number):
        return self.classes[direction].get(number, Count(0, 0))

    def _expected(self, direction, number, subscribers):
        """What the class of that number must have counted."""
        counts = [self.arrived[direction][address]
                  for subscriber in subscribers if subscriber.class_number == number
                  for address in subscriber.addresses]
        packets = sum(count.packets for count in counts)
        size = sum(count.bytes for count in counts)
        return Count(packets, size + packets * ETHERNET_HEADER)

    def had(self, direction, subscriber):
        """How many packets of a subscriber arrived."""
        return sum(self.arrived[direction][address].packets for address in subscriber.addresses)

    def misplaced(self, subscribers, without=()):
        """What is wrong when SUBSCRIBERS had all the traffic, a line each. Looks
        at every class but those of WITHOUT; the root class is the sum of all."""
        problems = []
        for direction in DIRECTIONS:
            for number, count in sorted(self.classes[direction].items()):
                expected = self._expected(direction, number, subscribers)
                if number not in (ROOT_CLASS, *without) and count != expected:
                    problems.append(
                        f"{direction} class {number} counted {count.packets} packets "
                        f"({count.bytes} bytes), its subscribers had {expected.packets} "
                        f"({expected.bytes} bytes)")
        return problems


class Meter:
    """Tells what was counted since it was last asked."""

    def __init__(self):
        self._last = _settled_snapshot()

    def difference(self):
        before, self._last = self._last, _settled_snapshot()
        return Difference(before, self._last)
