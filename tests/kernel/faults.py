"""What can happen to a shaped router, for the tests of edits on one and of its recovery."""

from router import IFB, IMQ

LINE = "ppp0"
DEVICES = (LINE, IFB, IMQ)
DOWN, UP = "download_speed", "upload_speed"


def tariff(name, number, addresses, keys, speed=4000):
    """A section with a speed in the directions of `keys`; number None: a new one."""
    own = "" if number is None else f"id={number}\n"
    lines = "".join(f"{'ip6' if ':' in address else 'ip'}={address}\n" for address in addresses)
    speeds = "".join(f"{key}={speed if key in keys else 0}\n" for key in (DOWN, UP))
    return f"[{name}]\n{own}{lines}{speeds}queuing_discipline=pfifo\n"


class Edit:
    """A command, the file that it is given, if any, and the stored tariffs that it leaves."""

    def __init__(self, option, given, stored):
        self.option, self.given, self.stored = option, given, stored


class Mode:
    """Which directions are shaped, how the device is named, and what everybody has."""

    def __init__(self, wan, lines, keys, stored, added):
        self.settings = f"[global]\n{wan}enabled=true\n{lines}"
        numbered = {name: (number, addresses)
                    for number, (name, addresses) in enumerate(stored.items(), 4)}
        new = len(numbered) + 4

        def sections(names, speeds=(), numbers=True):
            known = {**numbered, "bob": (new, added)}
            return "".join(tariff(name, known[name][0] if numbers else None, known[name][1], keys,
                                  dict(speeds).get(name, 4000)) for name in names)

        names, faster = list(stored), {"amy": 5000}
        others = [name for name in names if name != "zed"]
        self.tariffs, self.added = sections(names), sections(["bob"], numbers=False)
        self.edits = {
            "add": Edit("--tariff-add", self.added, sections([*names, "bob"])),
            "delete": Edit("--tariff-del", None, sections(others)),
            "change": Edit("--tariff-update", sections(["amy"], faster, False),
                           sections([*names[1:], "amy"], faster)),
            "replace": Edit("--update", sections(["zed", "amy", "bob"], faster, False),
                            sections(["amy", "bob", "zed"], faster)),
        }


WAN = f"wan={LINE}\n"
BOTH = f"{DOWN}=50000\n{UP}=20000\n"
STORED, ADDED = {"amy": ["10.0.0.4"], "zed": ["10.0.0.5"]}, ["10.0.0.6"]
# Both families, one alone, and prefixes within one another; the last that a load puts into the set
# is a host in somebody else's network.
STORED6 = {"amy": ["10.0.0.4", "2001:db8:1::/48"], "cat": ["2001:db8:2:100::/56"],
           "zed": ["10.0.0.5", "2001:db8:1:2::/64", "2001:db8:1::5"]}
ADDED6 = ["10.0.0.6", "2001:db8:1:2:8000::/65"]
MODES = {
    "both": Mode(WAN, BOTH, (DOWN, UP), STORED, ADDED),
    "download only": Mode(WAN, f"{DOWN}=50000\n", (DOWN,), STORED, ADDED),
    "upload only": Mode(WAN, f"{UP}=20000\n", (UP,), STORED, ADDED),
    "upload blocked": Mode(WAN, f"{DOWN}=50000\n{UP}=0\n", (DOWN,), STORED, ADDED),
    "imq both": Mode("", BOTH, (DOWN, UP), STORED, ADDED),
    "imq download only": Mode("", f"{DOWN}=50000\n", (DOWN,), STORED, ADDED),
    "ipv6": Mode(WAN, f"ipv6=true\n{BOTH}", (DOWN, UP), STORED6, ADDED6),
}


def killed_load(when):
    """A load that is killed at its request number `when`."""
    return f"strace -qq -o /dev/null -e inject=sendmsg:signal=KILL:when={when} $QUENBY --load"


