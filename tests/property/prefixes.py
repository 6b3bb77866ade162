"""What the kernel has to hold for IPv6, said by the files and by what it holds for IPv4."""

import ipaddress
import re

from configs import section_names, sections, wan_of

from router_state import TABLES, differences

_ENTRY = re.compile(r"set kavo_opt_shaper6 (\S+) skbmark (\S+)")
_CLASS = re.compile(r"\S+ class 8000:([0-9a-f]+) ")
_RULE = re.compile(rf"(?:{'|'.join(TABLES)}) -")
_DROP = re.compile(r"(filter -A KAVO_OPT_QOS_HOOK -[io] \S+) -j DROP$")
_MARK_FILTER = re.compile(r"(\S+ filter 8000:) pref 1 (bpf .*)")
_REDIRECTION = re.compile(r"(\S+) filter ffff: pref 1 redirect ifb_ingr( connmark)?$")
_IP6_FILTER = re.compile(r"\S+ filter \S+ pref \d+ ipv6 ")
_ROOT = re.compile(r"(\S+) qdisc 8000: root htb ")
_CLASSIFYING = ("eth1", "ppp0", "ifb_ingr")
_FIRST_TARIFF = 4


def is_shaped(settings):
    """Whether IPv6 is, by a stored file."""
    return bool(settings and wan_of(settings) and re.search("^enabled=true$", settings, re.M)
                and re.search("^ipv6=true$", settings, re.M))


def _tariffs(text):
    """(name, number, prefixes, whether there is an IPv4 address) of each section, by the order of
    names. Two sections of one name may be there."""
    for part in sorted(re.split(r"^(?=\[)", text or "", flags=re.M), key=section_names):
        if section_names(part):
            yield (section_names(part)[0], int(re.search(r"^id=(\d+)$", part, re.M)[1]),
                   re.findall(r"^ip6=(.*)$", part, re.M), "\nip=" in part)


def _canonical(prefix):
    network = ipaddress.IPv6Network(prefix, strict=False)
    return str(network.network_address) if network.prefixlen == 128 else str(network)


def _entry_differences(shaped, text, state):
    """Of several tariffs with a prefix the last by name has it."""
    owners = {}
    for name, number, prefixes, _ in _tariffs(text) if shaped else ():
        for prefix in map(_canonical, prefixes):
            if owners.get(prefix, ("", None))[0] != name:
                owners[prefix] = (name, set())
            owners[prefix][1].add(f"0x{0x80000000 + number:x}/0x80003fff")
    found = dict(match.groups() for match in map(_ENTRY.match, state) if match)
    return [f"{prefix}: {sorted(owners[prefix][1]) if prefix in owners else 'nobody'} has it, the "
            f"set has {found.get(prefix)}" for prefix in sorted({*owners, *found})
            if found.get(prefix) not in owners.get(prefix, ("", {None}))[1]]


def _of_ipv6(rule):
    """The rules of IPv6 that stand for one of IPv4. What the link needs itself is not dropped."""
    rule = rule.replace("--map-set kavo_opt_shaper ", "--map-set kavo_opt_shaper6 ")
    drop = _DROP.match(rule)
    if drop:
        yield f"ip6 {drop[1]} -p ipv6-icmp -m hl --hl-eq 255 -j RETURN"
    yield f"ip6 {rule}"


def _rule_differences(shaped, state, bare):
    wanted = [rule for rule in bare if rule.startswith("ip6 ")]
    if shaped:
        wanted = [six for four in state if _RULE.match(four) for six in _of_ipv6(four)]
    return differences(wanted, [line for line in state if line.startswith("ip6 ")])


def _discovery(device):
    """ICMPv6, 58, with the hop limit 255 goes to the direct queue, which is the root's own class."""
    return f"{device} filter 8000: pref 3 ipv6 u32 1: 3aff/ffff at 4 class 8000:"


def _redirections(wan, connmark):
    """What begins with a fragment header, 44, or with one that such may stand behind, hop-by-hop
    options, routing, authentication or destination options, is put together and comes in again,
    marked so that it does so once. Then comes what IPv4 has."""
    again = f"ingress redirect {wan} ct skbedit mark 1/80003fff"
    matches = [*(f"mark 0/0x80003fff {header}/ff00 at 4 {again}"
                 for header in ("2c00", "0", "2b00", "3300", "3c00")),
               f"0/0 at 0 egress redirect ifb_ingr{connmark or ''}"]
    for number, match in enumerate(matches, 1):
        yield f"{wan} filter ffff: pref 2 ipv6 u32 {number}: {match}"


def _filter_differences(shaped, state):
    """What IPv4 has on its way to a class, IPv6 has too."""
    wanted = []
    for line in state if shaped else ():
        if match := _MARK_FILTER.match(line):
            wanted.append(f"{match[1]} pref 4 ipv6 {match[2]}")
        elif match := _REDIRECTION.match(line):
            wanted.extend(_redirections(*match.groups()))
        elif (match := _ROOT.match(line)) and match[1] in _CLASSIFYING:
            wanted.append(_discovery(match[1]))
    return differences(wanted, [line for line in state if _IP6_FILTER.match(line)])


def _class_differences(shaped, text, state):
    """A tariff has a class where it has an address or a prefix that counts."""
    if " class 8000:" not in "\n".join(state):
        return []
    wanted = {number for _, number, prefixes, has_address in _tariffs(text)
              if has_address or (shaped and prefixes)}
    found = {int(match[1], 16) for match in map(_CLASS.match, state) if match}
    found = {number for number in found if number >= _FIRST_TARIFF}
    return [f"classes {sorted(found)}, not {sorted(wanted)}"] if wanted != found else []


def ip6_differences(settings, tariffs, state, bare):
    """Whether IPv6 is to be shaped, and a line for each difference."""
    shaped = is_shaped(settings)
    lines = [*_entry_differences(shaped, tariffs, state), *_rule_differences(shaped, state, bare),
             *_filter_differences(shaped, state)]
    if wan_of(settings) and shaped:
        lines += _class_differences(shaped, tariffs, state)
    return shaped, lines
