#!/usr/bin/env python3
"""What the shaper has made of a router, as sorted lines of text that can be compared.

Call: router_state.py [--netns NAME] [DEVICE...]      (default: eth1 ifb_ingr imq0)

As a library: read_state(devices, netns) gives the lines, differences(wanted, found) compares two
lists of lines. What the kernel chooses by itself does not show: order, filter handles and hash
tables, counters. Bursts are in bytes; differences() allows them the microsecond to which they are
rounded on their way into the kernel.

    eth1 qdisc 8000: root htb default 2
    eth1 class 8000:4 parent 8000:1 rate 10000 ceil 10000 burst 2400 cburst 2400 quantum 1000
    eth1 filter 8000: pref 1 bpf class mark&80003fff if mark&80000000
    eth1 filter ffff: pref 1 redirect ifb_ingr connmark
    eth1 filter 8000: pref 4 ipv6 bpf class mark&80003fff if mark&80000000
    eth1 filter 8000: pref 3 ipv6 u32 1: 3aff/ffff at 4 class 8000:
    eth1 filter ffff: pref 2 ipv6 u32 6: 0/0 at 0 egress redirect ifb_ingr connmark
    imq0 filter 8000: pref 1 dst 10.0.0.1 class 8000:4
    set kavo_opt_shaper 10.0.0.1 skbmark 0x80000004/0x80003fff
    mangle -A KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN
"""

import argparse
import collections
import difflib
import json
import re
import socket
import subprocess
import sys

from netns import entered
from tc_dump import htb_classes
from u32_tree import tree_lines

TABLES = ("mangle", "filter", "raw")
DEVICES = ("eth1", "ifb_ingr", "imq0")

# Load the mark; unless bit 31 is set return 0; and with the mask; return that; return 0.
_MARK_PROGRAM = [(32, 0, 0, 4294963220), (69, 0, 2, 0x80000000), (84, 0, 0, 0x80003FFF),
                 (22, 0, 0, 0), (6, 0, 0, 0)]


def _run(*command, text=None):
    result = subprocess.run(command, input=text, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(command)}: status {result.returncode}: {result.stderr}")
    return result.stdout


def _exists(device):
    """Asking for one name would make the kernel look for a module when there is none of it."""
    return device in (name for _, name in socket.if_nameindex())


def _handle(number):
    return f"{number >> 16:x}:{number & 0xFFFF:x}"


# Qdiscs

def _qdisc_values(kind, options):
    if kind == "htb":
        return f" default {int(options['default'], 16):x}"
    if kind in ("pfifo", "sfq"):
        return f" limit {options['limit']}"
    if kind == "fq_codel":
        ecn = " ecn" if options.get("ecn") else ""
        return f" limit {options['limit']} quantum {options['quantum']}{ecn}"
    return ""


def _qdisc_line(device, qdisc):
    place = "root" if qdisc.get("root") else f"parent {qdisc['parent']}"
    values = _qdisc_values(qdisc["kind"], qdisc["options"])
    return f"{device} qdisc {qdisc['handle']} {place} {qdisc['kind']}{values}"


def _qdiscs(devices):
    """(device, qdisc) of each qdisc that somebody made; the kernel's own have handle 0."""
    for qdisc in json.loads(_run("tc", "-j", "qdisc", "show")):
        if qdisc.get("dev") in devices and qdisc["handle"] != "0:":
            yield qdisc["dev"], qdisc


# Classes

def _class_line(device, entry):
    """A root has no use for its quantum, and the kernel keeps the old one when its rate changes."""
    is_root = entry.parent == 0xFFFFFFFF
    parent = "root" if is_root else "parent " + _handle(entry.parent)
    quantum = "" if is_root else f" quantum {entry.quantum}"
    return (f"{device} class {_handle(entry.handle)} {parent} rate {entry.rate} "
            f"ceil {entry.ceil} burst {entry.burst} cburst {entry.cburst}{quantum}")