# Of the IPv6 redirections, which put fragments together and feed ifb_ingr, the feeding one, the last.
FEED6 = (f"tc filter del dev {LINE} parent ffff: pref 2 protocol ipv6 handle $(tc filter show dev "
         f"{LINE} parent ffff: pref 2 | sed -n 's/.* fh \\([0-9a-f]*::[0-9a-f]*\\) .*/\\1/p' | "
         "tail -n 1) u32")
SET6 = "kavo_opt_shaper6"

# Requests of a load in the mode "ipv6", and what is done when it is killed there.
REQUESTS6 = {
    18: "RTM_NEWTFILTER",           # the line's second classifier of IPv6
    41: "RTM_DELTFILTER",           # before the redirections of IPv6
    50: "IPSET_CMD_ADD AF_INET6",   # the first prefix
    52: "IPSET_CMD_ADD AF_INET6",
    53: "IPSET_CMD_ADD AF_INET6",   # the last one
}

# What happens to a router: shell commands, whether it was loaded before, in which modes.
FAULTS = {
    "stopped": ("$QUENBY --stop", True, list(MODES)),
    "never loaded": ("", False, ["download only", "ipv6"]),
    "line came back": (f"ip link del {LINE}; ip link add {LINE} type dummy; ip link set {LINE} up",
                       True, ["both", "download only", "upload only", "ipv6"]),
    "load killed at its 5th request": (killed_load(5), False, ["both", "upload only"]),
    "load killed at its 10th request": (killed_load(10), False, ["download only"]),
    "load killed at its 22nd request": (killed_load(22), False, ["both"]),
    # The redirection stands, but the last class does not, or the last address.
    "load killed at its 30th request": (killed_load(30), False, ["both"]),
    "load killed at its 33rd request": (killed_load(33), False, ["both"]),
    **{f"load killed at its request {number}": (killed_load(number), False, ["ipv6"])
       for number in REQUESTS6},
    "ifb_ingr deleted":
        (f"ip link del {IFB}", True, ["both", "download only", "upload blocked", "ipv6"]),
    "ifb_ingr deleted and made again":
        (f"ip link del {IFB}; ip link add {IFB} type ifb; "
         f"tc qdisc add dev {IFB} root handle 8000: htb", True, ["download only"]),
    "redirection deleted":
        (f"tc filter del dev {LINE} parent ffff:", True, ["both", "download only"]),
    "redirection to another device":
        (f"tc filter del dev {LINE} parent ffff:; tc filter add dev {LINE} parent ffff: protocol "
         "ip pref 1 u32 match u32 0 0 action mirred egress redirect dev eth2", True, ["both"]),
    "ingress qdisc deleted":
        (f"tc qdisc del dev {LINE} ingress", True, ["both", "download only", "upload only", "ipv6"]),
    "IPv6 redirections deleted": (f"tc filter del dev {LINE} parent ffff: pref 2", True, ["ipv6"]),
    "IPv6 redirections half made": (FEED6, True, ["ipv6"]),
    "IPv6 set emptied": (f"ipset flush {SET6}", True, ["ipv6"]),
    "IPv6 set destroyed": (f"ipset destroy {SET6}", True, ["ipv6"]),
    "last prefix deleted": (f"ipset del {SET6} {STORED6['zed'][-1]}", True, ["ipv6"]),
    "root of the line deleted":
        (f"tc qdisc del dev {LINE} root", True, ["both", "upload only", "upload blocked"]),
    "root of the line is another":
        (f"tc qdisc replace dev {LINE} root handle 7: fq_codel", True, ["both"]),
    "root of ifb_ingr deleted":
        (f"tc qdisc del dev {IFB} root", True, ["both", "download only"]),
    "root of imq0 deleted":
        (f"tc qdisc del dev {IMQ} root", True, ["imq both", "imq download only"]),
}

# Where the other edits are tried, too, and which.
OTHERS = ["delete", "change", "replace"]
EDITED_OTHERWISE = {
    "stopped": {"both": OTHERS, "ipv6": ["delete"]},
    "line came back": {"both": OTHERS, "ipv6": ["replace"]},
    "ifb_ingr deleted": {"both": ["delete"]},
    "load killed at its 5th request": {"both": ["replace"]},
    "load killed at its request 52": {"ipv6": ["change"]},
}
