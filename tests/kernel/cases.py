"""Reads the hand-written state cases.

A case is a text file: what it shows, then "== global", "== tariffs" and "== state" with the two
configuration files and the state that they must make. In the state "#" begins a comment, and these
words stand for lines that many cases share:

    marking WAN        the rules that mark what leaves by the device
    tracked            every incoming packet is tracked by connection
    not tracked        the platform's own rules decide that
    entry ADDRESS N    the address is in the set with the mark of class N

A class below another takes turns by a quantum of a tenth of its rate, but of 1000 bytes at least and
200000 at most; that is added to its line.
"""

import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parent / "state_cases"

_MARKING = """\
mangle -A KAVO_QOS_FW_OUT_HOOK ! -o {wan} -j RETURN
mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type LOCAL -j RETURN
mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --restore-mark --nfmask 0x80003fff --ctmask 0x80003fff
mangle -A KAVO_QOS_FW_OUT_HOOK -m mark ! --mark 0x0/0x80003fff -j RETURN
mangle -A KAVO_QOS_FW_OUT_HOOK -j MARK --set-xmark 0x80000003/0x80003fff
mangle -A KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src --map-mark
mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --save-mark --nfmask 0x80003fff --ctmask 0x80003fff
"""


_LEAF_CLASS = re.compile(r"\S+ class \S+ parent \S+ rate (\d+) ceil \d+ burst \d+ cburst \d+")


def _quantum(rate):
    if rate < 10 * 1000:
        return 1000
    return rate // 10 if rate < 10 * 200000 else 200000


def _expand(line):
    if match := _LEAF_CLASS.fullmatch(line):
        return [f"{line} quantum {_quantum(int(match[1]))}"]
    if match := re.fullmatch(r"marking (\S+)", line):
        return _MARKING.format(wan=match[1]).splitlines()
    if match := re.fullmatch(r"entry (\S+) (\d+)", line):
        return [f"set kavo_opt_shaper {match[1]} skbmark 0x{0x80000000 | int(match[2]):x}/0x80003fff"]
    if line == "tracked":
        return ["raw -A QOS_CONNTRACK -j ACCEPT"]
    if line == "not tracked":
        return ["raw -A QOS_CONNTRACK -j RETURN"]
    return [line]


def state_lines(text):
    lines = (line.split("#")[0].strip() for line in text.splitlines())
    return [expanded for line in lines if line for expanded in _expand(line)]


class Case:
    def __init__(self, path):
        self.name = path.stem
        text, parts = path.read_text(encoding="ascii"), {}
        for part in re.split(r"^== ", text, flags=re.M)[1:]:
            head, _, body = part.partition("\n")
            parts[head.strip()] = body
        if set(parts) - {"global", "tariffs", "state"} or "state" not in parts:
            raise ValueError(f"{path}: parts {sorted(parts)}")
        self.global_text = parts.get("global")
        self.tariff_text = parts.get("tariffs")
        self.state = state_lines(parts["state"])


def load_cases():
    cases = [Case(path) for path in sorted(FOLDER.glob("*.case"))]
    if not cases:
        raise ValueError(f"{FOLDER}: no cases")
    return cases