# Filters

def _action_words(options, direction=False):
    words = []
    for action in options.get("actions", []):
        if action["kind"] == "mirred":
            way = f"{action['direction']} " if direction else ""
            words.insert(0, f"{way}{action['mirred_action']} {action.get('to_dev', '*')}")
        elif action["kind"] == "skbedit":
            words.append(f"skbedit mark {action.get('mark')}/{action.get('mask')}")
        else:
            words.append(action["kind"])
    return " ".join(words)


def _bpf_words(options):
    program = [(i["code"], i["jt"], i["jf"], i["k"]) for i in options["bytecode"]["insns"]]
    if program == _MARK_PROGRAM:
        return "class mark&80003fff if mark&80000000"
    return "program " + " ".join(str(instruction) for instruction in program)


def filter_line(prefix, entry):
    options = entry["options"]
    if "actions" in options:
        return f"{prefix} {_action_words(options)}"
    if entry["kind"] == "bpf":
        return f"{prefix} bpf {_bpf_words(options)}"
    return f"{prefix} {entry['kind']} {json.dumps(options, sort_keys=True)}"


def _ip6_lines(device, parent, entries):
    """The u32 filters of a priority are numbered, as the first that matches counts."""
    numbers = collections.Counter()
    for entry in entries:
        prefix, options = f"{device} filter {parent} pref {entry['pref']} ipv6", entry["options"]
        if entry["kind"] != "u32":
            yield filter_line(prefix, entry)
        elif "matches" in options:
            numbers[entry["pref"]] += 1
            words = [f"{m['value']}/{m['mask']} at {m['off']}" for m in options["matches"]]
            if "fwmark_mask" in options:
                words.insert(0, f"mark {options['fwmark_value']}/{options['fwmark_mask']}")
            words += [f"class {options['flowid']}"] if "flowid" in options else []
            yield " ".join([f"{prefix} u32 {numbers[entry['pref']]}:", *words,
                            *filter(None, [_action_words(options, True)])])


def _filter_lines(device, parent, entries):
    """One line per filter; the u32 filters of IPv4 without actions are an address tree."""
    entries = [entry for entry in entries if "options" in entry]
    yield from _ip6_lines(device, parent, [e for e in entries if e["protocol"] == "ipv6"])
    entries = [entry for entry in entries if entry["protocol"] != "ipv6"]
    tree = [e for e in entries if e["kind"] == "u32" and "actions" not in e["options"]]
    others = [e for e in entries if e not in tree]
    for entry in others:
        yield filter_line(f"{device} filter {parent} pref {entry['pref']}", entry)
    for pref in sorted({entry["pref"] for entry in tree}):
        nodes = [entry["options"] for entry in tree if entry["pref"] == pref]
        for line in tree_lines(nodes):
            yield f"{device} filter {parent} pref {pref} {line}"


def _with_all_matches(pairs):
    """tc writes one member "match" for each of a filter's, and all but one would be lost."""
    matches = [value for name, value in pairs if name == "match"]
    return {**dict(pairs), **({"matches": matches} if matches else {})}


def _documents(text):
    """The JSON documents that stand one after the other in a text."""
    decoder, offset = json.JSONDecoder(object_pairs_hook=_with_all_matches), 0
    while text[offset:].strip():
        offset += len(text[offset:]) - len(text[offset:].lstrip())
        document, offset = decoder.raw_decode(text, offset)
        yield document


def read_filters(places, text):
    """Filters of each (device, qdisc handle), out of what tc lists for them."""
    documents = list(_documents(text))
    if len(documents) != len(places):
        raise RuntimeError(f"tc answered {len(documents)} of {len(places)} requests")
    for (device, parent), entries in zip(places, documents):
        yield from _filter_lines(device, parent, entries)


def _all_filters(places):
    """The same out of one run of tc."""
    if not places:
        return []
    batch = "".join(f"filter show dev {device} parent {parent}\n" for device, parent in places)
    return read_filters(places, _run("tc", "-j", "-batch", "-", text=batch))


# Address set and rules

def set_lines():
    """The sets without what depends on the kernel's hashing."""
    for line in _run("ipset", "save").splitlines():
        line = re.sub(r" (hashsize|bucketsize|initval) \S+", "", line)
        yield re.sub(r"^(create|add) ", "set ", line)


def ip6_rule_lines():
    """As `rule_lines`, each line after "ip6"."""
    return [f"ip6 {line}" for line in rule_lines("ip6tables-save")]


def rule_lines(program="iptables-save"):
    """The rules as "iptables -S" shows them, after the name of their table. The order of a
    chain's rules is kept. Built-in chains that accept are the same as none."""
    table = None
    for line in _run(program).splitlines():
        if line.startswith("*"):
            table = line[1:]
        if table not in TABLES:
            continue
        chain = re.match(r":(\S+) (\S+)", line)
        if chain and chain[2] != "ACCEPT":
            policy = f"-N {chain[1]}" if chain[2] == "-" else f"-P {chain[1]} {chain[2]}"
            yield f"{table} {policy}"
        elif line.startswith("-A"):
            yield f"{table} {line}"


def _device_lines(devices):
    present = [device for device in devices if _exists(device)]
    qdiscs = list(_qdiscs(present))
    for device, qdisc in qdiscs:
        yield _qdisc_line(device, qdisc)
    for device in present:
        for entry in htb_classes(device).values():
            yield _class_line(device, entry)
    yield from _all_filters([(device, qdisc["handle"]) for device, qdisc in qdiscs
                             if qdisc["kind"] in ("htb", "ingress")])


def _sort_key(line):
    """Rules keep their order within a chain, everything else is sorted by its text."""
    words = line.removeprefix("ip6 ").split()
    if words[0] in TABLES:
        return (1, line.startswith("ip6 "), words[0], words[2], words[1] == "-A")
    return (0, line)


def arrange(lines):
    return sorted(lines, key=_sort_key)


def read_state(devices=DEVICES, netns=None):
    with entered(netns):
        return arrange([*_device_lines(devices), *set_lines(), *rule_lines()])


# Comparison

_CLASS = re.compile(r"(?P<key>\S+ class \S+) .*rate (?P<rate>\d+) ceil (?P<ceil>\d+) "
                    r"burst (?P<burst>\d+) cburst (?P<cburst>\d+)")


def _same_burst(one, other, rate):
    """A burst is stored as whole microseconds and dumped as ticks of 64 ns."""
    return abs(one - other) <= rate * 1.064e-6 + 1


def _settle(wanted, found):
    """The found line with the wanted bursts where they are equal within the tolerance."""
    for name, rate in (("cburst", "ceil"), ("burst", "rate")):
        if wanted[rate] == found[rate] and _same_burst(
                int(wanted[name]), int(found[name]), int(found[rate])):
            line = found.string[: found.start(name)] + wanted[name] + found.string[found.end(name):]
            found = _CLASS.match(line)
    return found.string


def differences(wanted, found):
    """Lines of a diff, none when the two states are equal."""
    classes = {match["key"]: match for match in map(_CLASS.match, wanted) if match}
    settled = []
    for line in found:
        match = _CLASS.match(line)
        known = match and classes.get(match["key"])
        settled.append(_settle(known, match) if known else line)
    return list(difflib.unified_diff(arrange(wanted), arrange(settled), "wanted", "found",
                                     n=0, lineterm=""))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--netns", help="network namespace (default: the current one)")
    parser.add_argument("devices", nargs="*", default=DEVICES, metavar="DEVICE")
    arguments = parser.parse_args()
    print("\n".join(read_state(arguments.devices, arguments.netns)))


if __name__ == "__main__":
    sys.exit(main())
